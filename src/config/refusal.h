#ifndef QKMEM_CONFIG_REFUSAL_H_
#define QKMEM_CONFIG_REFUSAL_H_

#include "core/option_call.h"
#include "core/own_locations.h"
#include "qkmem/status.h"

namespace qk::mem {

/** A failed configuration call: fills in the caller's status. */
class Refusal {
 public:
  /** @param routine  the public call that fails; `location` is where it does. */
  Refusal(qk::Status& status, int code, const char* routine, SourceLocation location);

  Refusal& subject(const char* name);
  Refusal& arguments(const char* first, const char* second = "");
  Refusal& numbers(int first, int second);

  /** The code that the call returns. */
  [[nodiscard]] int code() const { return status_.code; }

 private:
  qk::Status& status_;
};

/** Refuses an option string that is too long. */
int refuse_length(qk::Status& status, const char* routine, SourceLocation location,
                  const char* argument, int length);

/** Refuses an option string that doesn't fit its table. */
int refuse_options(qk::Status& status, const char* routine, SourceLocation location,
                   const qk_option_error& error);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_REFUSAL_H_

#ifndef QKMEM_HANDLE_HANDLE_OPTIONS_H_
#define QKMEM_HANDLE_HANDLE_OPTIONS_H_

#include "core/option_call.h"
#include "core/records.h"

namespace qk::mem {

/** What the option string of a new handle asks for. */
class HandleOptions {
 public:
  HandleOptions();

  /** Reads `options`; false leaves the reason in error(). Null and "" leave the defaults. */
  [[nodiscard]] bool read(const char* options);
  [[nodiscard]] const qk_option_error& error() const { return call_.error(); }

  /** Applies everything but the mutex. */
  void apply_to(qk_mem_handle& handle) const;
  [[nodiscard]] bool multithreaded() const;
  /** Blocks to be made at once on a block-managed handle. */
  [[nodiscard]] int initial_blocks() const;

 private:
  OptionText text_;
  OptionCall<8> call_;
};

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_HANDLE_OPTIONS_H_

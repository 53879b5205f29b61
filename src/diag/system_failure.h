#ifndef QKMEM_DIAG_SYSTEM_FAILURE_H_
#define QKMEM_DIAG_SYSTEM_FAILURE_H_

#include <cerrno>

#include "core/registry.h"
#include "support/system.h"

namespace qk::mem {

/**
 * A call of the system that just failed. Made right behind the call, it keeps errno before anything
 * can change it and leaves the code in the calling thread's Qk_mem_error.
 */
class SystemFailure {
 public:
  SystemFailure() : number_(errno) { Qk_mem_error.set(qk_error_no(number_)); }

  [[nodiscard]] int number() const { return number_; }

  /** Its text, valid as long as this object. */
  [[nodiscard]] const char* text() { return qk_error_msg_r(number_, text_, sizeof text_); }

 private:
  int number_;
  char text_[256] = {};
};

}  // namespace qk::mem

#endif  // QKMEM_DIAG_SYSTEM_FAILURE_H_

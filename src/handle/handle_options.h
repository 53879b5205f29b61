#ifndef QKMEM_HANDLE_HANDLE_OPTIONS_H_
#define QKMEM_HANDLE_HANDLE_OPTIONS_H_

#include "core/option_call.h"
#include "core/records.h"

namespace qk::mem {

/** The options of a new handle. */
class HandleOptions {
 public:
  HandleOptions();

  /** Parses `options`. False leaves the reason in error(). Null and "" mean the defaults. */
  [[nodiscard]] bool read(const char* options);
  [[nodiscard]] const qk_option_error& error() const { return call_.error(); }

  /** Applies all options except MULTITHREADED. */
  void apply_to(qk_mem_handle& handle) const;
  [[nodiscard]] bool multithreaded() const;
  /** The number of blocks that a new block-managed handle gets. */
  [[nodiscard]] int initial_blocks() const;

 private:
  OptionText text_;
  OptionCall<8> call_;
};

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_HANDLE_OPTIONS_H_

#ifndef SUPPORT_RESIDENT_PAGES_H_
#define SUPPORT_RESIDENT_PAGES_H_

#include <unistd.h>

#include <cstdint>

#include "support/modules.h"

namespace qk {

/** Tells pages of anonymous memory that were ever written from those that would read as zero. */
class ResidentPages {
 public:
  ResidentPages() noexcept;
  ResidentPages(const ResidentPages&) = delete;
  ResidentPages& operator=(const ResidentPages&) = delete;
  ~ResidentPages();

  /**
   * The first part of a range of whole pages that can have contents, up to a limit of its length;
   * an empty one at the end of the range if there is none. All of it, if the system doesn't tell.
   */
  [[nodiscard]] AddressRange first_in(AddressRange range) const noexcept;

 private:
  int file_;
  std::uintptr_t page_;
};

}  // namespace qk

#endif  // SUPPORT_RESIDENT_PAGES_H_

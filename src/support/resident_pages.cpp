#include "support/resident_pages.h"

#include <fcntl.h>

#include <algorithm>
#include <iterator>

namespace qk {
namespace {

/** Of a page: it is in memory, or swapped out. */
constexpr std::uint64_t kHasContents = std::uint64_t{3} << 62;

}  // namespace

ResidentPages::ResidentPages() noexcept
    : file_(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC)),
      page_(static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE))) {}

ResidentPages::~ResidentPages() {
  if (file_ >= 0) close(file_);
}

AddressRange ResidentPages::first_in(AddressRange range) const noexcept {
  std::uint64_t pages[1024];
  std::uintptr_t at = range.begin;
  while (at < range.end) {
    const std::uintptr_t wanted = std::min<std::uintptr_t>((range.end - at) / page_, 1024);
    const ssize_t bytes =
        pread(file_, pages, wanted * sizeof *pages, static_cast<off_t>(at / page_ * 8));
    const std::uintptr_t count = bytes <= 0 ? 0 : static_cast<std::uintptr_t>(bytes) / 8;
    if (count == 0) return {at, range.end};
    const auto has_contents = [](std::uint64_t page) { return (page & kHasContents) != 0; };
    const std::uint64_t* const end = pages + count;
    const std::uint64_t* const first =
        std::find_if(static_cast<const std::uint64_t*>(pages), end, has_contents);
    const std::uint64_t* const last = std::find_if_not(first, end, has_contents);
    if (first != end) {
      return {at + static_cast<std::uintptr_t>(first - pages) * page_,
              at + static_cast<std::uintptr_t>(last - pages) * page_};
    }
    at += count * page_;
  }
  return {range.end, range.end};
}

}  // namespace qk

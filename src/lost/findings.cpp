#include "lost/findings.h"

#include <sys/mman.h>

#include <utility>

#include "profile/pool.h"
#include "profile/site_table.h"

namespace qk::mem::lost {

std::string_view reason_of(Obstacle obstacle) {
  switch (obstacle) {
    case Obstacle::kNone:
      break;
    case Obstacle::kNoMemory:
      return "there is no memory for that";
    case Obstacle::kSanitizer:
      return "the program has a sanitizer, whose memory can't be told from its own";
    case Obstacle::kNoCopy:
      return "the system allows no copy of the process";
    case Obstacle::kNoMap:
      return "/proc/self/maps can't be read";
    case Obstacle::kCopyEnded:
      return "the copy of the process has ended early";
    case Obstacle::kTooLong:
      return "it takes too long at a signal";
    case Obstacle::kLockIsHeld:
      return "the signal has interrupted a call of the library";
  }
  return "";
}

Findings::Findings() noexcept {
  const std::uint32_t sites = profile::sites.count() + 1;
  const std::uint32_t count = sites + 2 * profile::pools.count();
  bytes_ = sizeof(Head) + count * sizeof(Losses);
  void* const pages =
      mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) return;
  head_ = static_cast<Head*>(pages);
  head_->first_of_pools = sites;
  head_->count = count;
}

Findings::Findings(Findings&& other) noexcept
    : head_(std::exchange(other.head_, nullptr)), bytes_(other.bytes_), instead_(other.instead_) {}

Findings::~Findings() {
  if (head_ != nullptr) munmap(head_, bytes_);
}

Losses* Findings::losses() const { return reinterpret_cast<Losses*>(head_ + 1); }

std::uint32_t Findings::index_of(std::uint32_t site, std::uint32_t pool) const {
  if (site <= profile::kMaxSites) return site < head_->first_of_pools ? site : 0;
  const std::uint32_t index =
      head_->first_of_pools + 2 * (pool - 1) + (site == profile::kNotRecordedSite ? 1 : 0);
  return index < head_->count ? index : 0;
}

std::uint32_t Findings::index_of(const qk_mem_handle& handle, profile::Mark mark) const {
  if (mark.site_number() == profile::kNoSite || !profile::is_watched(handle)) return 0;
  return index_of(mark.site_number(), profile::pool_of(handle).number);
}

Losses& Findings::at(std::uint32_t index) { return losses()[index]; }

Losses Findings::of(const profile::Site& site) const {
  if (head_ == nullptr) return {};
  const std::uint32_t index = index_of(site.number, site.key.pool);
  return index == 0 ? Losses{} : losses()[index];
}

}  // namespace qk::mem::lost

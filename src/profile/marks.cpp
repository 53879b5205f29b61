#include "profile/marks.h"

#include <algorithm>
#include <cstring>

#include "support/mtx_lock.h"

namespace qk::mem::profile {
namespace {

constexpr std::uint32_t kFirstMarks = 16;

std::size_t bytes_of(std::uint32_t marks) { return marks * sizeof(Mark); }

}  // namespace

void Marks::make_room(std::uint32_t least) {
  const std::uint32_t capacity = std::max({least, kFirstMarks, 2 * capacity_});
  const qk::MtxLock lock(growth_lock);
  auto* const marks = static_cast<Mark*>(arena.take(bytes_of(capacity)));
  is_full_ = marks == nullptr;
  if (is_full_) return;
  if (capacity_ != 0) std::memcpy(marks, marks_, bytes_of(capacity_));
  arena.give_back(marks_, bytes_of(capacity_));
  marks_ = marks;
  capacity_ = capacity;
}

void Marks::release() {
  const qk::MtxLock lock(growth_lock);
  arena.give_back(marks_, bytes_of(capacity_));
  marks_ = nullptr;
  capacity_ = 0;
  is_full_ = false;
}

}  // namespace qk::mem::profile

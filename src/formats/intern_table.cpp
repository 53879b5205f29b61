#include "formats/intern_table.h"

#include <memory>
#include <utility>

namespace qk::mem {

bool InternTable::add(const Entry& entry) noexcept {
  if (2 * (used_ + 1) > size_ && !grow()) return false;
  place(entry);
  ++used_;
  return true;
}

void InternTable::place(const Entry& entry) noexcept {
  std::size_t at = place_of(entry.hash);
  while (entries_[at].number != 0) at = next(at);
  entries_[at] = entry;
}

bool InternTable::grow() noexcept {
  constexpr std::size_t kFirstSize = 128;
  const std::size_t size = size_ == 0 ? kFirstSize : 2 * size_;
  void* const memory = arena_.take(size * sizeof(Entry));
  if (memory == nullptr) return false;
  auto* const entries = static_cast<Entry*>(memory);
  std::uninitialized_value_construct_n(entries, size);
  Entry* const old = std::exchange(entries_, entries);
  const std::size_t old_size = std::exchange(size_, size);
  for (std::size_t i = 0; i < old_size; ++i) {
    if (old[i].number != 0) place(old[i]);
  }
  arena_.give_back(old, old_size * sizeof(Entry));
  return true;
}

}  // namespace qk::mem

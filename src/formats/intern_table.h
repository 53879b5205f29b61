#ifndef QKMEM_FORMATS_INTERN_TABLE_H_
#define QKMEM_FORMATS_INTERN_TABLE_H_

#include <cstddef>
#include <cstdint>

#include "support/page_arena.h"

namespace qk::mem {

/**
 * Gives equal things the same number. A thing is known by two words, which say what it is or where
 * it is written, and by a hash. Constant time per call on average, in memory of an arena.
 */
class InternTable {
 public:
  struct Entry {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::uint64_t hash = 0;
    std::uint64_t number = 0;  // 0 for a free entry
  };

  explicit InternTable(qk::PageArena& arena) noexcept : arena_(arena) {}
  InternTable(const InternTable&) = delete;
  InternTable& operator=(const InternTable&) = delete;
  ~InternTable() { arena_.give_back(entries_, bytes()); }

  /** Returns the number of the thing for which `is_it` holds, or 0. */
  template <class IsIt>
  [[nodiscard]] std::uint64_t find(std::uint64_t hash, IsIt&& is_it) const noexcept {
    if (size_ == 0) return 0;
    for (std::size_t at = place_of(hash); entries_[at].number != 0; at = next(at)) {
      if (entries_[at].hash == hash && is_it(entries_[at])) return entries_[at].number;
    }
    return 0;
  }

  /** Adds a thing that find() doesn't find. Returns false if there is no memory. */
  [[nodiscard]] bool add(const Entry& entry) noexcept;

 private:
  [[nodiscard]] std::size_t bytes() const noexcept { return size_ * sizeof(Entry); }
  [[nodiscard]] std::size_t place_of(std::uint64_t hash) const noexcept {
    return hash & (size_ - 1);
  }
  [[nodiscard]] std::size_t next(std::size_t at) const noexcept { return (at + 1) & (size_ - 1); }
  [[nodiscard]] bool grow() noexcept;
  void place(const Entry& entry) noexcept;

  qk::PageArena& arena_;
  Entry* entries_ = nullptr;
  std::size_t size_ = 0;  // a power of two, or 0
  std::size_t used_ = 0;  // at most half of them
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_INTERN_TABLE_H_

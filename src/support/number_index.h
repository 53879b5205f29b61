#ifndef SUPPORT_NUMBER_INDEX_H_
#define SUPPORT_NUMBER_INDEX_H_

#include <cstddef>
#include <cstdint>

#include "support/page_arena.h"
#include "support/shared_variable.h"

namespace qk {

/**
 * Finds the numbers of things by a hash of them, in an open hash table. find() takes no lock, and
 * can be called beside the others, which need one thread at a time. A table that is full is
 * replaced, but stays readable for those who are in it.
 */
class NumberIndex {
 public:
  constexpr NumberIndex() noexcept = default;
  NumberIndex(const NumberIndex&) = delete;
  NumberIndex& operator=(const NumberIndex&) = delete;

  /** Returns the number with this hash for which `is_it` holds; 0 if there is none. */
  template <class IsIt>
  [[nodiscard]] std::uint32_t find(std::uint32_t hash, IsIt is_it) const noexcept {
    const int tables = qk::acquire(count_);
    if (tables == 0) return 0;
    const std::uint64_t* const words = tables_[tables - 1];
    const std::uint64_t mask = words_of(tables - 1) - 1;
    // It ends: a quarter of the words is free.
    for (std::uint64_t i = hash & mask;; i = (i + 1) & mask) {
      const std::uint64_t word = qk::acquire(words[i]);
      if (word == 0) return 0;
      if (hash_in(word) == hash && is_it(number_in(word))) return number_in(word);
    }
  }

  /** Makes room for one more number. Returns false if there is no memory. */
  [[nodiscard]] bool reserve(PageArena& arena) noexcept {
    return (count_ != 0 && 4 * (used_ + 1) <= 3 * words_of(count_ - 1)) || grow(arena);
  }

  /** Adds a number that is not 0, after reserve(). Readers see all that was written before. */
  void add(std::uint32_t hash, std::uint32_t number) noexcept {
    put(count_ - 1, std::uint64_t{hash} << 32 | number);
    ++used_;
  }

 private:
  /** Each table has twice the words of the one before. Only the last one is searched. */
  static constexpr int kTables = 25;
  static constexpr std::uint64_t words_of(int table) { return std::uint64_t{256} << table; }

  // A word has a hash and a number; it is 0 if it is free.
  static constexpr std::uint32_t number_in(std::uint64_t word) {
    return static_cast<std::uint32_t>(word);
  }
  static constexpr std::uint32_t hash_in(std::uint64_t word) {
    return static_cast<std::uint32_t>(word >> 32);
  }

  void put(int table, std::uint64_t word) noexcept {
    std::uint64_t* const words = tables_[table];
    const std::uint64_t mask = words_of(table) - 1;
    std::uint64_t i = hash_in(word) & mask;
    while (qk::load(words[i]) != 0) i = (i + 1) & mask;
    qk::publish(words[i], word);
  }

  [[nodiscard]] bool grow(PageArena& arena) noexcept {
    if (count_ == kTables) return false;
    void* const words = arena.take(words_of(count_) * sizeof(std::uint64_t));
    if (words == nullptr) return false;
    tables_[count_] = static_cast<std::uint64_t*>(words);
    for (std::uint64_t i = 0; count_ != 0 && i < words_of(count_ - 1); ++i) {
      if (const std::uint64_t word = qk::load(tables_[count_ - 1][i]); word != 0) put(count_, word);
    }
    qk::publish(count_, count_ + 1);
    return true;
  }

  std::uint64_t* tables_[kTables] = {};
  int count_ = 0;
  std::uint64_t used_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_NUMBER_INDEX_H_

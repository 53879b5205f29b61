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
    // In this order. With the mask of an earlier table the search can fail, but stays inside.
    const std::uint64_t mask = qk::acquire(mask_);
    const std::uint64_t* const words = qk::acquire(words_);
    if (words == nullptr) [[unlikely]]
      return 0;
    // It ends: half of the words are free.
    for (std::uint64_t i = hash & mask;; i = (i + 1) & mask) {
      const std::uint64_t word = qk::acquire(words[i]);
      if (word == 0) return 0;
      if (hash_in(word) == hash && is_it(number_in(word))) return number_in(word);
    }
  }

  /** Makes room for one more number. Returns false if there is no memory. */
  [[nodiscard]] bool reserve(PageArena& arena) noexcept {
    return (words_ != nullptr && 2 * (used_ + 1) <= mask_ + 1) || grow(arena);
  }

  /** Adds a number that is not 0, after reserve(). Readers see all that was written before. */
  void add(std::uint32_t hash, std::uint32_t number) noexcept {
    put(words_, mask_, std::uint64_t{hash} << 32 | number);
    ++used_;
  }

 private:
  static constexpr std::uint64_t kFirstWords = 256;
  static constexpr std::uint64_t kMostWords = std::uint64_t{1} << 32;  // a hash reaches no more

  // A word has a hash and a number; it is 0 if it is free.
  static constexpr std::uint32_t number_in(std::uint64_t word) {
    return static_cast<std::uint32_t>(word);
  }
  static constexpr std::uint32_t hash_in(std::uint64_t word) {
    return static_cast<std::uint32_t>(word >> 32);
  }

  static void put(std::uint64_t* words, std::uint64_t mask, std::uint64_t word) noexcept {
    std::uint64_t i = hash_in(word) & mask;
    while (qk::load(words[i]) != 0) i = (i + 1) & mask;
    qk::publish(words[i], word);
  }

  [[nodiscard]] bool grow(PageArena& arena) noexcept {
    const std::uint64_t before = words_ == nullptr ? 0 : mask_ + 1;
    if (before == kMostWords) return false;
    const std::uint64_t count = before == 0 ? kFirstWords : 2 * before;
    auto* const words = static_cast<std::uint64_t*>(arena.take(count * sizeof(std::uint64_t)));
    if (words == nullptr) return false;
    for (std::uint64_t i = 0; i < before; ++i) {
      if (const std::uint64_t word = qk::load(words_[i]); word != 0) put(words, count - 1, word);
    }
    qk::publish(words_, words);
    qk::publish(mask_, count - 1);
    return true;
  }

  std::uint64_t* words_ = nullptr;
  std::uint64_t mask_ = 0;
  std::uint64_t used_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_NUMBER_INDEX_H_

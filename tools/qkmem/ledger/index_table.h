#ifndef QKMEM_TOOLS_LEDGER_INDEX_TABLE_H_
#define QKMEM_TOOLS_LEDGER_INDEX_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ledger/expect_memory.h"
#include "ledger/large_array.h"

namespace qk::command {

/**
 * A hash table of numbers from 0, each of which stands for a thing that the caller keeps. It knows
 * no thing itself: the caller gives hashes, and says which number it means.
 */
class IndexTable {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  /** The number of a hash for which `is_it` holds, or kNone. */
  template <class IsIt>
  [[nodiscard]] std::uint32_t find(std::uint64_t hash, IsIt is_it) const {
    for (std::size_t at = place_of(hash); places_[at].number != kNone; at = next(at)) {
      if (places_[at].hash == short_of(hash) && is_it(places_[at].number))
        return places_[at].number;
    }
    return kNone;
  }

  /** Numbers of a hash are soon added, looked for or removed. */
  void expect(std::uint64_t hash) const { expect_memory(&places_[place_of(hash)]); }

  /** The number at the place of a hash, which can be another one's; kNone if it is free. */
  [[nodiscard]] std::uint32_t first(std::uint64_t hash) const {
    return places_[place_of(hash)].number;
  }

  /** Adds a number that is not there. */
  void add(std::uint64_t hash, std::uint32_t number) {
    if (++count_ * 2 > places_.size()) grow();
    place(hash, number);
  }

  /** Removes a number that is there. */
  void remove(std::uint64_t hash, std::uint32_t number) {
    std::size_t gap = place_of(hash);
    while (places_[gap].number != number) gap = next(gap);
    // What stands behind it moves up, unless it would then stand in front of its own place.
    for (std::size_t at = next(gap); places_[at].number != kNone; at = next(at)) {
      const std::size_t home = place_of(places_[at].hash);
      if (((at - home) & mask()) < ((at - gap) & mask())) continue;
      places_[gap] = places_[at];
      gap = at;
    }
    places_[gap].number = kNone;
    --count_;
  }

  [[nodiscard]] std::size_t count() const { return count_; }

 private:
  struct Place {
    std::uint32_t hash = 0;
    std::uint32_t number = kNone;
  };

  /** Tables have fewer places than this has numbers. */
  [[nodiscard]] static std::uint32_t short_of(std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash);
  }
  [[nodiscard]] std::size_t mask() const { return places_.size() - 1; }
  [[nodiscard]] std::size_t place_of(std::uint64_t hash) const { return short_of(hash) & mask(); }
  [[nodiscard]] std::size_t next(std::size_t at) const { return (at + 1) & mask(); }

  void place(std::uint64_t hash, std::uint32_t number) {
    std::size_t at = place_of(hash);
    while (places_[at].number != kNone) at = next(at);
    places_[at] = {short_of(hash), number};
  }

  void grow() {
    const LargeArray<Place> old = std::move(places_);
    places_ = LargeArray<Place>(old.size() * 2);
    for (const Place& place_of_old : old) {
      if (place_of_old.number != kNone) place(place_of_old.hash, place_of_old.number);
    }
  }

  LargeArray<Place> places_ = LargeArray<Place>(1024);  // a power of two
  std::size_t count_ = 0;
};

/** A hash of two words, of which all bits count. */
[[nodiscard]] inline std::uint64_t hash_of(std::uint64_t first, std::uint64_t second) {
  std::uint64_t hash = first * 0x9E3779B97F4A7C15 ^ second;
  hash ^= hash >> 32;
  hash *= 0xD6E8FEB86659FD93;
  return hash ^ hash >> 32;
}

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_INDEX_TABLE_H_

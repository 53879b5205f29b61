#ifndef QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_
#define QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_

#include <cstdint>
#include <functional>
#include <vector>

#include "ledger/expect_memory.h"
#include "ledger/large_array.h"
#include "ledger/lazy_list.h"
#include "ledger/ledger.h"

namespace qk::command {

/**
 * The live blocks of a recording, by the number of the event that made them. It is a hash table in
 * which blocks of numbers that are close together lie close together, since most of a replay's time
 * goes to memory that is not in the processor's cache. The places are as many as a power of two
 * times the golden section: so numbers that have a power of two between them, as in a program that
 * keeps one block in each round of a loop, lie apart.
 */
class RecordingBlocks {
 public:
  explicit RecordingBlocks(const Ledger& ledger) : ledger_(ledger) {}

  /** Adds a block. Returns false if one of its number is there. */
  bool add(const Block& block);

  /** The block of a number is soon added or removed, which goes as far as the next place at least. */
  void expect(std::uint64_t number) const {
    const Block* const place = &places_[home_of(number)];
    expect_memory(place);
    expect_memory(place + 1);
  }

  /** Same, later: the figures of its site are soon changed. */
  void expect_site(std::uint64_t number) const {
    const Block& place = places_[home_of(number)];
    if (is_used(place)) ledger_.expect(place.site);
  }

  /** The block of a number, until the next one is added or removed; null if there is none. */
  [[nodiscard]] const Block* find(std::uint64_t number) const {
    const Block& place = places_[place_of(number)];
    return is_used(place) ? &place : nullptr;
  }

  /** Removes a block that was found. */
  void remove(const Block& block);

  /** Removes all blocks of a handle, the oldest first. */
  void take_all_of(HandleIndex handle, const std::function<void(const Block&)>& taken);

 private:
  __extension__ using Product = unsigned __int128;

  static constexpr std::size_t kFirstPlaces = 633;
  static constexpr Block kFree = {0, 0, {}, kOwnSite};

  [[nodiscard]] static bool is_used(const Block& place) { return place.site != kOwnSite; }

  /** The number modulo the count of places. The quotient that is multiplied out can be too small. */
  [[nodiscard]] std::size_t home_of(std::uint64_t number) const {
    const auto quotient = static_cast<std::uint64_t>(Product{number} * reciprocal_ >> 64);
    std::uint64_t rest = number - quotient * places_.size();
    while (rest >= places_.size()) rest -= places_.size();
    return rest;
  }
  [[nodiscard]] std::size_t next(std::size_t at) const {
    return at + 1 == places_.size() ? 0 : at + 1;
  }
  /** How far it is from one place on to another one. */
  [[nodiscard]] std::size_t distance(std::size_t from, std::size_t to) const {
    return to - from + (to < from ? places_.size() : 0);
  }

  /** The place of a number, or the one that it would get. */
  [[nodiscard]] std::size_t place_of(std::uint64_t number) const {
    std::size_t at = home_of(number);
    while (is_used(places_[at]) && places_[at].made.event != number) at = next(at);
    return at;
  }
  [[nodiscard]] static std::uint64_t reciprocal_of(std::size_t places) {
    return UINT64_MAX / places;
  }
  void grow();
  void list(const Block& block);
  void list_all();

  const Ledger& ledger_;
  LargeArray<Block> places_ = LargeArray<Block>(kFirstPlaces, kFree);
  std::uint64_t reciprocal_ = reciprocal_of(kFirstPlaces);
  std::size_t count_ = 0;
  // Only programs that clear handles need them, so they are made at the first clear.
  bool has_lists_ = false;
  std::vector<LazyList<std::uint64_t>> lists_;  // of numbers, by handle
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_

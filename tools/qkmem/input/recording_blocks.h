#ifndef QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_
#define QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "ledger/ledger.h"

namespace qk::command {

/**
 * The live blocks of a recording, by the number of the event that made them. It is a hash table in
 * which blocks of numbers that are close together lie close together, since most of a replay's time
 * goes to memory that is not in the processor's cache.
 */
class RecordingBlocks {
 public:
  explicit RecordingBlocks(const Ledger& ledger) : ledger_(ledger) {}

  /** Adds a block. Returns false if one of its number is there. */
  bool add(const Block& block);

  /** Removes the block of a number and returns it, if there is one. */
  std::optional<Block> take(std::uint64_t number);

  /** Removes all blocks of a handle, the oldest first. */
  void take_all_of(HandleIndex handle, const std::function<void(const Block&)>& taken);

 private:
  static constexpr std::size_t kFirstPlaces = 1024;

  /** The numbers of a handle's blocks, and of some that are gone. */
  struct Numbers {
    std::vector<std::uint64_t> numbers;
    std::size_t look_again = kFirstPlaces;  // at so many
  };

  [[nodiscard]] static bool is_used(const Block& place) { return place.site != kOwnSite; }
  [[nodiscard]] std::size_t mask() const { return places_.size() - 1; }
  [[nodiscard]] std::size_t find(std::uint64_t number) const;
  void place(const Block& block);
  void remove(std::size_t at);
  void grow();
  void list(const Block& block);
  void list_all();
  void leave_out_gone(Numbers& of_handle) const;

  const Ledger& ledger_;
  std::vector<Block> places_ = std::vector<Block>(kFirstPlaces, Block{0, 0, {}, kOwnSite});
  std::size_t count_ = 0;
  // Only programs that clear handles need them, so they are made at the first clear.
  bool has_lists_ = false;
  std::vector<Numbers> lists_;  // by handle
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_RECORDING_BLOCKS_H_

#ifndef QKMEM_TOOLS_INPUT_RECORDING_H_
#define QKMEM_TOOLS_INPUT_RECORDING_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "input/chunk_index.h"
#include "input/definitions.h"
#include "input/event_merge.h"
#include "input/input.h"
#include "input/recording_blocks.h"
#include "input/storage.h"

/** A recording: chunks of the events of each thread. */
namespace qk::command {

/** Reads a recording into a ledger. */
class RecordingInput {
 public:
  /** @param tail  the bytes of its tail; empty if there is none. */
  RecordingInput(const Reader& reader, const Storage& storage, std::string tail);

  [[nodiscard]] Check read();

 private:
  struct Level {
    mem::recording::EventBlock block;
    Amount amount;
  };
  struct Sums {
    Amount live;
    Amount made;
    bool operator==(const Sums&) const = default;
  };

  void take_records(const mem::recording::Chunk& chunk, std::uint64_t at);
  void begin_levels(const mem::recording::Moment& moment, std::uint64_t at);
  void take_level(mem::recording::FieldReader& fields);
  void take_pool_sums(mem::recording::FieldReader& fields);
  void book_levels();
  [[nodiscard]] Damage read_events();
  [[nodiscard]] bool take_events(std::span<const MergedEvent> events);
  void expect(std::span<const MergedEvent> events) const;
  void expect_sites(std::span<const MergedEvent> events) const;
  [[nodiscard]] bool take_if_wanted();
  void take(const mem::recording::Event& event);
  void take_made();
  void take_release();
  void take_back();
  void take_cleared();
  [[nodiscard]] const Block* find_released() const;
  [[nodiscard]] std::optional<Block> last_set_aside();
  [[nodiscard]] Block unsure_block();
  void tell(const char* what, const Block* about, const Block* made, const Block* gone);
  [[nodiscard]] Check result();
  void compare_sums(Check& check) const;

  const Reader& to_;
  const Storage& storage_;
  ChunkIndex index_;
  Definitions definitions_;
  RecordingBlocks blocks_;
  const MergedEvent* now_ = nullptr;  // the event that is taken
  std::vector<Level> levels_;
  std::optional<std::uint64_t> levels_at_;  // bytes
  bool takes_levels_ = false;
  bool has_levels_ = false;
  mem::recording::Moment begin_;  // of the levels: what is before doesn't count
  bool is_closed_ = false;
  bool was_cut_short_ = false;                                       // as the user wanted
  std::unordered_map<std::uint32_t, std::vector<Block>> set_aside_;  // by thread
  std::unordered_set<std::uint64_t> early_;  // blocks that were released and are to come
  std::unordered_map<HandleIndex, Sums> closing_sums_;
  std::uint64_t highest_ = 0;
  Problem senseless_ = {"chunks of definitions that make no sense", 0, {}, {}};
  Problem no_levels_ = {"what was live behind the dropped events is missing", 0, {}, {}};
  Problem made_again_ = {"blocks of a number that another one has", 0, {}, {}};
  Problem unknown_releases_ = {"releases of blocks that are not in the recording", 0, {}, {}};
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_RECORDING_H_

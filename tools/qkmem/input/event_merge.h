#ifndef QKMEM_TOOLS_INPUT_EVENT_MERGE_H_
#define QKMEM_TOOLS_INPUT_EVENT_MERGE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <queue>
#include <span>
#include <string>
#include <vector>

#include "formats/recording_event.h"
#include "formats/recording_reader.h"
#include "input/chunk_index.h"

namespace qk::command {

/** The events of all threads in the order of time. One chunk of each thread is open at a time. */
class EventMerge {
 public:
  /** Sees events some time before they are given out. */
  using OnAhead = std::function<void(std::span<const mem::recording::Event>)>;

  EventMerge(const ChunkIndex& index, OnAhead on_ahead);

  struct Next {
    const mem::recording::Event* event = nullptr;
    std::uint64_t nanoseconds = 0;
    std::uint32_t thread = 0;
  };

  /** The next event, valid until the next call; null at the end. */
  [[nodiscard]] const Next* next();

  /** Chunks whose sum is wrong, or whose events make no sense from somewhere on. */
  [[nodiscard]] const Problem& damaged() const { return damaged_; }

  /** No event up to this number is missing because of them. */
  [[nodiscard]] std::uint64_t complete_up_to() const { return complete_up_to_; }

  /** Bytes of the chunks that were opened so far. */
  [[nodiscard]] std::uint64_t position() const { return position_; }

 private:
  static constexpr std::size_t kAhead = 16;

  /** The chunks of a thread, from the one that is open on. */
  struct Stream {
    const std::vector<ChunkPlace>* places = nullptr;
    std::size_t next_place = 0;
    std::string buffer;
    std::optional<mem::recording::EventReader> reader;
    std::array<mem::recording::Event, kAhead> events;  // of the open chunk, that were read
    std::size_t event_count = 0;
    std::size_t next_event = 0;
    Next next;
    mem::recording::Moment begin;
    double nanoseconds_a_tick = 0;
    std::uint64_t at = 0;
    std::uint64_t highest_number = 0;  // of the events that were read
  };

  /** When a stream goes on, by its ticks. */
  struct Turn {
    std::uint64_t ticks;
    std::size_t stream;
    bool operator>(const Turn& other) const {
      return ticks != other.ticks ? ticks > other.ticks : stream > other.stream;
    }
  };

  static void note_time(Stream& stream);
  [[nodiscard]] bool open_next_chunk(Stream& stream);
  [[nodiscard]] bool read_event(Stream& stream);
  [[nodiscard]] bool read_ahead(Stream& stream);
  void take_turn();
  void note_damage(const Stream& stream, std::uint64_t at);

  const ChunkIndex& index_;
  const OnAhead on_ahead_;
  std::vector<Stream> streams_;
  std::priority_queue<Turn, std::vector<Turn>, std::greater<>> turns_;  // of the others
  Stream* current_ = nullptr;      // whose event was given out last
  std::uint64_t turn_ends_ = 0;    // at these ticks it is another stream's turn
  double nanoseconds_a_tick_ = 1;  // of the last chunk that has an end
  std::uint64_t position_ = 0;
  std::uint64_t complete_up_to_ = UINT64_MAX;
  Problem damaged_ = {"damaged chunks of events", 0, {}, {}};
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_EVENT_MERGE_H_

#ifndef QKMEM_TOOLS_INPUT_EVENT_MERGE_H_
#define QKMEM_TOOLS_INPUT_EVENT_MERGE_H_

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

/** An event, and what its chunk says of it. */
struct MergedEvent {
  mem::recording::Event event;
  std::uint64_t nanoseconds = 0;
  std::uint32_t thread = 0;
};

/** What is missing of the events so far. */
struct Damage {
  /** Chunks whose sum is wrong, or whose events make no sense from somewhere on. */
  Problem chunks = {"damaged chunks of events", 0, {}, {}};
  /** No event up to this number is missing because of them. */
  std::uint64_t complete_up_to = UINT64_MAX;
};

/** Some events one after the other. */
class MergedEvents {
 public:
  [[nodiscard]] std::span<const MergedEvent> events() const {
    return std::span(events_).first(count_);
  }

  /** Of what was read until the last of them. */
  [[nodiscard]] const Damage& damage() const { return damage_; }

  /** Bytes of the chunks that were opened so far. */
  [[nodiscard]] std::uint64_t position() const { return position_; }

 private:
  friend class EventMerge;

  static constexpr std::size_t kMost = 1024;

  std::vector<MergedEvent> events_ = std::vector<MergedEvent>(kMost);
  std::size_t count_ = 0;
  Damage damage_;
  std::uint64_t position_ = 0;
};

/** The events of all threads in the order of time. One chunk of each thread is open at a time. */
class EventMerge {
 public:
  explicit EventMerge(const ChunkIndex& index);

  /** Reads the next events. Returns false at the end. Throws InputError. */
  [[nodiscard]] bool read(MergedEvents& events);

 private:
  /** The chunks of a thread, from the one that is open on. */
  struct Stream {
    const std::vector<ChunkPlace>* places = nullptr;
    std::size_t next_place = 0;
    std::string buffer;
    std::optional<mem::recording::EventReader> reader;
    std::optional<mem::recording::Event> waiting;  // that was read, for the stream's next turn
    std::uint32_t thread = 0;
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

  [[nodiscard]] bool has_current();
  [[nodiscard]] bool open_next_chunk(Stream& stream);
  [[nodiscard]] bool read_event(Stream& stream, mem::recording::Event& event);
  [[nodiscard]] static std::uint64_t nanoseconds_of(const mem::recording::Event& event,
                                                    const Stream& stream);
  void wait(Stream& stream, const mem::recording::Event& event);
  void note_damage(const Stream& stream, std::uint64_t at);

  const ChunkIndex& index_;
  std::vector<Stream> streams_;
  std::priority_queue<Turn, std::vector<Turn>, std::greater<>> turns_;  // of the others
  Stream* current_ = nullptr;                                           // whose turn it is
  std::uint64_t turn_ends_ = 0;    // at these ticks it is another stream's turn
  double nanoseconds_a_tick_ = 1;  // of the last chunk that has an end
  std::uint64_t position_ = 0;
  Damage damage_;
  bool is_over_ = false;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_EVENT_MERGE_H_

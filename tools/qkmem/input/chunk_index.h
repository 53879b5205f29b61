#ifndef QKMEM_TOOLS_INPUT_CHUNK_INDEX_H_
#define QKMEM_TOOLS_INPUT_CHUNK_INDEX_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "formats/recording_reader.h"
#include "input/check.h"
#include "input/storage.h"

namespace qk::command {

/** Where a chunk is. */
struct ChunkPlace {
  std::uint64_t at = 0;  // in the recording, or behind its end in the tail
  std::uint32_t bytes = 0;
  std::uint32_t index = 0;
  bool has_events = false;
  std::uint64_t highest_number = 0;  // of its events
  mem::recording::Moment begin;
};

/** Finds the chunks of a recording and of its tail by their headers, of which none is trusted. */
class ChunkIndex {
 public:
  /** Sees a chunk that is no events, and where it is. */
  using OnRecords = std::function<void(const mem::recording::Chunk&, std::uint64_t at)>;

  ChunkIndex(const Storage& storage, std::string tail);

  /** Goes through the headers. */
  void read();

  /** Goes through the chunks that are no events, in order. */
  void read_records(const OnRecords& on_records);

  /** The chunk at a place, of which `buffer` takes the bytes; none if it is damaged. */
  [[nodiscard]] std::optional<mem::recording::Chunk> open(const ChunkPlace& place,
                                                          std::string& buffer) const;

  /** The chunks of each thread, in order; those of the process are of thread 0. */
  using Threads = std::map<std::uint32_t, std::vector<ChunkPlace>>;
  [[nodiscard]] const Threads& threads() const { return threads_; }

  /** Events that were dropped on purpose, and where the last of them were. */
  [[nodiscard]] std::uint64_t dropped_events() const { return dropped_events_; }
  [[nodiscard]] std::uint64_t dropped_up_to() const { return dropped_up_to_; }
  [[nodiscard]] bool has_tail() const { return has_tail_; }

  /** No event up to this number is missing, as far as headers tell. */
  [[nodiscard]] std::uint64_t complete_up_to() const { return complete_up_to_; }

  /** Bytes that belong to no chunk. */
  [[nodiscard]] const Problem& foreign() const { return foreign_; }
  /** Chunks that are missing between others. */
  [[nodiscard]] const Problem& missing() const { return missing_; }
  /** Chunks whose sum is wrong. */
  [[nodiscard]] const Problem& damaged() const { return damaged_; }

 private:
  void read_tail();
  void add(const mem::recording::ChunkHeader& header, std::uint64_t at);
  void sort();
  void look_for_missing(std::uint32_t thread, const std::vector<ChunkPlace>& places);
  [[nodiscard]] bool is_chunk_or_end(std::uint64_t at) const;
  [[nodiscard]] std::uint64_t next_magic(std::uint64_t from) const;
  void note_foreign(std::uint64_t from, std::uint64_t to);

  const Storage& storage_;
  const std::string tail_;
  Threads threads_;
  std::uint64_t dropped_events_ = 0;
  std::uint64_t dropped_up_to_ = 0;  // bytes
  bool has_tail_ = false;
  std::uint64_t foreign_at_ = 0;  // the last of them; 0 if there are none, or only at the begin
  std::uint64_t complete_up_to_ = UINT64_MAX;
  Problem foreign_ = {"bytes that belong to no chunk", 0, {}, {}};
  Problem missing_ = {"chunks that are missing", 0, {}, {}};
  Problem damaged_ = {"damaged chunks", 0, {}, {}};
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_CHUNK_INDEX_H_

#ifndef QKMEM_FORMATS_RECORDING_READER_H_
#define QKMEM_FORMATS_RECORDING_READER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "formats/recording.h"
#include "formats/recording_event.h"

/**
 * Reads recordings, from bytes of which none is trusted. Allocates nothing; results point into the
 * bytes.
 */
namespace qk::mem::recording {

struct Chunk {
  ChunkHeader header;
  std::string_view contents;
};

/** The header that some bytes begin with, if a reader can understand it. Its sum is not looked at. */
[[nodiscard]] std::optional<ChunkHeader> header_at(std::string_view bytes) noexcept;

/**
 * The chunk that some bytes begin with, if its sum is right. Of one that was dropped only the header
 * has to be there.
 */
[[nodiscard]] std::optional<Chunk> chunk_at(std::string_view bytes) noexcept;

/** Goes from chunk to chunk. */
class ChunkReader {
 public:
  explicit ChunkReader(std::string_view bytes) noexcept : bytes_(bytes) {}

  /** The next chunk whose sum is right, and whose version is known; none at the end. */
  [[nodiscard]] std::optional<Chunk> next() noexcept;

  /** Bytes so far that belong to no such chunk. */
  [[nodiscard]] std::uint64_t skipped() const noexcept { return skipped_; }

  /** Where the chunk that was read last begins. */
  [[nodiscard]] std::size_t position() const noexcept { return position_; }

 private:
  std::string_view bytes_;
  std::size_t next_ = 0;
  std::size_t position_ = 0;
  std::uint64_t skipped_ = 0;
};

/** Goes from slot to slot of a tail. */
class TailReader {
 public:
  explicit TailReader(std::string_view bytes) noexcept : bytes_(bytes) {}

  /** The chunk in the next slot that is in use. Its header has its bytes, and no end. */
  [[nodiscard]] std::optional<Chunk> next() noexcept;

 private:
  std::string_view bytes_;
};

/** Takes numbers and texts from the front of some bytes. After a failure all are 0 and empty. */
class FieldReader {
 public:
  explicit FieldReader(std::string_view bytes) noexcept : bytes_(bytes) {}

  [[nodiscard]] std::uint64_t number() noexcept {
    if (!bytes_.empty() && static_cast<std::uint8_t>(bytes_.front()) < 0x80) return byte();
    return longer_number();
  }
  [[nodiscard]] std::int64_t signed_number() noexcept { return from_zigzag(number()); }
  [[nodiscard]] std::string_view text() noexcept;
  [[nodiscard]] std::uint8_t byte() noexcept {
    if (bytes_.empty()) {
      fail();
      return 0;
    }
    const auto byte = static_cast<std::uint8_t>(bytes_.front());
    bytes_.remove_prefix(1);
    return byte;
  }

  [[nodiscard]] bool is_at_end() const noexcept { return bytes_.empty(); }
  [[nodiscard]] bool has_failed() const noexcept { return has_failed_; }
  void fail() noexcept {
    bytes_ = {};
    has_failed_ = true;
  }

 private:
  [[nodiscard]] std::uint64_t longer_number() noexcept;

  std::string_view bytes_;
  bool has_failed_ = false;
};

/** The events of a chunk, in the order of its thread. */
class EventReader {
 public:
  explicit EventReader(const Chunk& chunk) noexcept;

  /** The next event; none at the end, or at bytes that make no sense. */
  [[nodiscard]] std::optional<Event> next() noexcept;

  /** The same, without a copy. Returns false where next() returns none. */
  [[nodiscard]] bool read(Event& event) noexcept;

  /** Whether there were such bytes. */
  [[nodiscard]] bool has_failed() const noexcept { return fields_.has_failed(); }

 private:
  void read_number_and_time(std::uint8_t flags, Event& event) noexcept;
  void read_made(std::uint8_t flags, Event& event) noexcept;
  void read_which(std::uint8_t flags, Event& event) noexcept;
  void read_site(EventBlock& block) noexcept;

  FieldReader fields_;
  EventState state_;
};

/** A record of any other chunk. */
struct Record {
  RecordType type;
  FieldReader fields;
};

class RecordReader {
 public:
  explicit RecordReader(const Chunk& chunk) noexcept : fields_(chunk.contents) {}

  /** The next record; none at the end, or at bytes that make no sense. */
  [[nodiscard]] std::optional<Record> next() noexcept;

  [[nodiscard]] bool has_failed() const noexcept { return fields_.has_failed(); }

 private:
  FieldReader fields_;
};

}  // namespace qk::mem::recording

#endif  // QKMEM_FORMATS_RECORDING_READER_H_

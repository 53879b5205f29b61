#ifndef QKMEM_FORMATS_RECORDING_READER_H_
#define QKMEM_FORMATS_RECORDING_READER_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "formats/little_endian.h"
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
  explicit FieldReader(std::string_view bytes) noexcept
      : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

  [[nodiscard, gnu::always_inline]] std::uint64_t number() noexcept {
    if (at_ != end_ && static_cast<std::uint8_t>(*at_) < 0x80) return byte();
    return longer_number();
  }
  [[nodiscard, gnu::always_inline]] std::int64_t signed_number() noexcept {
    return from_zigzag(number());
  }
  [[nodiscard]] std::string_view text() noexcept;
  [[nodiscard, gnu::always_inline]] std::uint8_t byte() noexcept {
    if (is_at_end()) {
      fail();
      return 0;
    }
    return static_cast<std::uint8_t>(*at_++);
  }

  [[nodiscard]] bool is_at_end() const noexcept { return at_ == end_; }
  [[nodiscard]] bool has_failed() const noexcept { return has_failed_; }
  void fail() noexcept {
    at_ = end_;
    has_failed_ = true;
  }

 private:
  [[nodiscard]] std::size_t count() const noexcept { return static_cast<std::size_t>(end_ - at_); }
  [[nodiscard, gnu::always_inline]] std::uint64_t longer_number() noexcept;
  [[nodiscard]] std::uint64_t longest_number() noexcept;

  const char* at_;
  const char* end_;
  bool has_failed_ = false;
};

/** One of up to eight bytes, all of which are taken at once. */
inline std::uint64_t FieldReader::longer_number() noexcept {
  constexpr std::uint64_t kContinued = 0x8080808080808080;
  if (count() < sizeof(std::uint64_t)) return longest_number();
  std::uint64_t number = read_little<std::uint64_t>(at_);
  const std::uint64_t ends = ~number & kContinued;
  if (ends == 0) return longest_number();
  const int bits = std::countr_zero(ends);
  at_ += bits / 8 + 1;
  number &= ~kContinued & (~std::uint64_t{0} >> (63 - bits));
  // Seven bits of each byte become 14 of each two, 28 of each four, and 56.
  number = (number & 0x007F007F007F007F) | (number & 0x7F007F007F007F00) >> 1;
  number = (number & 0x00003FFF00003FFF) | (number & 0x3FFF00003FFF0000) >> 2;
  return (number & 0x000000000FFFFFFF) | (number & 0x0FFFFFFF00000000) >> 4;
}

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
  [[gnu::always_inline]] void read_number_and_time(std::uint8_t flags, Event& event) noexcept;
  [[gnu::always_inline]] void read_made(std::uint8_t flags, Event& event) noexcept;
  [[gnu::always_inline]] void read_which(std::uint8_t flags, Event& event) noexcept;
  [[gnu::always_inline]] void read_site(EventBlock& block) noexcept;

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

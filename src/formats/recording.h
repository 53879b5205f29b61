#ifndef QKMEM_FORMATS_RECORDING_H_
#define QKMEM_FORMATS_RECORDING_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/little_endian.h"
#include "formats/varint.h"

/** The format of recordings, see docs/recording.md: chunks, their headers, and numbers in them. */
namespace qk::mem::recording {

inline constexpr std::string_view kMagic = "qkmchunk";
inline constexpr std::uint8_t kVersion = 1;
inline constexpr std::size_t kChunkBytes = 65536;
inline constexpr std::size_t kHeaderBytes = 96;

enum class ChunkKind : std::uint8_t {
  kOpening = 1,
  kDefinitions = 2,
  kEvents = 3,
  kLevels = 4,
  kClosing = 5
};

/** Flags of a chunk. */
inline constexpr std::uint16_t kDropped = 1;
inline constexpr std::uint16_t kGoesOn = 2;  // with the levels of the chunk before

/** The same moment by two clocks. */
struct Moment {
  std::uint64_t ticks = 0;
  std::uint64_t nanoseconds = 0;  // since the start of the recording

  [[nodiscard]] bool operator==(const Moment&) const = default;
};

struct ChunkHeader {
  std::uint32_t bytes = 0;  // of the chunk with its header
  ChunkKind kind{};
  std::uint16_t flags = 0;
  std::uint32_t thread = 0;
  std::uint32_t index = 0;
  std::uint64_t events = 0;
  std::uint64_t first_number = 0;
  std::uint64_t highest_number = 0;
  Moment begin;
  Moment end;

  [[nodiscard]] bool is_dropped() const { return (flags & kDropped) != 0; }
  [[nodiscard]] bool operator==(const ChunkHeader&) const = default;
};

/** Positions in a header. */
inline constexpr std::size_t kSumAt = 8;
inline constexpr std::size_t kSummedFrom = 16;
inline constexpr std::size_t kIndexAt = 28;
inline constexpr std::size_t kFirstNumberAt = 40;
inline constexpr std::size_t kUsedLengthAt = 88;  // the bytes again, in a tail those so far

/** Writes a header without its sum. */
void encode_header(const ChunkHeader& header, char* to) noexcept;

/** The fields of a header, whatever they are. */
[[nodiscard]] ChunkHeader decode_header(const char* from) noexcept;

/** Writes the sum of a whole chunk into its header. */
void seal(char* chunk, std::size_t bytes) noexcept;

/** Types of records. */
enum class RecordType : std::uint8_t {
  kProcess = 1,
  kText = 2,
  kPool = 3,
  kSite = 4,
  kStack = 5,
  kModule = 6,
  kThread = 7,
  kLevel = 8,
  kPoolSums = 9,
  kProcessSums = 10,
  kFrame = 11,
  kSnapshot = 12
};

[[nodiscard]] constexpr std::uint64_t zigzag(std::int64_t number) noexcept {
  return static_cast<std::uint64_t>(number) << 1 ^ static_cast<std::uint64_t>(number >> 63);
}

[[nodiscard]] constexpr std::int64_t from_zigzag(std::uint64_t number) noexcept {
  return static_cast<std::int64_t>(number >> 1 ^ (0 - (number & 1)));
}

[[gnu::always_inline]] inline char* put_difference(char* to, std::uint64_t number,
                                                   std::uint64_t before) noexcept {
  return put_varint(to, zigzag(static_cast<std::int64_t>(number - before)));
}

}  // namespace qk::mem::recording

#endif  // QKMEM_FORMATS_RECORDING_H_

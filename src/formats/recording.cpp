#include "formats/recording.h"

#include <cstring>

#include "formats/xxh64.h"

namespace qk::mem::recording {

void encode_header(const ChunkHeader& header, char* to) noexcept {
  std::memset(to, 0, kHeaderBytes);
  std::memcpy(to, kMagic.data(), kMagic.size());
  write_little(to + 16, header.bytes);
  write_little(to + 20, header.kind);
  write_little(to + 21, kVersion);
  write_little(to + 22, header.flags);
  write_little(to + 24, header.thread);
  write_little(to + kIndexAt, header.index);
  write_little(to + 32, header.events);
  write_little(to + 40, header.first_number);
  write_little(to + 48, header.highest_number);
  write_little(to + 56, header.begin.ticks);
  write_little(to + 64, header.begin.nanoseconds);
  write_little(to + 72, header.end.ticks);
  write_little(to + 80, header.end.nanoseconds);
  write_little(to + kUsedLengthAt, header.bytes);
}

ChunkHeader decode_header(const char* from) noexcept {
  ChunkHeader header;
  header.bytes = read_little<std::uint32_t>(from + 16);
  header.kind = read_little<ChunkKind>(from + 20);
  header.flags = read_little<std::uint16_t>(from + 22);
  header.thread = read_little<std::uint32_t>(from + 24);
  header.index = read_little<std::uint32_t>(from + kIndexAt);
  header.events = read_little<std::uint64_t>(from + 32);
  header.first_number = read_little<std::uint64_t>(from + 40);
  header.highest_number = read_little<std::uint64_t>(from + 48);
  header.begin.ticks = read_little<std::uint64_t>(from + 56);
  header.begin.nanoseconds = read_little<std::uint64_t>(from + 64);
  header.end.ticks = read_little<std::uint64_t>(from + 72);
  header.end.nanoseconds = read_little<std::uint64_t>(from + 80);
  return header;
}

void seal(char* chunk, std::size_t bytes) noexcept {
  write_little(chunk + kSumAt, xxh64({chunk + kSummedFrom, bytes - kSummedFrom}));
}

}  // namespace qk::mem::recording

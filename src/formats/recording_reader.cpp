#include "formats/recording_reader.h"

#include <algorithm>

#include "formats/xxh64.h"

namespace qk::mem::recording {
namespace {

bool is_known(ChunkKind kind) { return kind >= ChunkKind::kOpening && kind <= ChunkKind::kClosing; }

/** Whether bytes begin as a chunk does that can be read. */
bool begins_chunk(std::string_view bytes) {
  return bytes.size() >= kHeaderBytes && bytes.starts_with(kMagic) &&
         static_cast<std::uint8_t>(bytes[21]) == kVersion &&
         is_known(read_little<ChunkKind>(bytes.data() + 20));
}

}  // namespace

std::optional<ChunkHeader> header_at(std::string_view bytes) noexcept {
  if (!begins_chunk(bytes)) return std::nullopt;
  const ChunkHeader header = decode_header(bytes.data());
  // Of many that were dropped, one header is left.
  const bool is_too_long = !header.is_dropped() && header.bytes > kChunkBytes;
  if (header.bytes < kHeaderBytes || is_too_long) return std::nullopt;
  return header;
}

std::optional<Chunk> chunk_at(std::string_view bytes) noexcept {
  const auto header = header_at(bytes);
  if (!header) return std::nullopt;
  const std::size_t summed = header->is_dropped() ? kHeaderBytes : header->bytes;
  if (summed > bytes.size()) return std::nullopt;
  const auto sum = read_little<std::uint64_t>(bytes.data() + kSumAt);
  if (sum != xxh64(bytes.substr(kSummedFrom, summed - kSummedFrom))) return std::nullopt;
  return Chunk{*header, bytes.substr(kHeaderBytes, summed - kHeaderBytes)};
}

std::optional<Chunk> ChunkReader::next() noexcept {
  while (next_ < bytes_.size()) {
    const std::size_t found = std::min(bytes_.find(kMagic, next_), bytes_.size());
    skipped_ += found - next_;
    next_ = found;
    if (found == bytes_.size()) break;
    const auto chunk = chunk_at(bytes_.substr(found));
    if (chunk && chunk->header.bytes <= bytes_.size() - found) {
      position_ = found;
      next_ += chunk->header.bytes;
      return chunk;
    }
    ++skipped_;
    ++next_;
  }
  return std::nullopt;
}

std::optional<Chunk> TailReader::next() noexcept {
  while (!bytes_.empty()) {
    const std::string_view slot = bytes_.substr(0, kChunkBytes);
    bytes_.remove_prefix(slot.size());
    if (!begins_chunk(slot)) continue;
    ChunkHeader header = decode_header(slot.data());
    header.bytes = read_little<std::uint32_t>(slot.data() + kUsedLengthAt);
    if (header.bytes < kHeaderBytes || header.bytes > slot.size()) continue;
    return Chunk{header, slot.substr(kHeaderBytes, header.bytes - kHeaderBytes)};
  }
  return std::nullopt;
}

std::uint64_t FieldReader::longest_number() noexcept {
  const std::size_t most = std::min(count(), kLongestVarint);
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < most; ++i) {
    const auto part = static_cast<std::uint8_t>(at_[i]);
    number |= std::uint64_t{part & 0x7FU} << 7 * i;
    if (part >= 0x80) continue;
    at_ += i + 1;
    return number;
  }
  fail();
  return 0;
}

std::string_view FieldReader::text() noexcept {
  const std::uint64_t length = number();
  if (length > count()) {
    fail();
    return {};
  }
  const std::string_view text(at_, length);
  at_ += length;
  return text;
}

EventReader::EventReader(const Chunk& chunk) noexcept
    : fields_(chunk.header.is_dropped() ? std::string_view() : chunk.contents) {
  state_.number = chunk.header.first_number - 1;
  state_.ticks = chunk.header.begin.ticks;
}

inline void EventReader::read_number_and_time(std::uint8_t flags, Event& event) noexcept {
  ++state_.number;
  if ((flags & kNumberFollows) != 0) {
    state_.number += static_cast<std::uint64_t>(fields_.signed_number());
  }
  state_.ticks += fields_.number();
  event.number = state_.number;
  event.ticks = state_.ticks;
}

inline void EventReader::read_site(EventBlock& block) noexcept {
  block.site = static_cast<std::uint32_t>(fields_.number());
  block.pool = block.site == 0 ? static_cast<std::uint32_t>(fields_.number()) : 0;
}

inline void EventReader::read_made(std::uint8_t flags, Event& event) noexcept {
  EventBlock& block = event.block;
  block.site = state_.site;
  if ((flags & kSiteFollows) != 0) read_site(block);
  const auto difference = static_cast<std::uint64_t>(fields_.signed_number());
  block.address = (flags & kInSixteens) != 0 ? 16 * (state_.address() / 16 + difference)
                                             : state_.address() + difference;
  block.bytes = (flags & kSizeFollows) != 0 ? fields_.number() : state_.bytes;
  event.replaces = (flags & kReplaces) != 0;
  event.made = event.number;
  state_.site = block.site;
  state_.not_address = ~block.address;
  state_.bytes = block.bytes;
}

inline void EventReader::read_which(std::uint8_t flags, Event& event) noexcept {
  event.made = event.number - fields_.number();
  event.is_unsure = (flags & kUnsure) != 0;
  if (!event.is_unsure) return;
  event.block.address = fields_.number();
  event.block.bytes = fields_.number();
  read_site(event.block);
}

std::optional<Event> EventReader::next() noexcept {
  Event event;
  if (!read(event)) return std::nullopt;
  return event;
}

bool EventReader::read(Event& event) noexcept {
  if (fields_.is_at_end()) return false;
  const std::uint8_t flags = fields_.byte();
  event = {};
  event.kind = static_cast<EventKind>(flags & kKindBits);
  if (event.kind > EventKind::kDeleted) {
    fields_.fail();
    return false;
  }
  read_number_and_time(flags, event);
  if (event.kind == EventKind::kMade) {
    read_made(flags, event);
  } else if (event.kind <= EventKind::kBack) {
    read_which(flags, event);
  } else {
    event.block.pool = static_cast<std::uint32_t>(fields_.number());
  }
  return !fields_.has_failed();
}

std::optional<Record> RecordReader::next() noexcept {
  if (fields_.is_at_end()) return std::nullopt;
  const std::uint64_t type = fields_.number();
  const std::string_view body = fields_.text();
  if (fields_.has_failed()) return std::nullopt;
  return Record{static_cast<RecordType>(std::min<std::uint64_t>(type, UINT8_MAX)),
                FieldReader(body)};
}

}  // namespace qk::mem::recording

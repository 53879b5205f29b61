#include "history/freed_blocks.h"

namespace qk::mem::history {
namespace {

std::uint64_t offset_in(const FreedBlock& block, const void* address) {
  return reinterpret_cast<std::uintptr_t>(address) -
         reinterpret_cast<std::uintptr_t>(block.address);
}

/** Reads an entry beside its writer. Nothing if it has no block, or changes meanwhile. */
std::optional<FreedBlock> read(const Entry& entry) {
  FreedBlock block = {};
  block.address = qk::acquire(entry.address);
  if (block.address == nullptr) return std::nullopt;
  block.release.path = qk::acquire(entry.path);
  block.allocation = qk::acquire(entry.allocation);
  const std::uint64_t packed = qk::acquire(entry.bytes_and_release);
  // A value that is newer than the address was published after the address had become null.
  if (qk::load(entry.address) != block.address) return std::nullopt;
  block.bytes = packed & kMostBytes;
  block.release.line = static_cast<int>((packed >> kByteBits) & ((1U << kLineBits) - 1));
  block.release.ending = static_cast<Ending>(packed >> (kByteBits + kLineBits));
  return block;
}

/** Whether a block was allocated later than another one, or is the same. The numbers wrap. */
bool is_no_older(const FreedBlock& block, const FreedBlock& other) {
  const auto number = static_cast<std::uint32_t>(block.allocation >> 32);
  const auto of_other = static_cast<std::uint32_t>(other.allocation >> 32);
  return static_cast<std::int32_t>(number - of_other) >= 0;
}

/** Whether a block that begins at an address, or else a later one, was found. */
bool is_better(const FreedBlock& block, const FreedBlock& other, const void* address) {
  const bool begins = block.address == address;
  if (begins != (other.address == address)) return begins;
  return is_no_older(block, other);
}

/** Bytes from a block to an address that is not in it. */
std::uint64_t distance_to(const FreedBlock& block, const void* address) {
  const std::uint64_t offset = offset_in(block, address);
  return static_cast<std::int64_t>(offset) < 0 ? 0 - offset : offset - block.bytes;
}

Chunk& chunk_of(const Writer& writer) {
  return *reinterpret_cast<Chunk*>(reinterpret_cast<char*>(writer.end) - sizeof(Chunk));
}

}  // namespace

void History::set_limit(std::uint64_t blocks) {
  // One chunk more, since the newest is mostly not full.
  most_chunks_ = blocks == 0 ? 0 : (blocks - 1) / kEntriesOfChunk + 2;
}

void History::open(Writer& writer, std::uint32_t number, qk::PageArena& arena) {
  close(writer);
  if (most_chunks_ == 0) return;
  Chunk* chunk = chunks_ < most_chunks_ ? take_new(arena) : take_oldest();
  if (chunk == nullptr) chunk = chunks_ < most_chunks_ ? take_oldest() : take_new(arena);
  if (chunk == nullptr) return;
  for (Entry& entry : chunk->entries) qk::store(entry.address, nullptr);
  qk::publish(chunk->writer, number);
  writer = {chunk->entries, chunk->entries + kEntriesOfChunk};
}

void History::close(Writer& writer) {
  if (writer.end == nullptr) return;
  Chunk& chunk = chunk_of(writer);
  writer = {};
  chunk.next_full = nullptr;
  (newest_full_ == nullptr ? oldest_full_ : newest_full_->next_full) = &chunk;
  newest_full_ = &chunk;
}

Chunk* History::take_new(qk::PageArena& arena) {
  auto* const chunk = static_cast<Chunk*>(arena.take(sizeof(Chunk)));
  if (chunk == nullptr) return nullptr;
  qk::store(chunks_, chunks_ + 1);
  chunk->next_of_all = all_;
  qk::publish(all_, chunk);
  return chunk;
}

Chunk* History::take_oldest() {
  Chunk* const chunk = oldest_full_;
  if (chunk == nullptr) return nullptr;
  oldest_full_ = chunk->next_full;
  if (oldest_full_ == nullptr) newest_full_ = nullptr;
  return chunk;
}

std::optional<FreedBlock> History::find(const void* address) const {
  std::optional<FreedBlock> newest;
  for_each_chunk([&](const Chunk& chunk) {
    for (const Entry& entry : chunk.entries) {
      auto block = read(entry);
      if (!block) continue;
      const std::uint64_t offset = offset_in(*block, address);
      if (offset != 0 && offset >= block->bytes) continue;
      if (newest && !is_better(*block, *newest, address)) continue;
      block->writer = static_cast<std::uint32_t>(qk::acquire(chunk.writer));
      newest = block;
    }
  });
  return newest;
}

std::optional<FreedBlock> History::nearest(const void* address, std::uint64_t limit) const {
  std::optional<FreedBlock> nearest;
  std::uint64_t least = limit;
  for_each_chunk([&](const Chunk& chunk) {
    for (const Entry& entry : chunk.entries) {
      auto block = read(entry);
      if (!block) continue;
      const std::uint64_t offset = offset_in(*block, address);
      if (offset == 0 || offset < block->bytes) continue;
      const std::uint64_t distance = distance_to(*block, address);
      if (nearest && distance == least && !is_no_older(*block, *nearest)) continue;
      if (distance > least || distance >= limit) continue;
      block->writer = static_cast<std::uint32_t>(qk::acquire(chunk.writer));
      nearest = block;
      least = distance;
    }
  });
  return nearest;
}

}  // namespace qk::mem::history

#ifndef QKMEM_HISTORY_FREED_BLOCKS_H_
#define QKMEM_HISTORY_FREED_BLOCKS_H_

#include <algorithm>
#include <cstdint>
#include <optional>

#include "support/page_arena.h"
#include "support/shared_variable.h"

/**
 * The blocks that were released last, with who released them: what is known of an address that is
 * no block any more. Each writer has a chunk of its own, so that writers share nothing on the road
 * of a call. A full chunk waits until there are as many as the history may have, and is then the
 * next one to be overwritten.
 */
namespace qk::mem::history {

/** What has become of a block. */
enum class Ending : std::uint8_t {
  kFreed,
  kResized,  // its address is no longer valid, even if the block stayed there
  kDeregistered,
  kWithHandle,  // cleared or deleted
};

/** A call that releases a block. */
struct Release {
  const char* path;  // of the caller's file, as it was passed; never copied
  int line;
  Ending ending;
};

struct FreedBlock {
  const void* address;
  std::uint64_t bytes;       // at most kMostBytes
  std::uint64_t allocation;  // its number in the upper half, below it what the writer knows of it
  Release release;
  std::uint32_t writer;
};

inline constexpr int kByteBits = 38;
inline constexpr int kLineBits = 23;
inline constexpr std::uint64_t kMostBytes = (std::uint64_t{1} << kByteBits) - 1;

/** A FreedBlock in half a line of the processor's cache. Any thread reads it at any time. */
struct alignas(32) Entry {
  const void* address;  // null while the rest changes
  const char* path;
  std::uint64_t allocation;
  std::uint64_t bytes_and_release;
};
static_assert(sizeof(Entry) == 32);

inline constexpr std::uint32_t kEntriesOfChunk = 255;

struct Chunk {
  Chunk* next_of_all;
  Chunk* next_full;
  std::uint64_t writer;
  Entry entries[kEntriesOfChunk];
};
static_assert(sizeof(Chunk) == 8192);

/** Where the blocks of one handle go. Constant initialized, or zero. For one thread at a time. */
struct Writer {
  Entry* next;
  Entry* end;

  /** Adds a block. False if the chunk is full, or there is none: History::open() provides one. */
  [[nodiscard, gnu::always_inline]] bool add(const void* address, std::uint64_t bytes,
                                             std::uint64_t allocation, const Release& release) {
    if (next == end) [[unlikely]]
      return false;
    Entry& entry = *next++;
    qk::store(entry.address, nullptr);
    qk::publish(entry.path, release.path);
    qk::publish(entry.allocation, allocation);
    qk::publish(entry.bytes_and_release, pack(bytes, release));
    qk::publish(entry.address, address);
    return true;
  }

 private:
  [[nodiscard]] static std::uint64_t pack(std::uint64_t bytes, const Release& release) {
    constexpr std::uint32_t kLineMask = (1U << kLineBits) - 1;
    const std::uint64_t line = static_cast<std::uint32_t>(release.line) & kLineMask;
    return std::min(bytes, kMostBytes) | line << kByteBits |
           static_cast<std::uint64_t>(release.ending) << (kByteBits + kLineBits);
  }
};

/** All chunks. Its calls need one thread at a time, but find() can run beside any of them. */
class History {
 public:
  constexpr History() noexcept = default;
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  /**
   * Sets how many blocks are kept at least, if so many were released. Each writer keeps some even
   * if it has not released any for long, unless the limit is 0: then none are kept from now on.
   */
  void set_limit(std::uint64_t blocks);

  /** Gives a writer an empty chunk for its full one. Without memory, the oldest full chunk. */
  void open(Writer& writer, std::uint32_t number, qk::PageArena& arena);

  /**
   * The block at an address that was released last, if it is still known. If none began there, the
   * last one in which the address was.
   */
  [[nodiscard]] std::optional<FreedBlock> find(const void* address) const;

  /**
   * Of the blocks that an address is less than `limit` bytes past, or in front of, the nearest; of
   * several the last one. Blocks that it is in don't count.
   */
  [[nodiscard]] std::optional<FreedBlock> nearest(const void* address, std::uint64_t limit) const;

  /** How many chunks there are, and each of them: memory that is full of the program's addresses. */
  [[nodiscard]] std::uint64_t chunks() const { return qk::load(chunks_); }
  template <class Visit>
  void for_each_chunk(Visit visit) const {
    for (const Chunk* chunk = qk::acquire(all_); chunk != nullptr; chunk = chunk->next_of_all) {
      visit(*chunk);
    }
  }

 private:
  [[nodiscard]] Chunk* take_new(qk::PageArena& arena);
  [[nodiscard]] Chunk* take_oldest();
  void close(Writer& writer);

  Chunk* all_ = nullptr;
  Chunk* oldest_full_ = nullptr;
  Chunk* newest_full_ = nullptr;
  std::uint64_t chunks_ = 0;
  std::uint64_t most_chunks_ = 0;
};

}  // namespace qk::mem::history

#endif  // QKMEM_HISTORY_FREED_BLOCKS_H_

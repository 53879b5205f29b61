#ifndef SUPPORT_GLIBC_HEAP_H_
#define SUPPORT_GLIBC_HEAP_H_

#include <cstdint>
#include <optional>

#include "support/mapped_array.h"
#include "support/modules.h"

/**
 * The memory of glibc's allocator, chunk by chunk, as far as it can be told from the memory alone.
 * Its layout has been the same since glibc 2.27; whatever doesn't look like it is not taken for it.
 * Nobody may allocate meanwhile.
 *
 *     heap   | [own data of its arena] | chunk | chunk | ... | top |
 *     chunk  | size of the one before | its size and flags | memory ...
 *
 * A chunk's last word is the first one of the next chunk while it is in use.
 */
namespace qk::glibc {

/** A heap: chunks without a gap. */
struct Heap {
  AddressRange chunks;
  AddressRange all;      // with what is in front of and behind them
  std::uintptr_t arena;  // 0 if it is not known
};

struct Chunk {
  std::uintptr_t address;
  std::uint64_t size;
  bool is_free;  // chunks in the allocator's caches are not

  /** What the program has of it, if it is in use. */
  [[nodiscard]] AddressRange memory() const { return {address + 16, address + size + 8}; }
  [[nodiscard]] std::uintptr_t next() const { return address + size; }
};

/** The chunk at an address inside of a heap. */
[[nodiscard]] Chunk chunk_at(const Heap& heap, std::uintptr_t address);

/**
 * The main heap in a mapping, which is the one that /proc calls "[heap]". A static program has other
 * data in front of it: its chunks then begin at the one with `known_memory`, which is the address of
 * memory that was allocated, or 0.
 */
[[nodiscard]] std::optional<Heap> main_heap_in(AddressRange mapping, std::uintptr_t known_memory);

/** The first heap of another arena from an address on, in a mapping. */
[[nodiscard]] std::optional<Heap> other_heap_in(AddressRange mapping, std::uintptr_t from);

/** The address of a heap's last chunk. */
[[nodiscard]] std::uintptr_t last_chunk_of(const Heap& heap);

/** The main arena in data of the C library, by the last chunk of its heap; 0 if it isn't there. */
[[nodiscard]] std::uintptr_t find_main_arena(std::uintptr_t last_chunk, AddressRange data);

/** What an arena keeps for itself. Its lists lead into the ends of chunks in use. */
[[nodiscard]] AddressRange own_data_of(std::uintptr_t arena);

/** How many chunks an arena has in its lists of small ones, which look as if they were in use. */
[[nodiscard]] std::size_t fast_chunks_of(std::uintptr_t arena);

/** Adds the addresses of these chunks, for which there must be room. */
void add_fast_chunks(std::uintptr_t arena, MappedArray<std::uintptr_t>& chunks);

/**
 * The word that marks chunks in a thread's cache, which look as if they were in use; 0 if there is
 * none. Allocates and frees a block to learn it, so it is not for signal handlers.
 */
[[nodiscard]] std::uint64_t learn_cache_key();

/** Whether a chunk bears such a mark. */
[[nodiscard]] bool is_cached(const Chunk& chunk, std::uint64_t key);

}  // namespace qk::glibc

#endif  // SUPPORT_GLIBC_HEAP_H_

#include "support/glibc_heap.h"

#include <algorithm>
#include <initializer_list>

#include "support/system_memory.h"

namespace qk::glibc {
namespace {

using Word [[gnu::may_alias]] = std::uint64_t;

constexpr std::uint64_t kPreviousInUse = 1;
constexpr std::uint64_t kMapped = 2;
constexpr std::uint64_t kFlags = 7;
constexpr std::uint64_t kAlignment = 16;
constexpr std::uint64_t kHeader = 16;
constexpr std::uint64_t kSmallest = 32;
constexpr std::uint64_t kPage = 4096;

/** Heaps of other arenas begin at multiples of this and are no longer. */
constexpr std::uint64_t kLongestHeap = std::uint64_t{64} << 20;

/** Of an arena: lists of small chunks, the last chunk of its heap, and bins, two words each. */
constexpr std::uint64_t kFastLists = 16;
constexpr int kFastListCount = 10;
constexpr std::uint64_t kTop = 96;
constexpr std::uint64_t kBins = 112;
constexpr int kBinCount = 127;
constexpr std::uint64_t kArenaBytes = 2200;

[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] std::uint64_t word_at(
    std::uintptr_t address) {
  return *reinterpret_cast<const Word*>(address);  // NOLINT(performance-no-int-to-ptr)
}

bool is_aligned(std::uint64_t number, std::uint64_t to) { return (number & (to - 1)) == 0; }

/** A chunk of no bytes for the program stands at the end of a heap that was given up. */
bool is_fence(std::uint64_t size) { return size == 0 || size == kHeader; }

/** Whether there are chunks, each where the one before ends, up to the end of the range. */
bool is_row_of_chunks(AddressRange range) {
  std::uintptr_t at = range.begin;
  std::uint64_t before = 0;
  while (at + kHeader <= range.end) {
    const std::uint64_t head = word_at(at + 8);
    const std::uint64_t size = head & ~kFlags;
    if ((head & kMapped) != 0 || !is_aligned(size, kAlignment) || size > range.end - at)
      return false;
    if ((head & kPreviousInUse) == 0 && (before == 0 || word_at(at) != before)) return false;
    if (is_fence(size)) {
      at += kHeader;
      before = kHeader;
    } else if (size < kSmallest) {
      return false;
    } else {
      at += size;
      before = size;
    }
  }
  return at == range.end;
}

/** The row that begins at one of the next addresses. */
std::optional<AddressRange> find_row(std::uintptr_t first, std::uintptr_t last,
                                     std::uintptr_t end) {
  for (std::uintptr_t begin = first; begin <= last; begin += kAlignment) {
    const bool may_begin = begin + kSmallest <= end &&
                           (word_at(begin + 8) & ~kFlags) >= kSmallest &&
                           (word_at(begin + 8) & kPreviousInUse) != 0;
    if (may_begin && is_row_of_chunks({begin, end})) return AddressRange{begin, end};
  }
  return std::nullopt;
}

/** A heap of another arena, whose first words lead to the arena and tell its size. */
std::optional<Heap> other_heap_at(std::uintptr_t begin, std::uintptr_t end_of_mapping) {
  const std::uintptr_t arena = word_at(begin);
  const std::uintptr_t previous = word_at(begin + 8);
  const std::uint64_t size = word_at(begin + 16);
  const std::uint64_t accessible = word_at(begin + 24);
  const std::uint64_t room = std::min(end_of_mapping - begin, kLongestHeap);
  if (size < kPage || accessible < size || accessible > room || !is_aligned(size, kPage) ||
      !is_aligned(previous, kLongestHeap) || !is_aligned(arena, kAlignment)) {
    return std::nullopt;
  }
  // The arena is in its first heap, in front of the chunks.
  const bool is_first = previous == 0;
  if (is_first && (arena < begin + 32 || arena > begin + 64)) return std::nullopt;
  if (!is_first && (arena & (kLongestHeap - 1)) > 64) return std::nullopt;
  const std::uintptr_t least =
      is_first ? (arena + kArenaBytes - 64) & ~(kAlignment - 1) : begin + 32;
  const auto chunks = find_row(least, is_first ? least + 256 : begin + 64, begin + size);
  if (!chunks) return std::nullopt;
  return Heap{*chunks, {begin, begin + accessible}, arena};
}

/** Empty bins lead to themselves, all others into heaps. */
bool is_arena(std::uintptr_t address) {
  int empty = 0;
  for (int i = 0; i < kBinCount; ++i) {
    const std::uintptr_t bin = address + kBins + static_cast<std::uintptr_t>(i) * 16;
    const std::uintptr_t next = word_at(bin);
    if (!is_aligned(next, 8) || next == 0) return false;
    if (next == bin - 16) ++empty;
  }
  return empty > kBinCount / 3;
}

/** Calls `visit` with each chunk of the lists. A list that leads nowhere ends there. */
template <class Visit>
void for_each_fast_chunk(std::uintptr_t arena, Visit visit) {
  constexpr int kMost = 1 << 24;  // of a list that leads to itself
  for (int i = 0; i < kFastListCount; ++i) {
    const std::uint64_t size = kSmallest + static_cast<std::uint64_t>(i) * kAlignment;
    std::uintptr_t chunk = word_at(arena + kFastLists + static_cast<std::uintptr_t>(i) * 8);
    for (int n = 0; chunk != 0 && is_aligned(chunk, kAlignment) && n < kMost; ++n) {
      if ((word_at(chunk + 8) & ~kFlags) != size) break;
      visit(chunk);
      const std::uintptr_t link = chunk + kHeader;
      chunk = word_at(link) ^ link >> 12;  // "safe linking"
    }
  }
}

}  // namespace

Chunk chunk_at(const Heap& heap, std::uintptr_t address) {
  const std::uint64_t size = word_at(address + 8) & ~kFlags;
  if (is_fence(size)) return {address, kHeader, true};
  const std::uintptr_t next = address + size;
  const bool is_last = next + kHeader > heap.chunks.end;
  return {address, size, is_last || (word_at(next + 8) & kPreviousInUse) == 0};
}

std::optional<Heap> main_heap_in(AddressRange mapping, std::uintptr_t known_memory) {
  for (const std::uintptr_t begin : {mapping.begin, known_memory - kHeader}) {
    if (!mapping.has(begin) || !is_aligned(begin, kAlignment)) continue;
    const auto chunks = find_row(begin, begin, mapping.end);
    if (chunks) return Heap{*chunks, *chunks, 0};
  }
  return std::nullopt;
}

std::optional<Heap> other_heap_in(AddressRange mapping, std::uintptr_t from) {
  std::uintptr_t begin = (from + kLongestHeap - 1) & ~(kLongestHeap - 1);
  for (; begin < mapping.end; begin += kLongestHeap) {
    const auto heap = other_heap_at(begin, mapping.end);
    if (heap) return heap;
  }
  return std::nullopt;
}

std::uintptr_t last_chunk_of(const Heap& heap) {
  std::uintptr_t last = heap.chunks.begin;
  for (std::uintptr_t at = last; at < heap.chunks.end; at = chunk_at(heap, at).next()) last = at;
  return last;
}

std::uintptr_t find_main_arena(std::uintptr_t last_chunk, AddressRange data) {
  if (data.end - data.begin < kArenaBytes) return 0;
  const std::uintptr_t last = data.end - kArenaBytes;
  for (std::uintptr_t arena = (data.begin + 7) & ~std::uintptr_t{7}; arena <= last; arena += 8) {
    if (word_at(arena + kTop) == last_chunk && is_arena(arena)) return arena;
  }
  return 0;
}

AddressRange own_data_of(std::uintptr_t arena) { return {arena, arena + kArenaBytes}; }

std::size_t fast_chunks_of(std::uintptr_t arena) {
  std::size_t count = 0;
  for_each_fast_chunk(arena, [&count](std::uintptr_t /*chunk*/) { ++count; });
  return count;
}

void add_fast_chunks(std::uintptr_t arena, MappedArray<std::uintptr_t>& chunks) {
  for_each_fast_chunk(
      arena, [&chunks](std::uintptr_t chunk) { static_cast<void>(chunks.push_back(chunk)); });
}

std::uint64_t learn_cache_key() {
  // Two sizes that programs seldom use, so that the cache takes both.
  std::uint64_t keys[2] = {};
  for (int i = 0; i < 2; ++i) {
    void* const memory = own_memory::allocate(i == 0 ? 904 : 968);
    if (memory == nullptr) return 0;
    auto address = reinterpret_cast<std::uintptr_t>(memory);
    asm volatile("" : "+r"(address));  // what is freed may not be read, as far as compilers know
    own_memory::release(memory);
    keys[i] = word_at(address + 8);
  }
  return keys[0] == keys[1] ? keys[0] : 0;
}

bool is_cached(const Chunk& chunk, std::uint64_t key) {
  return key != 0 && word_at(chunk.address + kHeader + 8) == key;
}

}  // namespace qk::glibc

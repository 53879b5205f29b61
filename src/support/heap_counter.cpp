#include "support/heap_counter.h"

#include <cstring>

#include "support/modules.h"

namespace qk {
namespace {

/** The end of glibc's record of a heap, its `malloc_state`, on 64-bit systems since 2.27. */
struct EndOfRecord {
  std::uintptr_t next;  // all records form a ring
  std::uintptr_t next_free;
  std::size_t threads;
  std::size_t bytes;
  std::size_t most_bytes;
};
constexpr std::size_t kBeforeEnd = 2160;

EndOfRecord end_of(std::uintptr_t record) {
  EndOfRecord end;
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  std::memcpy(&end, reinterpret_cast<const void*>(record + kBeforeEnd), sizeof end);
  return end;
}

/** Nothing else points to a place so far before itself and has these numbers behind it. */
bool is_only_heap(std::uintptr_t record, long bytes) {
  const EndOfRecord end = end_of(record);
  return end.next == record && end.next_free == 0 && end.threads == 1 &&
         static_cast<int>(end.bytes) == bytes && end.bytes <= end.most_bytes;
}

}  // namespace

HeapCounter HeapCounter::find(std::uintptr_t statistics, long bytes) noexcept {
  HeapCounter counter;
  const Module module = module_with(statistics);
  if (bytes == 0 || module.is_program) return counter;
  constexpr std::size_t kSize = kBeforeEnd + sizeof(EndOfRecord);
  for (std::uintptr_t at = module.data.begin; at + kSize <= module.data.end; at += alignof(void*)) {
    if (is_only_heap(at, bytes)) counter.main_arena_ = at;
  }
  return counter;
}

std::optional<std::size_t> HeapCounter::read() const noexcept {
  if (main_arena_ == 0) return std::nullopt;
  const EndOfRecord end = end_of(main_arena_);
  if (end.next != main_arena_) return std::nullopt;
  return end.bytes;
}

}  // namespace qk

#include "tests/lives/journal.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include "core/handle_array.h"
#include "core/registry.h"
#include "table/slot.h"

namespace lives {
namespace {

std::FILE* journal = nullptr;

/** A number that stands for what was added, in this order. */
class Digest {
 public:
  template <class T>
  void add(T value) {
    const auto number = static_cast<std::uint64_t>(value);
    hash_ = (hash_ ^ number) * 1099511628211U;
    hash_ ^= hash_ >> 29;
  }
  [[nodiscard]] std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 14695981039346656037U;
};

std::uint64_t digest_of_slots(const qk_mem_ptr_array& array) {
  Digest digest;
  for (std::int32_t i = 0; array.ptrs != nullptr && i < array.capacity; ++i) {
    const qk_mem_ptr& slot = array.ptrs[i];
    digest.add(reinterpret_cast<std::uintptr_t>(slot.address));
    if (slot.address == nullptr) continue;
    digest.add(reinterpret_cast<std::uintptr_t>(slot.tracker));
    digest.add(slot.count);
    digest.add(slot.size);
    digest.add(slot.seq);
    digest.add(slot.line);
    digest.add(slot.kind);
    digest.add(slot.baselined);
  }
  return digest.value();
}

std::uint64_t digest_of_blocks(const qk_mem_handle& handle) {
  Digest digest;
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    digest.add(reinterpret_cast<std::uintptr_t>(block));
    digest.add(block->capacity);
    digest.add(block->low_mark);
    digest.add(block->high_mark);
  }
  return digest.value();
}

void note_handle(const qk_mem_handle& handle) {
  note("  handle %d generation %u event %u: %zu in %u, management %zu in %u, blocks %u %zu %016zx",
       handle.id, handle.generation, handle.seq, std::size_t{handle.amount}, handle.qty,
       std::size_t{handle.overhead_amount}, handle.overhead_qty, handle.num_blocks,
       std::size_t{handle.block_used}, std::size_t{digest_of_blocks(handle)});
  note("    before %zu %u %zu %u, growth %d", std::size_t{handle.base_amount}, handle.base_qty,
       std::size_t{handle.base_overhead_amount}, handle.base_overhead_qty, handle.has_growth);
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    if (array.capacity == 0) continue;
    note("    %p: %d of %d, %016" PRIx64, static_cast<void*>(array.ptrs), array.used,
         array.capacity, digest_of_slots(array));
  }
}

}  // namespace

void begin_journal(const char* name) {
  if (journal != nullptr) std::fclose(journal);
  journal = std::fopen(name, "w");
  std::setvbuf(journal, nullptr, _IOLBF, BUFSIZ);
}

void note(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(journal, format, arguments);
  va_end(arguments);
  std::fputc('\n', journal);
}

void note_inventory() {
  note("  events %u, handles %d", Qk_mem_seq, Qk_mem_num_handles);
  const qk::mem::RegistryLock lock;
  for (std::int32_t i = 0; i < Qk_mem_avail_handles; ++i) {
    const qk_mem_handle* handle = Qk_mem_handles == nullptr ? nullptr : Qk_mem_handles[i];
    if (handle != nullptr) note_handle(*handle);
  }
}

}  // namespace lives

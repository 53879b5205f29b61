#include "tests/kit/library_memory.h"

#include <algorithm>
#include <cstddef>
#include <functional>

#include "core/handle_array.h"
#include "core/registry.h"
#include "table/pointer_array.h"
#include "tests/kit/failing_runs.h"

namespace kit {
namespace {

constexpr std::size_t kMost = std::size_t{1} << 16;

const void* listed[kMost];  // sorted
std::size_t count = 0;

void list(const void* memory) {
  if (memory == nullptr) return;
  require(count < kMost, "more library memory than the list can hold");
  listed[count++] = memory;
}

void list_records(const qk_mem_ptr_array& array) {
  if (array.ptrs == nullptr) return;
  list(array.ptrs);
  list(qk::mem::index_of(array));
  for (const qk_mem_ptr* record = array.ptrs + 1; record < array.ptrs + array.capacity; ++record) {
    list(record->address);
    list(record->tracker);
  }
}

void list_handle(const qk_mem_handle& handle) {
  list(&handle);
  list(handle.mtx);
  list(handle.block_index);
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    list(block);
  }
  for (const qk_mem_ptr_array& array : handle.ptrs) list_records(array);
}

}  // namespace

LibraryMemory::LibraryMemory() {
  count = 0;
  list(Qk_mem_handles);
  const qk::mem::RegistryLock lock;
  qk::mem::for_each_handle(list_handle);
  std::sort(listed, listed + count, std::less<>());
}

bool LibraryMemory::has(const void* memory) const {
  return std::binary_search(listed, listed + count, memory, std::less<>());
}

}  // namespace kit

#include "tests/kit/standalone_handle.h"

#include <cstdlib>

#include "table/pointer_array.h"

namespace kit {
namespace {

std::string sum(std::uint32_t qty, std::uint64_t amount) {
  return std::to_string(qty) + " for " + std::to_string(amount);
}

}  // namespace

void* at(std::uintptr_t address) { return reinterpret_cast<void*>(address); }

StandaloneHandle::StandaloneHandle(int id) {
  record.id = id;
  record.tag = &tag;
}

StandaloneHandle::~StandaloneHandle() {
  for (const qk_mem_ptr_array& array : record.ptrs) {
    if (array.ptrs != nullptr) qk::mem::SlotIndex::destroy(qk::mem::index_of(array));
    std::free(array.ptrs);
  }
}

std::string StandaloneHandle::sums() const {
  const qk_mem_tag_share& share = record.tag_share;
  return "data " + sum(record.qty, record.amount) + ", overhead " +
         sum(record.overhead_qty, record.overhead_amount) + ", tag " +
         sum(tag.qty + share.qty, tag.amount + share.amount);
}

std::string StandaloneHandle::array(int index) const {
  const qk_mem_ptr_array& array = record.ptrs[index];
  return std::to_string(array.capacity) + " slots, " + std::to_string(array.used) + " used" +
         (array.ptrs == nullptr ? ", no memory" : "");
}

}  // namespace kit

#include "tests/kit/array_check.h"

#include <map>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "table/pointer_array.h"

namespace kit {
namespace {

std::string slot(const char* what, int index) { return what + std::to_string(index); }

std::string check_own_record(const qk_mem_ptr_array& array) {
  const qk_mem_ptr& own = array.ptrs[0];
  if (own.address != array.ptrs) return "slot 0 has another address than the array";
  if (own.kind != qk::mem::kind::kPointerArray) return "slot 0 has another kind than P";
  if (own.count != static_cast<std::uint64_t>(array.capacity)) return "slot 0 has another count";
  return "";
}

std::string check_free_slots(const qk_mem_ptr_array& array) {
  int used = 0;
  for (int i = 0; i < array.capacity; ++i) {
    if (array.ptrs[i].address != nullptr) {
      ++used;
      if (i == array.spare && i != 0) return slot("the spare slot is occupied: ", i);
    } else if (i < array.free_from && i != array.spare) {
      return slot("a slot below free_from is free: ", i);
    }
  }
  return used == array.used ? "" : slot("occupied slots that are not counted in used: ", used);
}

std::string check_index(const qk_mem_ptr_array& array) {
  const qk::mem::SlotIndex* index = qk::mem::index_of(array);
  if (index == nullptr) return "";
  std::map<const void*, int> lowest;
  for (int i = 0; i < array.capacity; ++i) {
    const void* address = array.ptrs[i].address;
    if (index->is_used(i) != (address != nullptr)) return slot("the index is wrong on slot ", i);
    if (i != 0 && address != nullptr) lowest.try_emplace(address, i);
  }
  for (const auto& [address, first] : lowest) {
    if (index->lowest_holding(array.ptrs, address) != first) {
      return slot("the index doesn't find the lowest slot of an address: ", first);
    }
  }
  return "";
}

}  // namespace

std::string check_array(const qk_mem_ptr_array& array) {
  if (array.ptrs == nullptr) return "";
  for (const auto check : {check_own_record, check_free_slots, check_index}) {
    if (std::string wrong = check(array); !wrong.empty()) return wrong;
  }
  return "";
}

std::string check_all_arrays() {
  const qk::mem::RegistryLock lock;
  std::string wrong;
  qk::mem::for_each_handle([&](const qk_mem_handle& handle) {
    for (const qk_mem_ptr_array& array : handle.ptrs) {
      if (wrong.empty()) wrong = check_array(array);
    }
  });
  return wrong;
}

}  // namespace kit

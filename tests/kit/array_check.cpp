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

std::string check_used(const qk_mem_ptr_array& array) {
  int used = 0;
  for (int i = 0; i < array.capacity; ++i) used += array.ptrs[i].address != nullptr ? 1 : 0;
  return used == array.used ? "" : slot("occupied slots that are not counted in used: ", used);
}

/** The bits and prints of a small array. Others have no such bits. */
std::string check_prints(const qk_mem_ptr_array& array) {
  if (!qk::mem::is_small(array)) {
    return array.free_slots == 0 ? "" : "an array that is not small has bits of free slots";
  }
  std::uint32_t free_slots = 0;
  for (int i = 0; i < array.capacity; ++i) {
    const void* address = array.ptrs[i].address;
    if (address == nullptr) {
      free_slots |= std::uint32_t{1} << i;
    } else if (address != &qk::mem::set_aside_mark &&
               (array.prints[i / 8] >> i % 8 * 8) % 256 != qk::mem::print_of(address)) {
      return slot("the address has another print in slot ", i);
    }
  }
  return free_slots == array.free_slots ? "" : "the bits of free slots are wrong";
}

/** What a larger array notes as long as it has no index. */
std::string check_notes(const qk_mem_ptr_array& array) {
  if (array.capacity <= qk::mem::kSmallArray || array.larger.index != nullptr) return "";
  for (int i = 1; i < array.larger.free_from; ++i) {
    const bool is_free = array.ptrs[i].address == nullptr;
    if (is_free && i != array.larger.spare) return slot("a slot below free_from is free: ", i);
    if (!is_free && i == array.larger.spare) return slot("the spare slot is occupied: ", i);
  }
  return "";
}

std::string check_index(const qk_mem_ptr_array& array) {
  qk::mem::SlotIndex* const index = qk::mem::index_of(array);
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
  for (const auto check : {check_own_record, check_used, check_prints, check_notes, check_index}) {
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

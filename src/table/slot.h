#ifndef QKMEM_TABLE_SLOT_H_
#define QKMEM_TABLE_SLOT_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "core/records.h"
#include "core/registry.h"
#include "support/shared_variable.h"

/**
 * Access to the slots of pointer arrays. Slots are written under the handle's lock, but reports
 * read them without it. They may see a half-written record, but never one that leads to freed
 * memory: callers promise that file names live as long as the program, and reports don't follow
 * trackers.
 */
namespace qk::mem {

[[nodiscard]] inline void* address_in(const qk_mem_ptr& slot) { return qk::acquire(slot.address); }

/**
 * Its address stands in slots whose record is set aside during a realloc: such a slot is taken, and
 * has the rest of the record, but no address finds it and no report shows it.
 */
inline constinit char set_aside_mark = 0;

/** The address of the record in a slot; null if the slot is free or its record is set aside. */
[[nodiscard]] inline void* recorded_address(const qk_mem_ptr& slot) {
  void* const address = address_in(slot);
  return address == &set_aside_mark ? nullptr : address;
}

[[nodiscard]] inline qk_mem_ptr read_slot(const qk_mem_ptr& slot) {
  qk_mem_ptr record;
  record.address = address_in(slot);
  record.tracker = qk::load(slot.tracker);
  record.file = qk::load(slot.file);
  record.count = qk::load(slot.count);
  record.size = qk::load(slot.size);
  record.seq = qk::load(slot.seq);
  record.line = qk::load(slot.line);
  record.kind = qk::load(slot.kind);
  record.baselined = qk::load(slot.baselined);
  return record;
}

/** The record in a slot, if there is one. */
[[nodiscard]] inline std::optional<qk_mem_ptr> record_of(const qk_mem_ptr& slot) {
  void* const address = recorded_address(slot);
  if (address == nullptr) return std::nullopt;
  qk_mem_ptr record = read_slot(slot);
  record.address = address;  // it may be set aside by now
  return record;
}

/** The last four fields of a record as they are in memory. */
[[nodiscard]] constexpr std::uint64_t last_word_of(const qk_mem_ptr& record) {
  static_assert(offsetof(qk_mem_ptr, seq) == 40 && offsetof(qk_mem_ptr, line) == 44 &&
                offsetof(qk_mem_ptr, kind) == 46 && offsetof(qk_mem_ptr, baselined) == 47);
  if constexpr (std::endian::native == std::endian::little) {
    const std::uint32_t high =
        record.line | std::uint32_t{record.kind} << 16 | std::uint32_t{record.baselined} << 24;
    return std::uint64_t{high} << 32 | record.seq;
  } else {
    return std::uint64_t{record.seq} << 32 | std::uint32_t{record.line} << 16 |
           std::uint32_t{record.kind} << 8 | record.baselined;
  }
}

/** Eight bytes of a slot. */
[[nodiscard]] inline void* word_of(qk_mem_ptr& slot, std::size_t offset) {
  return reinterpret_cast<char*>(&slot) + offset;
}

/** Each store costs, so small fields are written together. */
inline void write_slot(qk_mem_ptr& slot, const qk_mem_ptr& record) {
  qk::store(slot.tracker, record.tracker);
  qk::store(slot.file, record.file);
  qk::store(slot.count, record.count);
  qk::store(slot.size, record.size);
  qk::store_word(word_of(slot, offsetof(qk_mem_ptr, seq)), last_word_of(record));
  qk::publish(slot.address, record.address);
}

inline void clear_slot(qk_mem_ptr& slot) {
#pragma GCC unroll 6
  for (std::size_t offset = 0; offset < sizeof slot; offset += sizeof(std::uint64_t)) {
    qk::store_word(word_of(slot, offset), 0);
  }
}

/**
 * Adds marks to the live record of a slot. A baseline does so without the handle's lock, so marks
 * of others are never overwritten.
 */
inline void add_marks(qk_mem_ptr& slot, std::uint8_t marks) { qk::set_bits(slot.baselined, marks); }

/** The number of slots that can be walked: 0 after a growth that failed. */
[[nodiscard]] inline std::int32_t slots_of(const qk_mem_ptr_array& array) {
  return qk::acquire(array.ptrs) == nullptr ? 0 : qk::load(array.capacity);
}

/**
 * Calls `visit` with a copy of every live record of a handle, the arrays' own included, in the
 * order of arrays and slots. Needs the registry's lock: only under it are arrays replaced.
 */
template <class Visit>
void for_each_record(const qk_mem_handle& handle, Visit visit) {
  assert_registry_held();
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t i = 0; i < slots; ++i) {
      if (const auto record = record_of(array.ptrs[i])) visit(*record);
    }
  }
}

}  // namespace qk::mem

#endif  // QKMEM_TABLE_SLOT_H_

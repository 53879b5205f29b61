#include "lost/collected.h"

#include <algorithm>

#include "check/quarantine.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "profile/pool.h"
#include "table/blocks.h"
#include "table/slot.h"

namespace qk::mem::lost {
namespace {

using profile::Mark;
using profile::Unrecorded;

/** Whether its pieces are blocks of the search, so that what is between them can be left out. */
bool records_pieces(const qk_mem_handle& handle) {
  return is_blockmgmt(handle) && handle.track != 0;
}

/** Pieces that the profile follows for their guards are no blocks: they go with their handle. */
std::span<const Unrecorded> unrecorded_of(const qk_mem_handle& handle) {
  if (!profile::is_watched(handle) || is_blockmgmt(handle)) return {};
  return profile::pool_of(handle).unrecorded.entries();
}

std::size_t blocks_needed() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  std::size_t count = 0;
  for_each_handle([&count](const qk_mem_handle& handle) {
    for (const qk_mem_ptr_array& array : handle.ptrs) {
      count += static_cast<std::size_t>(slots_of(array));
    }
    count += unrecorded_of(handle).size();
  });
  return count;
}

std::size_t own_needed() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  constexpr std::size_t kForOthers = 2;  // who find more
  std::size_t count = kForOthers + profile::freed_blocks.chunks();
  count += check::count_in_quarantine() + 1;
  for_each_handle([&count](const qk_mem_handle& handle) {
    count += kArraysPerHandle + 1;
    if (records_pieces(handle)) count += handle.num_blocks;
  });
  return count;
}

qk::AddressRange range_of(const void* address, std::uint64_t bytes) {
  const auto begin = reinterpret_cast<std::uintptr_t>(address);
  return {begin, begin + std::max<std::uint64_t>(bytes, 1)};
}

/** The mark of a slot; none if the profile has none, or doesn't know the handle. */
Mark mark_at(const qk_mem_handle& handle, const qk_mem_ptr_array& array, std::int32_t slot) {
  if (!profile::is_watched(handle)) return {};
  profile::Pool& pool = profile::pool_of(handle);
  const Mark* const mark = profile::marks_of(handle, pool, array).of(slot);
  return mark != nullptr ? *mark : Mark{profile::kNotRecordedSite, 0};
}

}  // namespace

Collected::Collected(const Findings& findings) noexcept
    : blocks(blocks_needed()), own(own_needed()) {
  assert_registry_held();
  for_each_handle([&](const qk_mem_handle& handle) {
    add_records(findings, handle);
    add_unrecorded(findings, handle);
    add_own(handle);
  });
  profile::freed_blocks.for_each_chunk(
      [this](const history::Chunk& chunk) { add_own(&chunk, sizeof chunk); });
  add_own(check::list_of_quarantine());
  // What the program has left in blocks that it has released is no reference. Others can come
  // meanwhile: for what there is no room, that is not known.
  check::for_each_in_quarantine(
      [](void* ranges, qk::AddressRange range) {
        static_cast<void>(static_cast<Ranges*>(ranges)->push_back(range));
      },
      &own);
}

void Collected::add_records(const Findings& findings, const qk_mem_handle& handle) {
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t slot = 1; slot < slots; ++slot) {
      const auto record = record_of(array.ptrs[slot]);
      if (!record || !belongs_to_program(record->kind)) continue;
      const Mark mark = mark_at(handle, array, slot);
      const std::uint64_t bytes = bytes_of(*record);
      add_block({range_of(record->address, bytes), bytes, findings.index_of(handle, mark),
                 mark.event, mark.is_sampled()});
    }
  }
}

void Collected::add_unrecorded(const Findings& findings, const qk_mem_handle& handle) {
  for (const Unrecorded& memory : unrecorded_of(handle)) {
    if (memory.address == nullptr) continue;
    add_block({range_of(memory.address, memory.bytes), memory.bytes,
               findings.index_of(handle, memory.mark), memory.mark.event,
               memory.mark.is_sampled()});
  }
}

void Collected::add_own(const qk_mem_handle& handle) {
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    add_own(array.ptrs, static_cast<std::size_t>(slots_of(array)) * kSlotBytes);
  }
  const auto unrecorded = unrecorded_of(handle);
  add_own(unrecorded.data(), unrecorded.size_bytes());
  if (!records_pieces(handle)) return;
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    add_own(block, bytes_of_block(block->capacity));
  }
}

void Collected::add_own(const void* begin, std::size_t bytes) {
  if (bytes != 0) add_own(range_of(begin, bytes));
}

}  // namespace qk::mem::lost

#include "profile/report/known_address.h"

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "support/text.h"
#include "table/slot.h"

namespace qk::mem::profile {
namespace {

LiveBlock block_on(const qk_mem_handle& handle, std::uint64_t offset, std::uint64_t bytes,
                   const AllocationPlace& place) {
  LiveBlock block = {offset, bytes, handle.id, {}, place};
  qk::copy_text(block.tag, sizeof block.tag, handle.tag->name);
  return block;
}

/** Keeps the best block that was found so far. */
void consider(std::optional<LiveBlock>& best, const LiveBlock& block) {
  if (block.offset != 0 && block.offset >= block.bytes) return;
  if (!best || block.offset < best->offset) best = block;
}

void look_at_records(const qk_mem_handle& handle, const void* address,
                     std::optional<LiveBlock>& best) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for_each_record(handle, [&](const qk_mem_ptr& record) {
    if (!belongs_to_program(record.kind)) return;
    const std::uint64_t offset = offset_in(record.address, address);
    if (offset != 0 && offset >= bytes_of(record)) return;
    consider(best, block_on(handle, offset, bytes_of(record), {record.file, record.line}));
  });
}

void look_at_unrecorded(qk_mem_handle& handle, const void* address,
                        std::optional<LiveBlock>& best) {
  if (handle.track != 0 || !is_watched(handle)) return;
  const HandleLock lock(handle);
  Pool& pool = pool_of(handle);
  const auto memory = pool.unrecorded.containing(address);
  if (!memory) return;
  consider(best, block_on(handle, offset_in(memory->address, address), memory->bytes,
                          place_of(pool, memory->mark)));
}

}  // namespace

std::optional<LiveBlock> find_live_block(const void* address) {
  std::optional<LiveBlock> best;
  const RegistryLock lock;
  for_each_handle([&](qk_mem_handle& handle) {
    assert_registry_held();
    look_at_records(handle, address, best);
    look_at_unrecorded(handle, address, best);
  });
  return best;
}

AllocationPlace place_of(Pool& pool, Mark mark) {
  if (mark.site_number() == kNoSite) return {};
  const Site& site = site_in(pool, mark.site_number());
  return {site.key.file, site.key.line, site.number == kFromBeforeSite};
}

void put_handle(qk::Line& line, std::int32_t hid, const char* tag) {
  line.put("handle ").number(static_cast<std::uint64_t>(hid));
  if (*tag != '\0') line.put(' ').put(tag);
}

void put_allocation(qk::Line& line, const char* verb, const AllocationPlace& place) {
  if (place.is_from_before) {
    line.put(", ").put(verb).put(" before the profile was on");
  } else if (place.file != nullptr) {
    line.put(", ").put(verb).put(" at ").put(place.file).put(':').number(place.line);
  }
}

}  // namespace qk::mem::profile

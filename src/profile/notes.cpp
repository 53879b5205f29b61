#include "profile/notes.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "profile/booking.h"
#include "profile/due.h"
#include "profile/labels.h"
#include "profile/site_table.h"
#include "profile/stacks.h"
#include "support/mtx_lock.h"

namespace qk::mem::profile {
namespace {

std::uint64_t bytes_in(SlotPlace place) {
  const qk_mem_ptr& slot = place.array.ptrs[place.index];
  return qk::load(slot.count) * qk::load(slot.size);
}

bool belongs_to_program(SlotPlace place) {
  return qk::mem::belongs_to_program(qk::load(place.array.ptrs[place.index].kind));
}

Marks& marks_of(const qk_mem_handle& handle, Pool& pool, SlotPlace place) {
  return pool.marks[&place.array - handle.ptrs];
}

/** The mark of a record. Without one, memory of the program was booked as not recorded. */
Mark mark_of(const qk_mem_handle& handle, Pool& pool, SlotPlace place) {
  const Mark* const mark = marks_of(handle, pool, place).of(place.index);
  if (mark != nullptr) return *mark;
  return {belongs_to_program(place) ? kNotRecordedSite : kNoSite, 0};
}

/** Calls `book` with the pool, the mark and the bytes of a record whose block was booked. */
template <class Book>
[[gnu::always_inline]] inline void with_booked_block(qk_mem_handle& handle, SlotPlace place,
                                                     Book book) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  const Mark mark = mark_of(handle, pool, place);
  if (mark.site_number() != kNoSite && !is_frozen()) book(pool, mark, bytes_in(place));
}

/** Calls `visit` with all sites of a pool. */
template <class Visit>
void for_each_site(Pool& pool, Visit visit) {
  visit(pool.from_before);
  visit(pool.not_recorded);
  for (std::uint32_t number = qk::acquire(pool.first_site); number != kNoSite;
       number = sites.at(number).next_of_pool) {
    visit(sites.at(number));
  }
}

/** What is live counts as made at this event. */
void reset(Site& site, std::uint64_t now) {
  const std::uint64_t blocks = qk::load(site.live_blocks);
  qk::store(site.made_bytes, qk::load(site.live_bytes));
  qk::store(site.made_blocks, blocks);
  qk::store(site.highest_bytes, qk::load(site.live_bytes));
  qk::store(site.freed_soon, 0);
  qk::store(site.lives, 0 - blocks * now);
}

[[gnu::noinline]] std::uint32_t find_or_add_site(Pool& pool, const SiteKey& key) {
  const std::uint32_t present = sites.find(key);
  if (present != kNoSite) return present;
  const qk::MtxLock lock(growth_lock);
  return sites.find_or_add(key, pool.first_site);
}

}  // namespace

std::uint32_t site_of(const qk_mem_handle& handle, const char* file, int line) {
  if (!is_on()) {
    look_at_clock();
    return kNoSite;
  }
  if (qk::load(is_due) != 0) [[unlikely]]
    do_due_work();
  const std::uint32_t pool_number = qk::acquire(handle.profile_pool);
  Pool& pool = pools.at(pool_number);
  const SiteKey key = {file, static_cast<std::uint32_t>(line), pool_number, stack_of_caller(),
                       label_of_thread()};
  const std::uint32_t recent = qk::acquire(pool.recent_site);
  if (recent != kNoSite && sites.at(recent).key == key) [[likely]]
    return recent;
  const std::uint32_t site = find_or_add_site(pool, key);
  if (site != kNotRecordedSite) qk::publish(pool.recent_site, site);
  return site;
}

void note_made(qk_mem_handle& handle, SlotPlace place, std::uint32_t site) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  Mark* const mark = marks_of(handle, pool, place).provide(place.index);
  // Without a mark, the release will be taken for that of memory that was not recorded.
  if (mark == nullptr) site = belongs_to_program(place) ? kNotRecordedSite : kNoSite;
  if (site == kNoSite || is_frozen()) {
    if (mark != nullptr) *mark = {};
    return;
  }
  const Booking booking = Booking::of_next_event(pool);
  if (mark != nullptr) *mark = booking.mark_for(site);
  booking.made(site_in(pool, site), bytes_in(place));
}

void note_gone(qk_mem_handle& handle, SlotPlace place) {
  with_booked_block(handle, place, [](Pool& pool, Mark mark, std::uint64_t bytes) {
    Booking::of_next_event(pool).gone(mark, bytes);
  });
}

void note_set_aside(qk_mem_handle& handle, SlotPlace place) {
  with_booked_block(handle, place, [](Pool& pool, Mark mark, std::uint64_t bytes) {
    Booking::of_coming_event(pool).gone(mark, bytes);
  });
}

void note_back(qk_mem_handle& handle, SlotPlace place) {
  with_booked_block(handle, place, [](Pool& pool, Mark mark, std::uint64_t bytes) {
    Booking::of_coming_event(pool).back(mark, bytes);
  });
}

void note_from_before(qk_mem_handle& handle, SlotPlace place) {
  assert_held(handle);
  const Mark* const mark = marks_of(handle, pool_of(handle), place).provide(place.index);
  if (mark != nullptr && mark->site_number() != kNoSite) return;
  note_made(handle, place, belongs_to_program(place) ? kFromBeforeSite : kNoSite);
}

void note_unrecorded(qk_mem_handle& handle, const void* address, std::uint64_t bytes,
                     std::uint32_t site) {
  assert_held(handle);
  if (site == kNoSite || is_frozen()) return;
  Pool& pool = pool_of(handle);
  const Booking booking = Booking::of_next_event(pool);
  if (pool.unrecorded.add({address, bytes, booking.mark_for(site)})) {
    booking.made(site_in(pool, site), bytes);
  } else {
    // Its release could not be told from that of other memory.
    booking.made_and_lost(pool.not_recorded, bytes);
  }
}

void note_unrecorded_gone(qk_mem_handle& handle, const void* address) {
  assert_held(handle);
  if (is_frozen()) return;
  Pool& pool = pool_of(handle);
  const auto memory = pool.unrecorded.take(address);
  if (memory) Booking::of_next_event(pool).gone(memory->mark, memory->bytes);
}

std::optional<Unrecorded> note_unrecorded_set_aside(qk_mem_handle& handle, const void* address) {
  assert_held(handle);
  if (is_frozen()) return std::nullopt;
  Pool& pool = pool_of(handle);
  const auto memory = pool.unrecorded.take(address);
  if (memory) Booking::of_coming_event(pool).gone(memory->mark, memory->bytes);
  return memory;
}

void note_unrecorded_back(qk_mem_handle& handle, const Unrecorded& memory) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  // It takes the entry that it has left, so there is room.
  if (is_frozen() || !pool.unrecorded.add(memory)) return;
  Booking::of_coming_event(pool).back(memory.mark, memory.bytes);
}

void note_piece(qk_mem_handle& handle, std::uint64_t bytes, std::uint32_t site) {
  assert_held(handle);
  if (site == kNoSite || is_frozen()) return;
  Pool& pool = pool_of(handle);
  Booking::of_next_event(pool).made(site_in(pool, site), bytes);
}

void note_all_gone(qk_mem_handle& handle) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  if (is_frozen() || qk::load(pool.live_blocks) == 0) return;
  const Booking booking = Booking::of_next_event(pool);
  for_each_site(pool, [&booking](Site& site) { booking.all_gone(site); });
}

void note_reset(qk_mem_handle& handle) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  qk::store(pool.made_bytes, qk::load(pool.level.live));
  qk::store(pool.made_blocks, qk::load(pool.live_blocks));
  reset_level(pool.level);
  const std::uint64_t now = events_so_far();
  for_each_site(pool, [now](Site& site) { reset(site, now); });
}

void note_deleted(qk_mem_handle& handle) {
  assert_held(handle);
  if (is_frozen()) return;
  note_all_gone(handle);
  Pool& pool = pool_of(handle);
  for (Marks& marks : pool.marks) marks.release();
  qk::store(pool.is_alive, 0);
}

}  // namespace qk::mem::profile

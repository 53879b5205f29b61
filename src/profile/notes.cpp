#include "profile/notes.h"

#include "core/kinds.h"
#include "core/registry.h"
#include "profile/booking.h"
#include "profile/due.h"
#include "profile/labels.h"
#include "profile/recorded.h"
#include "profile/site_table.h"
#include "profile/stacks.h"
#include "support/mtx_lock.h"
#include "support/unwinder.h"

namespace qk::mem::profile {
namespace {

std::uint64_t bytes_in(SlotPlace place) { return block_in(place).bytes; }

bool belongs_to_program(SlotPlace place) {
  return qk::mem::belongs_to_program(qk::load(place.array.ptrs[place.index].kind));
}

bool is_registered_kind(unsigned char kind) {
  return kind == kind::kExternal || is_language_made(kind);
}

/** The mark of a record. Without one, memory of the program was booked as not recorded. */
Mark mark_of(const qk_mem_handle& handle, Pool& pool, SlotPlace place) {
  const Mark* const mark = marks_of(handle, pool, place.array).of(place.index);
  if (mark != nullptr) return *mark;
  return {belongs_to_program(place) ? kNotRecordedSite : kNoSite, 0};
}

/** What a block stands for. */
Amount amount_of(Mark mark, std::uint64_t bytes) {
  if (mark.is_sampled()) return sampled_amount(bytes, mark.event);
  return {bytes, 1};
}

Amount amount_of(const Unrecorded& memory) { return amount_of(memory.mark, memory.bytes); }

/** What marks a new block. What was live before the profile was on is in no sample. */
Mark mark_for(const Booking& booking, const Site& site) {
  Mark mark = booking.mark_for(site);
  if (only_marks()) {
    mark.site |= Mark::kUnbooked;
    return mark;
  }
  if (is_sampling() && site.number != kFromBeforeSite) mark.site |= Mark::kSampled;
  return mark;
}

/** Calls `book` with the pool, the mark and the amount of a record whose block was booked. */
template <class Book>
[[gnu::always_inline]] inline void with_booked_block(qk_mem_handle& handle, SlotPlace place,
                                                     Book book) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  const Mark mark = mark_of(handle, pool, place);
  if (mark.site_number() != kNoSite && !is_frozen())
    book(pool, mark, amount_of(mark, bytes_in(place)));
}

/** A piece that another thread has cleared meanwhile is not expected to keep its guard. */
std::uint32_t flags_of(const Origin& origin, const Pool& pool) {
  return origin.era == pool.era ? origin.flags : origin.flags & ~Mark::kGuarded;
}

void remember(Pool& pool, SlotPlace place, Mark mark, const history::Release& release) {
  remember(pool, qk::load(place.array.ptrs[place.index].address), bytes_in(place), mark, release);
}

/** Tells a recording of a block, if there is one, and books it. */
void tell_and_book(const Booking& booking, Pool& pool, Site& site, RecordedBlock block,
                   Amount amount) {
  if (is_recorded()) record_made(pool, site, booking.event(), block);
  booking.made(site, block.bytes, amount);
}

using recording::EventKind;

/** Tells it of a block that was booked. */
void tell(EventKind kind, const Booking& booking, const Pool& pool, Mark mark,
          RecordedBlock block) {
  if (is_recorded() && mark.is_booked()) record_gone(kind, pool, mark, booking.event(), block);
}

void tell(EventKind kind, const Booking& booking, const Pool& pool, const Unrecorded& memory) {
  tell(kind, booking, pool, memory.mark, {memory.address, memory.bytes});
}

/** Takes memory from the table, and remembers it if it is said who releases it. */
std::optional<Unrecorded> take_unrecorded(Pool& pool, const void* address,
                                          const history::Release& release) {
  auto memory = pool.unrecorded.take(address);
  if (memory && release.path != nullptr && !is_frozen()) {
    remember(pool, address, memory->bytes, memory->mark, release);
  }
  return memory;
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

[[gnu::noinline]] Site* add_site(Pool& pool, const SiteKey& key) {
  const qk::MtxLock lock(growth_lock);
  Site* const site = sites.find_or_add(key, pool.first_site);
  return site != nullptr ? site : &pool.not_recorded;
}

Site* find_or_add_site(Pool& pool, const SiteKey& key) {
  Site* const site = sites.find(key);
  if (site == nullptr) return add_site(pool, key);
  qk::publish(pool.recent_site, site);
  return site;
}

/**
 * The number of the calling thread's stack. Inline: each call between the program's and this costs
 * the walk a frame.
 */
[[gnu::always_inline]] inline std::uint32_t stack_of_caller(const void* entry) {
  const int most = frames_to_capture(entry);
  if (most == 0) return 0;
  std::uintptr_t frames[qk::kMostFrames];
  return number_of_stack({frames, qk::capture_stack(frames, most, entry)});
}

}  // namespace

Site* site_of(const qk_mem_handle& handle, const char* file, int line, std::uint64_t bytes,
              const void* entry) {
  std::uint32_t stack = 0;
  if (needs_attention()) [[unlikely]] {
    if (!gives_marks()) {
      look_at_clock();
      return nullptr;
    }
    if (needs_attention_for(attention::kClockIsDue)) read_due_clock();
    if (needs_attention_for(attention::kWorkIsDue)) do_due_work();
    if (is_sampling() && !draw(bytes)) return nullptr;
    stack = stack_of_caller(entry);
  }
  Pool& pool = pool_of(handle);
  const SiteKey key = {file, static_cast<std::uint32_t>(line), pool.number, stack,
                       label_of_thread()};
  Site* const recent = qk::acquire(pool.recent_site);
  return recent->key == key ? recent : find_or_add_site(pool, key);
}

Site* site_of_place(Pool& pool, const char* file, int line) {
  return find_or_add_site(pool, {file, static_cast<std::uint32_t>(line), pool.number, 0, 0});
}

void note_made(qk_mem_handle& handle, SlotPlace place, const Origin& origin) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  Mark* const mark = marks_of(handle, pool, place.array).provide(place.index);
  Site* site = origin.site;
  // Without a mark, the release will be taken for that of memory that was not recorded.
  if (mark == nullptr) site = belongs_to_program(place) ? &pool.not_recorded : nullptr;
  const std::uint32_t flags = flags_of(origin, pool);
  if (site == nullptr || is_frozen()) {
    if (mark != nullptr) *mark = {flags, 0};
    return;
  }
  const Booking booking = Booking::of_next_event(pool);
  const std::uint64_t bytes = bytes_in(place);
  // Without marks all memory is booked, since what is not in the sample could not be told.
  if (mark == nullptr) {
    return tell_and_book(booking, pool, *site, block_in(place), {bytes, 1});
  }
  *mark = mark_for(booking, *site);
  mark->site |= flags;
  if (is_registered_kind(qk::load(place.array.ptrs[place.index].kind))) {
    mark->site |= Mark::kRegistered;
  }
  if (mark->is_booked()) {
    tell_and_book(booking, pool, *site, block_in(place), amount_of(*mark, bytes));
  }
}

bool has_room_for_marks(qk_mem_handle& handle, const qk_mem_ptr_array& array) {
  assert_held(handle);
  return marks_of(handle, pool_of(handle), array).provide(array.capacity - 1) != nullptr;
}

Mark mark_in(const qk_mem_handle& handle, SlotPlace place) {
  const Mark* const mark = marks_of(handle, pool_of(handle), place.array).of(place.index);
  return mark != nullptr ? *mark : Mark{kNoSite, 0};
}

void note_gone(qk_mem_handle& handle, SlotPlace place, const history::Release& release) {
  with_booked_block(handle, place, [&](Pool& pool, Mark mark, Amount amount) {
    remember(pool, place, mark, release);
    const Booking booking = Booking::of_next_event(pool);
    tell(EventKind::kGone, booking, pool, mark, block_in(place));
    booking.gone(mark, amount);
  });
}

void note_set_aside(qk_mem_handle& handle, SlotPlace place, const history::Release& release) {
  with_booked_block(handle, place, [&](Pool& pool, Mark mark, Amount amount) {
    remember(pool, place, mark, release);
    const Booking booking = Booking::of_coming_event(pool);
    tell(EventKind::kSetAside, booking, pool, mark, block_in(place));
    booking.gone(mark, amount);
  });
}

void note_back(qk_mem_handle& handle, SlotPlace place) {
  with_booked_block(handle, place, [&](Pool& pool, Mark mark, Amount amount) {
    const Booking booking = Booking::of_coming_event(pool);
    tell(EventKind::kBack, booking, pool, mark, block_in(place));
    booking.back(mark, amount);
  });
}

void note_from_before(qk_mem_handle& handle, SlotPlace place) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  Mark* const mark = marks_of(handle, pool, place.array).provide(place.index);
  if (mark == nullptr || mark->site_number() == kNoSite) {
    const std::uint32_t flags = mark == nullptr ? 0 : mark->flags();
    note_made(handle, place, {belongs_to_program(place) ? &pool.from_before : nullptr, flags});
  } else if (!mark->is_booked() && is_on()) {
    mark->site &= ~Mark::kUnbooked;
    const std::uint64_t bytes = bytes_in(place);
    const Booking booking = Booking::of_next_event(pool);
    Site& site = site_in(pool, mark->site_number());
    if (is_recorded()) {
      // The block keeps the number of its allocation.
      const std::uint32_t age = static_cast<std::uint32_t>(booking.event()) - mark->event;
      record_made(pool, site, booking.event() - age, block_in(place));
    }
    booking.made(site, bytes, {bytes, 1});
  }
}

bool note_unrecorded(qk_mem_handle& handle, const void* address, std::uint64_t bytes,
                     const Origin& origin) {
  assert_held(handle);
  if (origin.site == nullptr || is_frozen()) return false;
  Pool& pool = pool_of(handle);
  const Booking booking = Booking::of_next_event(pool);
  Mark mark = mark_for(booking, *origin.site);
  mark.site |= origin.flags;
  const Amount amount = amount_of(mark, bytes);
  const bool is_added = pool.unrecorded.add({address, bytes, mark});
  if (!mark.is_booked()) return is_added;
  if (is_added) {
    tell_and_book(booking, pool, *origin.site, {address, bytes}, amount);
  } else {
    // Its release could not be told from that of other memory.
    if (is_recorded()) record_made_and_lost(pool, booking.event(), {address, bytes});
    booking.made_and_lost(pool.not_recorded, bytes, amount);
  }
  return is_added;
}

std::optional<Unrecorded> note_unrecorded_gone(qk_mem_handle& handle, const void* address,
                                               const history::Release& release) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  const auto memory = take_unrecorded(pool, address, release);
  if (memory && !is_frozen()) {
    const Booking booking = Booking::of_next_event(pool);
    tell(EventKind::kGone, booking, pool, *memory);
    booking.gone(memory->mark, amount_of(*memory));
  }
  return memory;
}

std::optional<Unrecorded> note_unrecorded_set_aside(qk_mem_handle& handle, const void* address,
                                                    const history::Release& release) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  const auto memory = take_unrecorded(pool, address, release);
  if (memory && !is_frozen()) {
    const Booking booking = Booking::of_coming_event(pool);
    tell(EventKind::kSetAside, booking, pool, *memory);
    booking.gone(memory->mark, amount_of(*memory));
  }
  return memory;
}

void note_unrecorded_back(qk_mem_handle& handle, const Unrecorded& memory) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  // It takes the entry that it has left, so there is room.
  if (is_frozen() || !pool.unrecorded.add(memory)) return;
  const Booking booking = Booking::of_coming_event(pool);
  tell(EventKind::kBack, booking, pool, memory);
  booking.back(memory.mark, amount_of(memory));
}

void note_piece(qk_mem_handle& handle, const void* address, std::uint64_t bytes,
                const Origin& origin) {
  assert_held(handle);
  if (origin.site == nullptr || is_frozen()) return;
  Pool& pool = pool_of(handle);
  const Booking booking = Booking::of_next_event(pool);
  Mark mark = mark_for(booking, *origin.site);
  if (mark.is_booked()) {
    tell_and_book(booking, pool, *origin.site, {address, bytes}, amount_of(mark, bytes));
  }
  mark.site |= flags_of(origin, pool);
  // Without room for it its guard is never looked at.
  if (mark.is_guarded()) static_cast<void>(pool.unrecorded.add({address, bytes, mark}));
}

void note_all_gone(qk_mem_handle& handle) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  if (is_blockmgmt(handle)) pool.unrecorded.clear();
  if (is_frozen()) return;
  std::optional<Booking> booking;  // an event only if there is memory
  for_each_site(pool, [&](Site& site) {
    if (qk::load(site.live_blocks) == 0) return;
    if (!booking) {
      booking.emplace(Booking::of_next_event(pool));
      if (is_recorded()) record_of_pool(EventKind::kCleared, pool, booking->event());
    }
    booking->all_gone(site);
  });
}

void note_blocks_empty(qk_mem_handle& handle) {
  assert_held(handle);
  if (!is_watched(handle)) return;
  Pool& pool = pool_of(handle);
  ++pool.era;
  pool.unrecorded.clear();
  for (Marks& marks : pool.marks) marks.clear_flags(Mark::kGuarded);
}

void note_reset(qk_mem_handle& handle) {
  assert_held(handle);
  Pool& pool = pool_of(handle);
  reset_level(pool.level);
  const std::uint64_t now = events_so_far();
  for_each_site(pool, [now](Site& site) { reset(site, now); });
}

void note_deleted(qk_mem_handle& handle) {
  assert_held(handle);
  if (is_frozen()) return;
  note_all_gone(handle);
  Pool& pool = pool_of(handle);
  if (is_recorded()) {
    record_of_pool(EventKind::kDeleted, pool, coming_event(pool.numbers, qk::is_single_threaded()));
  }
  for (Marks& marks : pool.marks) marks.release();
  qk::store(pool.is_alive, 0);
}

}  // namespace qk::mem::profile

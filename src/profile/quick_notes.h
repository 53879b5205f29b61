#ifndef QKMEM_PROFILE_QUICK_NOTES_H_
#define QKMEM_PROFILE_QUICK_NOTES_H_

#include "profile/booking.h"
#include "profile/notes.h"

/**
 * The usual cases of profile/notes.h without a call, for the fast path. Whatever is unusual, they
 * leave to the function that does it in all cases.
 */
namespace qk::mem::profile {

/** As site_of(). Null if anything needs attention, before anything has changed. */
[[nodiscard, gnu::always_inline]] inline Site* quick_site_of(const qk_mem_handle& handle,
                                                             const char* file, int line) {
  if (needs_attention()) [[unlikely]]
    return nullptr;
  Pool& pool = pool_of(handle);
  Site* const recent = qk::acquire(pool.recent_site);
  const SiteKey& key = recent->key;
  // Most calls come from where the one before came from.
  if (key.file == file && key.line == static_cast<std::uint32_t>(line) &&
      (key.stack | key.label) == 0) [[likely]] {
    return recent;
  }
  return site_of_place(pool, file, line);
}

/**
 * As note_made(), with the bytes of the record. False if the case is not usual, and nothing has
 * changed. `single_threaded` is qk::is_single_threaded(), preferably as a constant.
 */
[[nodiscard, gnu::always_inline]] inline bool quick_note_made(qk_mem_handle& handle,
                                                              SlotPlace place, Site* site,
                                                              std::uint64_t bytes,
                                                              bool single_threaded) {
  Pool& pool = pool_of(handle);
  Marks& marks = marks_of(handle, pool, place.array);
  if (!marks.has(place.index)) [[unlikely]]
    return false;
  // An allocation has a site only if the profile is on, so that it need not be asked for here.
  if (site == nullptr || !qk::is_equal(unusual_made, 0) ||
      !Booking::is_usual(pool, static_cast<std::int64_t>(bytes), single_threaded)) [[unlikely]] {
    return false;
  }
  // Were it const, GCC would keep it in memory.
  Booking booking = Booking::of_usual_event(pool, single_threaded);
  marks.at(place.index) = booking.mark_for(*site);
  booking.made(*site, bytes, {bytes, 1});
  return true;
}

/**
 * The same while blocks are checked, whether or not they are booked. Only blocks that aren't booked
 * go this short way.
 */
[[nodiscard, gnu::always_inline]] inline bool quick_note_checked(qk_mem_handle& handle,
                                                                 SlotPlace place,
                                                                 const Origin& origin,
                                                                 bool single_threaded) {
  Pool& pool = pool_of(handle);
  Marks& marks = marks_of(handle, pool, place.array);
  if (!marks.has(place.index) || origin.site == nullptr || !only_marks()) [[unlikely]]
    return false;
  const std::uint64_t event = next_event(pool.numbers, single_threaded);
  marks.set(place.index, {origin.site->number | Mark::kUnbooked | origin.flags,
                          static_cast<std::uint32_t>(event)});
  return true;
}

/** Notes the release of such a block. False, and nothing has changed, if that takes more. */
[[nodiscard, gnu::always_inline]] inline bool quick_note_checked_gone(
    qk_mem_handle& handle, const void* address, Mark mark, std::uint64_t bytes,
    const history::Release& release, std::uint64_t& event, bool single_threaded) {
  if (!only_marks()) [[unlikely]]
    return false;
  Pool& pool = pool_of(handle);
  remember(pool, address, bytes, mark, release);
  event = next_event(pool.numbers, single_threaded);
  return true;
}

/** Whether not every call may release the record in a slot, as far as there is a mark. */
[[nodiscard, gnu::always_inline]] inline bool needs_care(const qk_mem_handle& handle,
                                                         SlotPlace place) {
  const Marks& marks = marks_of(handle, pool_of(handle), place.array);
  return marks.has(place.index) && marks.at(place.index).needs_care();
}

/** As note_gone(), likewise. */
[[nodiscard, gnu::always_inline]] inline bool quick_note_gone(qk_mem_handle& handle,
                                                              SlotPlace place, std::uint64_t bytes,
                                                              const history::Release& release,
                                                              bool single_threaded) {
  Pool& pool = pool_of(handle);
  Marks& marks = marks_of(handle, pool, place.array);
  if (!marks.has(place.index)) [[unlikely]]
    return false;
  if (!qk::is_equal(unusual_gone, 0)) [[unlikely]]
    return note_gone_unusually(handle, place, release);
  const Mark mark = marks.at(place.index);
  if (mark.site == kNoSite) return true;
  if (!mark.is_plain() ||
      !Booking::is_usual(pool, -static_cast<std::int64_t>(bytes), single_threaded)) [[unlikely]] {
    return false;
  }
  remember(pool, qk::load(place.array.ptrs[place.index].address), bytes, mark, release);
  Booking::of_usual_event(pool, single_threaded).gone(mark, {bytes, 1});
  return true;
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_QUICK_NOTES_H_

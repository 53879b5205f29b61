#ifndef QKMEM_ALLOC_FAST_PATH_H_
#define QKMEM_ALLOC_FAST_PATH_H_

#include <cstdint>
#include <type_traits>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "core/roads.h"
#include "profile/quick_notes.h"
#include "support/known_paths.h"
#include "table/pointer_table.h"
#include "table/record_steps.h"

/**
 * The fast path of malloc, calloc, realloc and free: nothing observes the routine and the handle
 * needs no special care. It takes the steps of the slow path and leaves the same records and sums,
 * without a call context, a copy of the record, or a formatted line. On anything unusual it
 * falls back to the slow path.
 */
namespace qk::mem {

/** Takes the place of a lock on handles without a mutex. */
struct NoLock {
  explicit NoLock(const qk_mem_handle& /*handle*/) {}
};

/** A handle's lock if the calling thread is its favourite. It needs no call, so few registers. */
class FavouriteLock {
 public:
  explicit FavouriteLock(const qk_mem_handle& handle)
      : mtx_(handle.mtx), entry_(mtx_ == nullptr ? qk::Mtx::Entry() : mtx_->enter_as_favourite()) {}
  FavouriteLock(const FavouriteLock&) = delete;
  FavouriteLock& operator=(const FavouriteLock&) = delete;
  ~FavouriteLock() {
    if (is_held()) [[likely]]
      mtx_->leave(entry_);
  }

  [[nodiscard]] bool is_held() const { return entry_.is_inside(); }

 private:
  qk::Mtx* const mtx_;
  const qk::Mtx::Entry entry_;
};

/** Whether a lock is held as far as its handle needs one. */
[[nodiscard]] inline bool is_held(const NoLock& /*lock*/) { return true; }
[[nodiscard]] inline bool is_held(const HandleLock& /*lock*/) { return true; }
[[nodiscard]] inline bool is_held(const FavouriteLock& lock) { return lock.is_held(); }

/** How the usual case is locked, if all other cases are locked by `Lock`. */
template <class Lock>
using QuickLock = std::conditional_t<std::is_same_v<Lock, NoLock>, NoLock, FavouriteLock>;

/** What the records of a handle need: its lock, notes for the profile, and guards. */
template <class LockType, bool kIsWatched, bool kIsChecked = false>
struct Needs {
  using Lock = LockType;
  static constexpr bool kWatched = kIsWatched;
  static constexpr bool kChecked = kIsChecked;
};

/**
 * The site of an allocation of so many bytes, if its handle is watched. `file` is the name alone. In
 * functions that the program's call leads to directly.
 */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline profile::Site* site_for(const qk_mem_handle& handle,
                                                                 const char* file, int line,
                                                                 std::uint64_t bytes) {
  if constexpr (Handling::kWatched) {
    return profile::site_of(handle, file, line, bytes, __builtin_return_address(0));
  }
  return nullptr;
}

/** Sets the same in the usual case. In others it returns false, and site_for() is to be asked. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool find_site_fast(const qk_mem_handle& handle,
                                                             const char* file, int line,
                                                             profile::Site*& site) {
  if constexpr (!Handling::kWatched) return true;
  site = profile::quick_site_of(handle, file, line);
  return site != nullptr;
}

/**
 * Calls `f` with the handle of a number and what it needs, if the calls of a routine on it record
 * and do nothing else. Otherwise calls `slow`.
 */
template <bool kCanBeChecked = false, class Call, class SlowCall>
[[gnu::always_inline]] inline auto on_recording_handle(int hid, Routine routine, Call f,
                                                       SlowCall slow) {
  qk_mem_handle* handle = find_handle_fast(hid);
  if (handle != nullptr) [[likely]] {
    const Road road = road_of(*handle, routine);
    if (road == Road::kRecords) [[likely]]
      return f.template operator()<Needs<NoLock, false>>(*handle);
    if (road == Road::kRecordsLocked)
      return f.template operator()<Needs<HandleLock, false>>(*handle);
    if (road == Road::kRecordsWatched) return f.template operator()<Needs<NoLock, true>>(*handle);
    if (road == Road::kRecordsWatchedLocked)
      return f.template operator()<Needs<HandleLock, true>>(*handle);
    if constexpr (kCanBeChecked) {
      if (road == Road::kRecordsChecked) {
        return f.template operator()<Needs<NoLock, true, true>>(*handle);
      }
      if (road == Road::kRecordsCheckedLocked) {
        return f.template operator()<Needs<HandleLock, true, true>>(*handle);
      }
    }
  }
  return slow();
}

/** The place that a record has while it is set aside for a realloc. */
struct Place {
  void* address;  // that the record had
  std::int32_t index;
};

/**
 * Takes a slot for the memory that a realloc has returned, and gives up the place of the record that
 * was set aside for it. Often they are the same.
 *
 * @return kNoSlot if it takes a larger array. The record is still set aside then.
 */
[[nodiscard, gnu::always_inline]] inline std::int32_t take_slot_again_fast(qk_mem_handle& handle,
                                                                           qk_mem_ptr_array& array,
                                                                           Place old) {
  qk_mem_ptr_array& old_array = array_of(handle, old.address);
  if (&array == &old_array && is_set_aside(array, old.index)) [[likely]] {
    if (is_first_choice(array, old.index)) [[likely]] {
      retake_place(array, old.index);
      return old.index;
    }
    free_slot(array, old.index);
    return take_free_slot(array);
  }
  const std::int32_t index = take_free_slot(array);
  if (index != kNoSlot) free_place(old_array, old.index);
  return index;
}

/** What a record of new memory says, but for its number. */
[[nodiscard, gnu::always_inline]] inline qk_mem_ptr unnumbered(void* address, unsigned char kind,
                                                               std::uint64_t count,
                                                               std::uint64_t size, const char* file,
                                                               int line) {
  return {address, nullptr, file, count, size, 0, static_cast<std::uint16_t>(line), kind, 0};
}

/** Tells the profile of a record that was written into a slot. */
template <class Handling>
[[gnu::always_inline]] inline void note_made_fast(qk_mem_handle& handle, profile::SlotPlace place,
                                                  const profile::Origin& origin,
                                                  const qk_mem_ptr& record, bool single_threaded) {
  if constexpr (Handling::kChecked) {
    if (!profile::quick_note_checked(handle, place, origin, single_threaded)) {
      profile::note_made(handle, place, origin);
    }
  } else if constexpr (Handling::kWatched) {
    if (!profile::quick_note_made(handle, place, origin.site, bytes_of(record), single_threaded)) {
      profile::note_made_unusually(handle, place, origin);
    }
  }
}

/** Tells it of one that will be released next. False, and it was not told, if that takes more. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool note_gone_fast(qk_mem_handle& handle,
                                                             profile::SlotPlace place,
                                                             std::uint64_t bytes,
                                                             const history::Release& release,
                                                             bool single_threaded) {
  if constexpr (Handling::kWatched) {
    return profile::quick_note_gone(handle, place, bytes, release, single_threaded);
  }
  return true;
}

/** Records memory in a slot that was just taken. */
template <class Handling>
[[gnu::always_inline]] inline void fill_slot_fast(qk_mem_handle& handle, qk_mem_ptr_array& array,
                                                  std::int32_t index, qk_mem_ptr record,
                                                  const profile::Origin& origin) {
  with_single_threaded([&](bool single_threaded) __attribute__((always_inline)) {
    record.seq = qk::add(Qk_mem_seq, 1, single_threaded);
    fill_slot(handle, array, index, record, charged_to(record.kind), single_threaded);
    note_made_fast<Handling>(handle, {array, index}, origin, record, single_threaded);
  });
}

/** Does what record_fast() does, under the handle's lock. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool record_locked(qk_mem_handle& handle, void* address,
                                                            unsigned char kind, std::uint64_t count,
                                                            std::uint64_t size, const char* file,
                                                            int line,
                                                            const profile::Origin& origin) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const std::int32_t index = take_free_slot(array);
  if (index == kNoSlot) [[unlikely]]
    return false;
  fill_slot_fast<Handling>(handle, array, index, unnumbered(address, kind, count, size, file, line),
                           origin);
  return true;
}

/** Records an allocation, unless that takes a larger array. `file` is the name alone. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool record_fast(qk_mem_handle& handle, void* address,
                                                          unsigned char kind, std::uint64_t count,
                                                          std::uint64_t size, const char* file,
                                                          int line, std::uint32_t flags = 0) {
  profile::Site* const site = site_for<Handling>(handle, file, line, count * size);
  const typename Handling::Lock lock(handle);
  return record_locked<Handling>(handle, address, kind, count, size, file, line, {site, flags});
}

/** The same if a slot of a small array is free, which is the usual case and needs few registers. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool record_in_small_fast(
    qk_mem_handle& handle, void* address, unsigned char kind, std::uint64_t count,
    std::uint64_t size, const char* file, int line, std::uint32_t flags = 0) {
  profile::Site* site = nullptr;
  if (!find_site_fast<Handling>(handle, file, line, site)) [[unlikely]]
    return false;
  qk_mem_ptr_array& array = array_of(handle, address);
  const QuickLock<typename Handling::Lock> lock(handle);
  if (!is_held(lock)) [[unlikely]]
    return false;
  const std::int32_t index = take_free_slot_of_small(array);
  if (index == kNoSlot) [[unlikely]]
    return false;
  qk_mem_ptr record = unnumbered(address, kind, count, size, file, line);
  with_single_threaded([&](bool single_threaded) __attribute__((always_inline)) {
    record.seq = qk::add(Qk_mem_seq, 1, single_threaded);
    fill_slot_of_small(handle, array, index, record, charged_to(kind), single_threaded);
    note_made_fast<Handling>(handle, {array, index}, {site, flags}, record, single_threaded);
  });
  return true;
}

/** The same for the memory that a realloc has returned, see take_slot_again_fast(). */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool record_again_fast(qk_mem_handle& handle, Place old,
                                                                void* address, std::uint64_t size,
                                                                const char* path, int line) {
  const char* file = qk::name_in_path(path);
  profile::Site* const site = site_for<Handling>(handle, file, line, size);
  qk_mem_ptr_array& array = array_of(handle, address);
  const typename Handling::Lock lock(handle);
  const std::int32_t index = take_slot_again_fast(handle, array, old);
  if (index == kNoSlot) [[unlikely]]
    return false;
  fill_slot_fast<Handling>(handle, array, index,
                           unnumbered(address, kind::kRealloc, 1, size, file, line), {site, 0});
  return true;
}

/** The slot of an address, other than the array's own; kNoSlot if there is none. */
[[nodiscard, gnu::always_inline]] inline std::int32_t find_slot_of_data(qk_mem_ptr_array& array,
                                                                        const void* address) {
  const std::int32_t index = find_slot(array, address);
  return index > 0 ? index : kNoSlot;
}

/** The same if the array is small and a single print matches, which is the usual case. */
[[nodiscard, gnu::always_inline]] inline std::int32_t find_slot_in_small(qk_mem_ptr_array& array,
                                                                         const void* address) {
  return is_small(array) ? find_slot_of_small(array, address) : kNoSlot;
}

/**
 * Finds the slot of an address and takes `steps` with it, under the handle's lock. Returns kNoSlot,
 * and nothing has changed, if `find` finds none or `steps` returns false.
 */
template <class Lock, class Find, class Steps>
[[nodiscard, gnu::always_inline]] inline std::int32_t change_slot_of(qk_mem_handle& handle,
                                                                     const void* address, Find find,
                                                                     Steps steps) {
  qk_mem_ptr_array& array = array_of(handle, address);
  const Lock lock(handle);
  if (!is_held(lock)) [[unlikely]]
    return kNoSlot;
  const std::int32_t index = find(array, address);
  if (index == kNoSlot) [[unlikely]]
    return kNoSlot;
  bool has_changed = false;
  with_single_threaded([&](bool single_threaded) __attribute__((always_inline)) {
    has_changed = steps(array, index, single_threaded);
  });
  return has_changed ? index : kNoSlot;
}

/**
 * Removes the record of an address from an ordinary handle, and counts the event. False, and nothing
 * has changed, if there is no record.
 */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool remove_fast(qk_mem_handle& handle,
                                                          const void* address, const char* path,
                                                          int line) {
  const auto remove = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    if constexpr (Handling::kWatched) {
      if (profile::needs_care(handle, {array, index})) return false;
      profile::note_gone(handle, {array, index}, {path, line, history::Ending::kFreed});
    }
    remove_record(handle, array, index, ChargedTo::kData, single_threaded);
    qk::add_only(Qk_mem_seq, 1, single_threaded);
    return true;
  };
  return change_slot_of<typename Handling::Lock>(handle, address, find_slot_of_data, remove) !=
         kNoSlot;
}

/** The same for a small array in the usual case. In others it fails although it need not. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool remove_from_small_fast(qk_mem_handle& handle,
                                                                     const void* address,
                                                                     const char* path, int line) {
  const auto remove = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    const std::uint64_t bytes = bytes_in(array.ptrs[index]);
    if (!note_gone_fast<Handling>(handle, {array, index}, bytes,
                                  {path, line, history::Ending::kFreed}, single_threaded))
        [[unlikely]] {
      return false;
    }
    remove_from_small(handle, array, index, bytes, ChargedTo::kData, single_threaded);
    qk::add_only(Qk_mem_seq, 1, single_threaded);
    return true;
  };
  return change_slot_of<QuickLock<typename Handling::Lock>>(handle, address, find_slot_in_small,
                                                            remove) != kNoSlot;
}

/**
 * Sets the record of an address aside for a realloc, see set_aside_pointer(). Nothing has changed if
 * the slot in the result is kNoSlot: there is no record then.
 */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline Place set_aside_fast(qk_mem_handle& handle, void* address,
                                                              const char* path, int line) {
  const auto hide = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    if constexpr (Handling::kWatched) {
      if (profile::needs_care(handle, {array, index})) return false;
      profile::note_set_aside(handle, {array, index}, {path, line, history::Ending::kResized});
    }
    set_aside(handle, array, index, ChargedTo::kData, single_threaded);
    return true;
  };
  return {address,
          change_slot_of<typename Handling::Lock>(handle, address, find_slot_of_data, hide)};
}

/** The same for a small array in the usual case. In others it fails although it need not. */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline Place set_aside_in_small_fast(qk_mem_handle& handle,
                                                                       void* address,
                                                                       const char* path, int line) {
  const auto hide = [&](qk_mem_ptr_array & array, std::int32_t index, bool single_threaded)
      __attribute__((always_inline)) {
    if constexpr (Handling::kWatched) {
      if (profile::needs_care(handle, {array, index})) return false;
      profile::note_set_aside(handle, {array, index}, {path, line, history::Ending::kResized});
    }
    set_aside_in_small(handle, array, index, ChargedTo::kData, single_threaded);
    return true;
  };
  return {address, change_slot_of<QuickLock<typename Handling::Lock>>(handle, address,
                                                                      find_slot_in_small, hide)};
}

/**
 * Records memory that a realloc has left where it was, unless the record has to move to another
 * slot or the path is not remembered. As long as the array is small, the record is still set aside
 * in its slot.
 */
template <class Handling>
[[nodiscard, gnu::always_inline]] inline bool record_in_place_fast(qk_mem_handle& handle,
                                                                   Place place, std::uint64_t size,
                                                                   const char* path, int line) {
  const char* file = nullptr;
  if (!qk::find_known_name(path, file)) [[unlikely]]
    return false;
  profile::Site* site = nullptr;
  if (!find_site_fast<Handling>(handle, file, line, site)) [[unlikely]]
    return false;
  qk_mem_ptr_array& array = array_of(handle, place.address);
  const QuickLock<typename Handling::Lock> lock(handle);
  if (!is_held(lock)) [[unlikely]]
    return false;
  if (!is_small(array) || !is_first_choice_in_small(array, place.index)) [[unlikely]]
    return false;
  qk_mem_ptr record = unnumbered(place.address, kind::kRealloc, 1, size, file, line);
  with_single_threaded([&](bool single_threaded) __attribute__((always_inline)) {
    record.seq = qk::add(Qk_mem_seq, 1, single_threaded);
    refill_slot_of_small(handle, array, place.index, record, ChargedTo::kData, single_threaded);
    note_made_fast<Handling>(handle, {array, place.index}, {site, 0}, record, single_threaded);
  });
  return true;
}

}  // namespace qk::mem

#endif  // QKMEM_ALLOC_FAST_PATH_H_

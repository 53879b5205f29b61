#ifndef QKMEM_ACCOUNTING_WALKS_H_
#define QKMEM_ACCOUNTING_WALKS_H_

#include <cstdint>

#include "core/records.h"
#include "core/registry.h"
#include "profile/marks.h"
#include "support/shared_variable.h"
#include "table/release_notes.h"

/**
 * Walks that release the records of a handle while objects are among them. The destructor of such
 * an object can use, free or destroy what the object owns on the same handle. The walk may have
 * released that already: the order of the records decides. So it notes what it releases, and
 * whatever the notes have is left alone when its owner releases it. Memory is held back until the
 * last object is destroyed, because the destructors may read it.
 *
 * A note serves once. After that the address can belong to the program.
 */
namespace qk::mem {

class Walk {
 public:
  /** Notes nothing if the handle has no objects. The walk must end in the thread of its begin. */
  explicit Walk(qk_mem_handle& handle);
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
  ~Walk();

  /** Whether there are objects, but no memory to note what is released. */
  [[nodiscard]] bool lacks_memory() const { return lacks_memory_; }

  /** Notes an object that is destroyed next. */
  void note_object(const qk_mem_ptr& record);

  /**
   * Notes memory, or a piece, that is released next.
   *
   * @return whether the memory is held back, and must not be freed by the caller.
   */
  [[nodiscard]] bool note_memory(const qk_mem_ptr& record, profile::Mark mark);

  /** To be called after an object was destroyed. After the last one the notes are dropped. */
  void note_destroyed();

  /**
   * Takes a note from the walks over a handle, by ReleaseNotes::take() or take_around(). Null if
   * there is none. Needs the registry's lock.
   */
  using Take = ReleaseNotes::Note* (ReleaseNotes::*)(const void* address);
  static ReleaseNotes::Note* take_note(const qk_mem_handle& handle, const void* address, Take take)
      QK_REQUIRES(Qk_mem_mtx);

  /**
   * Whether a walk over a handle had no memory for a note. Then nothing is released that might have
   * been before. Needs the registry's lock.
   */
  [[nodiscard]] static bool lacks_notes(const qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

  /** Makes the walks over a handle wait for one object more. Needs the registry's lock. */
  static void expect_object(const qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx);

 private:
  void begin();
  void unlist();
  void end();
  std::uint32_t count_down();

  /** Calls `visit` with the walks over a handle that take notes, the latest first. */
  template <class Visit>
  static void for_each_over(const qk_mem_handle& handle, Visit visit) QK_REQUIRES(Qk_mem_mtx);

  qk_mem_handle& handle_;
  Walk* next_ = nullptr;
  std::uint32_t objects_ = 0;  // not destroyed yet; too high if an owner destroys one
  bool is_noting_ = false;
  bool lacks_memory_ = false;
  bool holds_memory_back_ = false;
  ReleaseNotes notes_;
};

/** Whether a walk over the handle takes notes. Asked before the calls below. */
[[nodiscard]] inline bool is_walked(const qk_mem_handle& handle) {
  return qk::load(handle.is_walked) != 0;
}

/**
 * Whether a walk has released an address that is not recorded now. Takes the note, so that the
 * address counts as unknown from now on.
 */
[[nodiscard]] bool was_released_by_walk(qk_mem_handle& handle, const void* address);

/** The same for an object that an owner knows by its address or by that of a base of it. */
[[nodiscard]] bool was_destroyed_by_walk(qk_mem_handle& handle, const void* object);

/**
 * Gives memory that a walk has released back to its owner, who resizes it. Unknown and recorded
 * memory is the owner's already.
 *
 * @return false if the memory is free.
 */
[[nodiscard]] bool take_back_from_walk(qk_mem_handle& handle, const void* address);

/** Tells the walks over a handle that an object was registered, which they destroy too. */
void tell_walks_of_object(const qk_mem_handle& handle, const void* address);

}  // namespace qk::mem

#endif  // QKMEM_ACCOUNTING_WALKS_H_

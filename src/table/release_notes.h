#ifndef QKMEM_TABLE_RELEASE_NOTES_H_
#define QKMEM_TABLE_RELEASE_NOTES_H_

#include <cstdint>

#include "support/number_tree.h"

namespace qk::mem {

/**
 * Notes of memory that was released, sorted by address. Each can be taken once. All calls need one
 * thread at a time.
 *
 *     nodes_[n] and notes_[n] belong to note n, from 1 on; the tree has the notes not taken yet
 */
class ReleaseNotes {
 public:
  struct Note {
    std::uintptr_t begin;
    std::uint64_t bytes;  // above 0
    bool is_held;         // the memory is not free yet
    std::uint32_t front;  // bytes in front of it that belong to it
  };

  ReleaseNotes() = default;
  ReleaseNotes(const ReleaseNotes&) = delete;
  ReleaseNotes& operator=(const ReleaseNotes&) = delete;
  ~ReleaseNotes();

  /** Makes room for this many notes in all. False if there is no memory. */
  [[nodiscard]] bool reserve(std::uint32_t limit);

  /**
   * Notes an address, and returns its note: the present one if there is one. Null if there is no
   * memory. Valid until the next call.
   */
  Note* add(const void* address, std::uint64_t bytes);

  /** Removes the note of an address. Null if there is none. */
  Note* take(const void* address);

  /** Removes the note in whose memory an address lies. Null if there is none. */
  Note* take_around(const void* address);

  /** Calls `visit` with the allocator's address of all held memory, in the order of the notes. */
  template <class Visit>
  void for_each_held(Visit visit) const {
    for (std::uint32_t number = 1; number <= count_; ++number) {
      const std::uintptr_t begin = notes_[number].begin - notes_[number].front;
      // NOLINTNEXTLINE(performance-no-int-to-ptr)
      if (notes_[number].is_held) visit(reinterpret_cast<void*>(begin));
    }
  }

 private:
  Note* take_number(std::uint32_t number);
  [[nodiscard]] std::uint32_t last_up_to(std::uintptr_t address) const;

  std::uint32_t limit_ = 0;
  std::uint32_t count_ = 0;
  std::uint32_t root_ = 0;
  qk::NumberTreeNode* nodes_ = nullptr;
  Note* notes_ = nullptr;
};

}  // namespace qk::mem

#endif  // QKMEM_TABLE_RELEASE_NOTES_H_

#ifndef QKMEM_LOST_ROOTS_H_
#define QKMEM_LOST_ROOTS_H_

#include <array>
#include <cstdint>
#include <span>

#include "lost/areas.h"
#include "lost/collected.h"
#include "lost/search.h"
#include "support/glibc_heap.h"
#include "support/mapped_array.h"
#include "support/memory_map.h"
#include "support/resident_pages.h"
#include "support/stopped_threads.h"

namespace qk::mem::lost {

/** The thread that asks for a search. At a signal it has left its stack, and maybe a second one. */
struct Caller {
  std::array<std::uintptr_t, 3> stack_pointers;  // 0 for none
  std::uintptr_t thread_pointer;
};

/** What a search has to know of the process besides its memory. */
struct Process {
  Caller caller;
  std::span<const qk::ThreadState> others;
  bool knows_threads;  // `others` are all other threads
  std::uint64_t cache_key;
};

/**
 * The memory from which the program reaches its blocks: data of modules, stacks as far as they are
 * in use, memory of threads, other mappings, and memory of the C library's heap that is in use and
 * not recorded. What could be in use counts as if it were. For a copy of the process: nobody else
 * may change anything meanwhile.
 */
class Roots {
 public:
  /** `own` gets sorted, and two more: it has room for them. */
  Roots(const qk::MemoryMap& map, const Areas& areas, Ranges& own, const Process& process) noexcept;

  /** Keeps what all roots lead to. */
  void keep(Search& search);

  /** Whether the heap is one whose free memory can be told. */
  [[nodiscard]] bool knows_heap() const { return knows_heap_; }

 private:
  /** Whether memory can be freed, or is where it is for good, and with it the blocks in there. */
  enum class Placed : std::uint8_t { kOnHeap, kForGood };

  [[nodiscard]] bool is_data(std::size_t mapping) const;
  [[nodiscard]] bool is_stack_of_thread(std::size_t mapping) const;
  [[nodiscard]] std::uintptr_t lowest_stack_pointer_in(qk::AddressRange range) const;
  [[nodiscard]] qk::AddressRange unused_of_signal_stack() const;
  [[nodiscard]] bool is_alive(std::uintptr_t thread_pointer) const;
  [[nodiscard]] std::uintptr_t begin_of_use(std::size_t mapping) const;
  [[nodiscard]] std::optional<qk::glibc::Heap> next_heap(std::size_t mapping,
                                                         std::uintptr_t from) const;
  void find_main_arena();
  void find_fast_chunks();
  template <class Visit>
  void for_each_heap(Visit visit) const;

  void keep_from_mapping(Search& search, std::size_t mapping);
  void keep_from_heap(Search& search, const qk::glibc::Heap& heap);
  void keep_from_sparse(Search& search, qk::AddressRange range);
  void keep_from(Search& search, qk::AddressRange range, Placed placed);
  [[nodiscard]] bool is_in_use(const qk::glibc::Chunk& chunk) const;

  const qk::MemoryMap& map_;
  const Areas& areas_;
  const Ranges& own_;
  const Process& process_;
  qk::ResidentPages resident_;
  std::uintptr_t main_arena_ = 0;
  qk::MappedArray<std::uintptr_t> fast_chunks_;
  bool knows_heap_ = false;
  // Where the scan is: it goes through the memory in the order of addresses.
  std::size_t next_mapping_ = 0;
  std::uint32_t next_area_ = 0;
  std::size_t next_own_ = 0;
};

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_ROOTS_H_

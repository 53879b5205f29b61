#ifndef SUPPORT_HEAP_COUNTER_H_
#define SUPPORT_HEAP_COUNTER_H_

#include <cstddef>
#include <cstdint>
#include <optional>

namespace qk {

/**
 * The C library's own count of the bytes that the heap has got from the system, which is the
 * "arena" of mallinfo(). It tells whether that figure has changed, in no time: mallinfo() walks over
 * all free memory for its other figures. Nothing less tells as much. Calls of malloc() that go past
 * this library change the figure, and it can change while the end of the heap stays: memory is
 * mapped where the heap can't grow, or the program moves the end back by itself.
 *
 * The count is private to glibc. It is recognized by what glibc keeps beside it; with another C
 * library or another allocator none is found.
 *
 * Not for several threads: they change it under a lock of glibc's.
 */
class HeapCounter {
 public:
  /**
   * Looks for the counter among the variables of the shared library that has `statistics`, the
   * address of mallinfo(), in its code.
   *
   * @param bytes  what the counter shows now, narrowed to the int that mallinfo() returns.
   */
  [[nodiscard]] static HeapCounter find(std::uintptr_t statistics, long bytes) noexcept;

  /**
   * The bytes of the heap. None if there is no counter, or if other threads have had heaps of their
   * own, which mallinfo() includes.
   */
  [[nodiscard]] std::optional<std::size_t> read() const noexcept;

 private:
  std::uintptr_t main_arena_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_HEAP_COUNTER_H_

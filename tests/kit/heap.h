#ifndef TESTS_KIT_HEAP_H_
#define TESTS_KIT_HEAP_H_

#include <malloc.h>

/** The size of the heap as the allocator's statistics tell it, so that tests can name figures. */
namespace kit {

/** Makes the statistics tell of `bytes` got from the system, from now on. */
void set_heap(int bytes);

/** The same with all figures of the statistics; their `arena` is the size of the heap. */
void set_heap_statistics(const struct mallinfo& figures);

/** How often the statistics were asked for since the last call of one of these. */
[[nodiscard]] int heap_probes();

}  // namespace kit

#endif  // TESTS_KIT_HEAP_H_

#ifndef TESTS_KIT_HEAP_H_
#define TESTS_KIT_HEAP_H_

#include <malloc.h>

/** Sets the size of the heap that the allocator's statistics report, so that tests know it. */
namespace kit {

/** Makes the statistics report `bytes` obtained from the system from now on. */
void set_heap(int bytes);

/** The same for all figures of the statistics. `arena` is the size of the heap. */
void set_heap_statistics(const struct mallinfo& figures);

/** How often the statistics were read since the last call of one of these. */
[[nodiscard]] int heap_probes();

}  // namespace kit

#endif  // TESTS_KIT_HEAP_H_

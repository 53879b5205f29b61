#ifndef QKMEM_LIFE_FORK_H_
#define QKMEM_LIFE_FORK_H_

namespace qk::mem {

/**
 * Makes forks safe while other threads use the library. A fork waits until all locks are free, and
 * flushes log and trace file, so that the child does not write the buffers again. To be called
 * once.
 */
void watch_forks();

}  // namespace qk::mem

#endif  // QKMEM_LIFE_FORK_H_

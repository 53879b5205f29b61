#ifndef QKMEM_LIFE_FORK_H_
#define QKMEM_LIFE_FORK_H_

namespace qk::mem {

/**
 * Makes forks safe while other threads use the library: a fork waits until all locks are free, and
 * what is buffered for the log and the trace file goes out before, so that the child doesn't write
 * it again. To be called once.
 */
void watch_forks();

}  // namespace qk::mem

#endif  // QKMEM_LIFE_FORK_H_

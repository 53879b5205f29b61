#ifndef QKMEM_LIFE_CLEANUP_H_
#define QKMEM_LIFE_CLEANUP_H_

extern "C" {

/**
 * The exit handler: deletes the autofree handles, reports what is left, releases the handle array
 * and closes log and trace file.
 *
 * @param sig  the signal that ends the process; 0 or less at normal termination. After a signal
 *             that may have stopped the program anywhere it writes at most one line.
 */
void qk_mem_cleanup(int sig);

}  // extern "C"

#endif  // QKMEM_LIFE_CLEANUP_H_

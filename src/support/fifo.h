#ifndef SUPPORT_FIFO_H_
#define SUPPORT_FIFO_H_

namespace qk {

/** Whether there is a FIFO of this name. */
[[nodiscard]] bool is_fifo(const char* name) noexcept;

/**
 * Opens a FIFO for writing, and returns its descriptor; programs that this one starts do not
 * inherit it. Returns -1, with errno, if nobody reads it within a second: waiting for a reader
 * could hang the program. Writing to it waits for the reader. Safe in a signal handler.
 */
[[nodiscard]] int open_fifo(const char* name) noexcept;

}  // namespace qk

#endif  // SUPPORT_FIFO_H_

#ifndef SUPPORT_TOLERANT_READING_H_
#define SUPPORT_TOLERANT_READING_H_

namespace qk {

/**
 * Calls a function that reads memory which may not be there, such as that of a file that has become
 * shorter. Where it isn't, the function ends, without destructors. For copies of the process, whose
 * signal handlers are not the program's any more, with one thread.
 */
void read_as_far_as_possible(void (*read)(void* data), void* data) noexcept;

}  // namespace qk

#endif  // SUPPORT_TOLERANT_READING_H_

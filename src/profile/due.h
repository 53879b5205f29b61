#ifndef QKMEM_PROFILE_DUE_H_
#define QKMEM_PROFILE_DUE_H_

#include <cstdint>

#include "support/shared_variable.h"

/**
 * What the profile does while the program runs, when its time has come: the library starts no
 * thread, so a call of the program does it, before it takes any lock.
 */
namespace qk::mem::profile {

/**
 * Sets what does the work: it is called with the time, by one thread at a time, and returns that of
 * the next call; kNever for none.
 */
using DueWork = std::uint64_t (*)(std::uint64_t now);
inline constexpr std::uint64_t kNever = UINT64_MAX;
void set_due_work(DueWork work, std::uint64_t first_time);

/** To be called with each time that is read from the clock. Calls for attention to due work. */
void note_reading(std::uint64_t now);

/** Reads the clock if there is something to wait for, and does what is due. */
void look_at_clock();

/** Does what is due, unless another thread does. */
void do_due_work();

/** In the child of a fork no other thread is at work. */
void forget_due_worker();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_DUE_H_

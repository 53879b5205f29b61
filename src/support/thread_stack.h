#ifndef SUPPORT_THREAD_STACK_H_
#define SUPPORT_THREAD_STACK_H_

#include <cstdint>

#include "support/modules.h"

/** Where glibc keeps what it knows of a thread: at the upper end of its stack. */
namespace qk {

/**
 * The thread pointer of the thread that a mapping is the stack of; 0 if it doesn't look like one.
 * The thread can have ended: stacks are kept for later threads. For x86-64; elsewhere always 0.
 */
[[nodiscard]] std::uintptr_t thread_of_stack(AddressRange mapping) noexcept;

/** What a thread has behind its thread pointer takes so many bytes at most. */
inline constexpr std::uintptr_t kMostOfThread = 0x2000;

/** Whether a mapping, which can be gone by now, is the stack of a thread. As above. */
[[nodiscard]] bool is_stack_of_thread(AddressRange mapping) noexcept;

/** Whether a thread has ended, by what its memory says. False if that can't be told. */
[[nodiscard]] bool has_thread_ended(std::uintptr_t thread_pointer) noexcept;

}  // namespace qk

#endif  // SUPPORT_THREAD_STACK_H_

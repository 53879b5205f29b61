#ifndef SUPPORT_STACK_SWITCH_H_
#define SUPPORT_STACK_SWITCH_H_

#include <cstddef>

namespace qk {

/**
 * Calls a function on another stack and returns when it returns. Takes some 200 bytes of the present
 * stack, so that a signal handler can leave a small alternate signal stack. Nothing must be thrown
 * through it.
 *
 * @param stack,size  memory for the stack, aligned to 16.
 */
void call_on_stack(void* stack, std::size_t size, void (*function)(void*), void* argument) noexcept;

/** The same for any processor; two contexts take 2 KiB of the present stack, on arm64 9 KiB. */
void call_on_stack_portably(void* stack, std::size_t size, void (*function)(void*),
                            void* argument) noexcept;

}  // namespace qk

#endif  // SUPPORT_STACK_SWITCH_H_

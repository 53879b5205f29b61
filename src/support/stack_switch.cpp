#include "support/stack_switch.h"

#include <ucontext.h>

#include <cstdint>

namespace qk {
namespace {

struct Call {
  void (*function)(void*);
  void* argument;
};

/** makecontext() passes numbers of type int only. */
void make_call(unsigned high, unsigned low) {
  const auto address = (std::uintptr_t{high} << 32) | low;
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const Call& call = *reinterpret_cast<const Call*>(address);
  call.function(call.argument);
}

}  // namespace

void call_on_stack_portably(void* stack, std::size_t size, void (*function)(void*),
                            void* argument) noexcept {
  const Call call = {function, argument};
  ucontext_t back;
  ucontext_t other;
  getcontext(&other);
  other.uc_stack.ss_sp = stack;
  other.uc_stack.ss_size = size;
  other.uc_link = &back;
  const auto address = reinterpret_cast<std::uintptr_t>(&call);
  makecontext(&other, reinterpret_cast<void (*)()>(make_call), 2,
              static_cast<unsigned>(address >> 32), static_cast<unsigned>(address));
  swapcontext(&back, &other);
}

#if defined(__x86_64__)
void call_on_stack(void* stack, std::size_t size, void (*function)(void*),
                   void* argument) noexcept {
  void* top = static_cast<char*>(stack) + size;
  asm volatile(
      "movq %%rsp, %%rbx\n\t"
      "movq %[top], %%rsp\n\t"
      "callq *%[function]\n\t"
      "movq %%rbx, %%rsp"
      : "+D"(argument), [top] "+r"(top), [function] "+r"(function)
      :
      : "rbx", "rax", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "xmm0", "xmm1", "xmm2", "xmm3",
        "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14",
        "xmm15", "memory", "cc");
}
#else
void call_on_stack(void* stack, std::size_t size, void (*function)(void*),
                   void* argument) noexcept {
  call_on_stack_portably(stack, size, function, argument);
}
#endif

}  // namespace qk

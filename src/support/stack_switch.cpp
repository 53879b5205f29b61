#include "support/stack_switch.h"

#include <ucontext.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

#include <cstdint>

namespace qk {
namespace {

struct Call {
  void (*function)(void*);
  void* argument;
};

#if defined(__SANITIZE_ADDRESS__)
/** Tells the address sanitizer where the stack is: it looks at it before a thread's last call. */
class SanitizedCall {
 public:
  SanitizedCall(void* stack, std::size_t size, const Call& call)
      : stack_(stack), size_(size), call_(call) {}

  void before() { __sanitizer_start_switch_fiber(&fake_stack_, stack_, size_); }
  void after() { __sanitizer_finish_switch_fiber(fake_stack_, nullptr, nullptr); }

  static void make(void* self) {
    const void* back = nullptr;
    std::size_t size_of_back = 0;
    __sanitizer_finish_switch_fiber(nullptr, &back, &size_of_back);
    const Call& call = static_cast<SanitizedCall*>(self)->call_;
    call.function(call.argument);
    __sanitizer_start_switch_fiber(nullptr, back, size_of_back);
  }

 private:
  void* stack_;
  std::size_t size_;
  Call call_;
  void* fake_stack_ = nullptr;
};
#endif

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

namespace {

#if defined(__x86_64__)
void switch_and_call(void* stack, std::size_t size, void (*function)(void*), void* argument) {
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
#elif defined(__aarch64__)
// Contexts take more than 9 KiB, for which a small signal stack has no room.
void switch_and_call(void* stack, std::size_t size, void (*function)(void*), void* argument) {
  void* top = static_cast<char*>(stack) + size;
  register void* first asm("x0") = argument;
  asm volatile(
      "mov x19, sp\n\t"
      "mov sp, %[top]\n\t"
      "blr %[function]\n\t"
      "mov sp, x19"
      : "+r"(first), [top] "+r"(top), [function] "+r"(function)
      :
      : "x19", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13",
        "x14", "x15", "x16", "x17", "x18", "x30", "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7",
        "v8", "v9", "v10", "v11", "v12", "v13", "v14", "v15", "v16", "v17", "v18", "v19", "v20",
        "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31", "memory",
        "cc");
}
#else
void switch_and_call(void* stack, std::size_t size, void (*function)(void*), void* argument) {
  call_on_stack_portably(stack, size, function, argument);
}
#endif

}  // namespace

void call_on_stack(void* stack, std::size_t size, void (*function)(void*),
                   void* argument) noexcept {
#if defined(__SANITIZE_ADDRESS__)
  SanitizedCall call(stack, size, {function, argument});
  call.before();
  switch_and_call(stack, size, SanitizedCall::make, &call);
  call.after();
#else
  switch_and_call(stack, size, function, argument);
#endif
}

}  // namespace qk

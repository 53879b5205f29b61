#include "support/interrupted_thread.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <cerrno>

namespace qk {
namespace {

/** The registers of a system call that is about to be made, or that has been. */
struct SystemCall {
  std::uintptr_t next;   // the next instruction
  long number;           // if it is about to be made
  long second_argument;  // likewise
  long result;           // if it has been made
};

#if defined(__x86_64__)

constexpr std::uintptr_t kSystemCallSize = 2;

/** Reads the second byte only if the first one says that there is one. */
bool is_system_call(const unsigned char* instruction) {
  return instruction[0] == 0x0f && instruction[1] == 0x05;
}

SystemCall system_call_of(const mcontext_t& machine) {
  const greg_t* const registers = machine.gregs;
  return {static_cast<std::uintptr_t>(registers[REG_RIP]), registers[REG_RAX], registers[REG_RSI],
          registers[REG_RAX]};
}

#elif defined(__aarch64__)

constexpr std::uintptr_t kSystemCallSize = 4;

/** `svc #0`. Instructions are little-endian whatever the data are. */
bool is_system_call(const unsigned char* instruction) {
  return instruction[0] == 0x01 && instruction[1] == 0x00 && instruction[2] == 0x00 &&
         instruction[3] == 0xd4;
}

SystemCall system_call_of(const mcontext_t& machine) {
  return {machine.pc, static_cast<long>(machine.regs[8]), static_cast<long>(machine.regs[1]),
          static_cast<long>(machine.regs[0])};
}

#endif

#if defined(__x86_64__) || defined(__aarch64__)

/** False if the instruction before would be on another page, which may not exist. */
bool follows_system_call(const unsigned char* next) {
  constexpr std::uintptr_t kSmallestPage = 4096;
  return reinterpret_cast<std::uintptr_t>(next) % kSmallestPage >= kSystemCallSize &&
         is_system_call(next - kSystemCallSize);
}

/** Whether an allocator makes a system call; of the futex calls, the ones that wait for a lock. */
bool is_made_by_allocators(long number, long second_argument) {
  switch (number) {
    case SYS_mmap:
    case SYS_munmap:
    case SYS_mremap:
    case SYS_mprotect:
    case SYS_madvise:
    case SYS_brk:
      return true;
    case SYS_futex:
      return (second_argument & FUTEX_CMD_MASK) == FUTEX_WAIT;
    default:
      return false;
  }
}

/**
 * The kernel either ends an interrupted system call with EINTR, which those of allocators never
 * return, or lets the thread make it again.
 */
bool waits_in_kernel(const SystemCall& call) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const auto* const next = reinterpret_cast<const unsigned char*>(call.next);
  if (is_system_call(next)) return !is_made_by_allocators(call.number, call.second_argument);
  return call.result == -EINTR && follows_system_call(next);
}

#endif

}  // namespace

InterruptedThread interrupted_thread(const void* context) noexcept {
  const mcontext_t& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
  InterruptedThread thread;
#if defined(__x86_64__)
  thread.instruction = static_cast<std::uintptr_t>(machine.gregs[REG_RIP]);
  thread.stack = static_cast<std::uintptr_t>(machine.gregs[REG_RSP]);
  thread.waits_in_kernel = waits_in_kernel(system_call_of(machine));
#elif defined(__aarch64__)
  thread.instruction = machine.pc;
  thread.stack = machine.sp;
  thread.return_address = machine.regs[30];
  thread.waits_in_kernel = waits_in_kernel(system_call_of(machine));
#else
  static_cast<void>(machine);
#endif
  return thread;
}

}  // namespace qk

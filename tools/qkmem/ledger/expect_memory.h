#ifndef QKMEM_TOOLS_LEDGER_EXPECT_MEMORY_H_
#define QKMEM_TOOLS_LEDGER_EXPECT_MEMORY_H_

namespace qk::command {

/** Has memory that is soon used brought into the processor's cache. */
inline void expect_memory(const void* memory) {
  __builtin_prefetch(memory, 1);
  // The compiler would leave out calls of functions that do nothing else.
  asm volatile("");
}

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_EXPECT_MEMORY_H_

#ifndef SUPPORT_MODULES_H_
#define SUPPORT_MODULES_H_

#include <cstdint>

namespace qk {

/** Addresses from `begin` up to, but not including, `end`. */
struct AddressRange {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;

  [[nodiscard]] bool has(std::uintptr_t address) const { return address >= begin && address < end; }
};

/** Where a program or a shared library is in memory. */
struct Module {
  AddressRange code;
  AddressRange data;  // its variables; empty if it has none
  bool is_program = false;
  const char* path = "";  // as it was loaded by, valid as long as it is; empty for the program
};

/**
 * Returns the module of this process with `address` in its code; one without code if there is none.
 * Allocates nothing.
 */
[[nodiscard]] Module module_with(std::uintptr_t address) noexcept;

}  // namespace qk

#endif  // SUPPORT_MODULES_H_

#ifndef QKMEM_PROFILE_REPORT_PROCESS_MEMORY_H_
#define QKMEM_PROFILE_REPORT_PROCESS_MEMORY_H_

#include "profile/report/address_kind.h"
#include "support/line.h"
#include "symbols/module_list.h"

namespace qk::mem::profile {

/** What the system knows of an address. */
struct ProcessMemory {
  AddressKind kind;                         // kCode or one of those after it
  const qk::KnownModule* module = nullptr;  // of code and static data
  char file[128] = {};                      // of a mapping, without its folders
};

/**
 * Takes a lock of the dynamic linker, and none of the library: not for callers with a lock that a
 * thread inside the dynamic linker can wait for.
 */
[[nodiscard]] ProcessMemory find_in_process(const void* address);

/**
 * Appends "in static data of libfoo.so.1: table+8". The name of the variable or function comes from
 * the module's file, without the heap.
 */
void put_process_memory(qk::Line& line, const ProcessMemory& memory, const void* address);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_PROCESS_MEMORY_H_

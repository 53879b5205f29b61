#ifndef QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_
#define QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_

#include <optional>

#include "history/freed_blocks.h"
#include "profile/report/address_kind.h"
#include "profile/report/known_blocks.h"
#include "profile/report/library_memory.h"
#include "profile/report/managed_block.h"
#include "profile/report/process_memory.h"
#include "support/line.h"

/** What is known of an address, whatever it is. */
namespace qk::mem::profile {

struct Knowledge {
  const void* address;
  AddressKind kind;
  std::optional<LiveBlock> live;             // in which the address is, or else the nearest
  std::optional<history::FreedBlock> freed;  // likewise, if there is no such live block
  std::optional<LibraryMemory> library;      // of kLibrary
  std::optional<ManagedBlock> managed;       // of kinds of blocks
  std::optional<ProcessMemory> process;      // of kCode and what comes after it
};

/**
 * Finds out what an address is. Reads none of the program's memory there, and takes nothing from
 * the heap. Takes the registry's lock, those of handles, of the profile's growth and of the dynamic
 * linker, one after the other; the caller holds none that a thread with one of these can wait for.
 * Any thread; not in a signal handler.
 */
[[nodiscard]] Knowledge know(const void* address);

/**
 * What is known of an address in or near a block, for signal handlers: waits for no lock. Nothing if
 * it is in or near none, or a lock is held. The kind is kUnknown if it is only near.
 */
[[nodiscard]] std::optional<Knowledge> know_of_blocks(const void* address);

/** Appends what is known in words, without a newline. */
void put_knowledge(qk::Line& line, const Knowledge& knowledge);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_KNOWN_ADDRESS_H_

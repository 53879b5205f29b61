#ifndef QKMEM_PROFILE_REPORT_ADDRESS_KIND_H_
#define QKMEM_PROFILE_REPORT_ADDRESS_KIND_H_

#include <cstdint>

namespace qk::mem::profile {

/** What lies at an address. Of several answers the first one here counts. */
enum class AddressKind : std::uint8_t {
  kNull,
  kLiveBlock,     // of the program, at its start or inside
  kLibrary,       // a record or a table of the library
  kBlockHeader,   // of a block of a block-managed handle
  kFreedBlock,    // of the history
  kBlockFree,     // a part of such a block that is not handed out
  kBlockHole,     // between its pieces: all of them are recorded, and none is here
  kBlockPieces,   // where it has pieces that are in no record
  kCode,          // of a program or a shared library
  kStatic,        // its variables and constants
  kOwnStack,      // of the calling thread
  kOtherStack,    // of another thread, which can have ended
  kMappedFile,    // or what the system has mapped
  kHeap,          // of the C library, as far as it grows by brk()
  kUnmapped,      // no memory at all
  kInaccessible,  // memory that can be neither read nor written
  kUnknown
};

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_ADDRESS_KIND_H_

#ifndef QKMEM_PROFILE_REPORT_MANAGED_BLOCK_H_
#define QKMEM_PROFILE_REPORT_MANAGED_BLOCK_H_

#include <cstdint>
#include <optional>

#include "profile/report/address_kind.h"
#include "profile/report/known_blocks.h"
#include "support/line.h"

namespace qk::mem::profile {

/** A block of a block-managed handle. */
struct ManagedBlock {
  AddressKind kind;  // of the address in it: one of the four for such blocks
  std::uint64_t capacity;
  HandleName handle;
};

/**
 * The block of a block-managed handle in which an address lies. Takes the registry's lock, and those
 * of such handles.
 */
[[nodiscard]] std::optional<ManagedBlock> find_managed_block(const void* address);

/** Appends "in the free part of a block of 4,096 on handle 3 SE". */
void put_managed_block(qk::Line& line, const ManagedBlock& block);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_MANAGED_BLOCK_H_

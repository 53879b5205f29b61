#include "check/report/wrong_release.h"

#include "check/quarantine.h"
#include "check/settings.h"
#include "core/kinds.h"
#include "profile/misuses.h"
#include "profile/report/known_address.h"
#include "profile/report/misuse.h"

namespace qk::mem::check {
namespace {

using profile::AddressKind;

/**
 * Whether it is known that an address was released. On a handle without records memory of the C
 * library can be released too, which can be where an old block was: so only the quarantine counts.
 * Memory that was deregistered is still its owner's, who may release it by any call.
 */
bool was_released(const qk_mem_handle& handle, const void* address) {
  if (find_in_quarantine(address)) return true;
  if (!keeps_records(handle)) return false;
  const auto freed = profile::freed_blocks.find(address);
  return freed && freed->address == address &&
         freed->release.ending != history::Ending::kDeregistered;
}

/** Whether no memory of the system's allocator is of this kind. */
bool is_never_allocated(AddressKind kind) {
  switch (kind) {
    case AddressKind::kNull:
    case AddressKind::kLiveBlock:
    case AddressKind::kFreedBlock:
    case AddressKind::kBlockPieces:
    case AddressKind::kHeap:
    case AddressKind::kUnknown:
      return false;
    default:
      return true;
  }
}

}  // namespace

bool refuses_release(const qk_mem_handle& handle, const void* address, Routine routine,
                     const CallContext& context) {
  if (!checks(handle) || profile::has_lost_records()) return false;
  const profile::Knowledge knowledge = profile::know(address);
  if (knowledge.kind == AddressKind::kLiveBlock || was_released(handle, address)) {
    profile::tell_of_unknown_address(handle, address, routine, context);
    return true;
  }
  if (!is_never_allocated(knowledge.kind)) return false;
  profile::tell_of_refused_address(handle, knowledge, routine, context);
  return true;
}

}  // namespace qk::mem::check

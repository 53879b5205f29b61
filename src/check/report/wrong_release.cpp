#include "check/report/wrong_release.h"

#include "check/quarantine.h"
#include "check/settings.h"
#include "core/kinds.h"
#include "profile/misuses.h"
#include "profile/report/known_address.h"
#include "profile/report/misuse.h"

namespace qk::mem::check {
namespace {

/** Whether an address is a block's that was released on a handle with records, by what is known. */
bool was_released(const qk_mem_handle& handle, const void* address) {
  if (find_in_quarantine(address)) return true;
  // Without records, memory of the C library can be released here, at the address of an old block.
  if (!keeps_records(handle)) return false;
  const auto freed = profile::freed_blocks.find(address);
  return freed && freed->address == address;
}

bool is_known_to_be_wrong(const qk_mem_handle& handle, const void* address) {
  if (profile::find_live_block(address)) return true;
  return was_released(handle, address);
}

}  // namespace

bool refuses_release(const qk_mem_handle& handle, const void* address, Routine routine,
                     const CallContext& context) {
  if (!checks(handle) || profile::has_lost_records()) return false;
  if (!is_known_to_be_wrong(handle, address)) return false;
  profile::tell_of_unknown_address(handle, address, routine, context);
  return true;
}

}  // namespace qk::mem::check

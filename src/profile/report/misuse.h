#ifndef QKMEM_PROFILE_REPORT_MISUSE_H_
#define QKMEM_PROFILE_REPORT_MISUSE_H_

#include <cstdint>
#include <string_view>

#include "diag/call_context.h"
#include "profile/misuses.h"
#include "profile/pool.h"
#include "profile/report/known_address.h"

/**
 * Tells people in plain words what is wrong with a call, once for each place, beside the lines that
 * debug switches ask for. The first misuse stands in the report's verdict, and all in a part of it.
 *
 * Calls on handles that the profile doesn't watch, and while it is off, are not looked at. No lock
 * may be held. Safe in any thread.
 */
namespace qk::mem::profile {

/** What a record shows to be wrong with the call. */
enum class WrongCall : std::uint8_t {
  kFreeOfObject,
  kReallocOfForeign,  // registered memory, which the library did not allocate
  kSecondRecord,
  kOtherType
};

/** A call with an address that its handle has no record of, before anything is done with it. */
void tell_of_unknown_address(const qk_mem_handle& handle, const void* address, Routine routine,
                             const CallContext& context);

/**
 * The same of an address that the system's allocator can't have handed out, which says what it is.
 */
void tell_of_refused_address(const qk_mem_handle& handle, const Knowledge& knowledge,
                             Routine routine, const CallContext& context);

/** A call that doesn't suit the record of its address. */
void tell_of_wrong_call(const qk_mem_handle& handle, const qk_mem_ptr& record, WrongCall what,
                        Routine routine, const CallContext& context);

/**
 * A handle whose owner will delete it next, in the name of the place that has made it. Tells what
 * the program has forgotten on it: nothing on AUTOFREE handles and those with blocks, whose memory
 * is meant to end with them.
 */
void tell_of_forgotten_memory(const qk_mem_handle& handle, const CallContext& creation);

/**
 * Tells of damage to memory that a place, with this site, has allocated, in these words. The first
 * `summary` of them say what it is.
 */
void tell_of_damage(const MisusePlace& place, std::uint32_t site, std::string_view words,
                    std::size_t summary);

/** A free of null. It is legal, so it is only counted. */
void count_null_free(const qk_mem_handle& handle);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_MISUSE_H_

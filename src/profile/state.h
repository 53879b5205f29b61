#ifndef QKMEM_PROFILE_STATE_H_
#define QKMEM_PROFILE_STATE_H_

#include <cstdint>

#include "support/mtx.h"
#include "support/page_arena.h"
#include "support/shared_variable.h"

/**
 * Whether the profile is on, and what its tables share. They lie in mappings of their own: the
 * program's heap looks the same with and without the profile.
 *
 * Figures change under the lock of the handle that they belong to. The profile's own lock guards
 * what makes tables grow; no other lock is taken under it.
 */
namespace qk::mem::profile {

enum class State : std::uint8_t {
  kOff,
  kFollowing,  // blocks get marks, and are remembered after their release, but are not booked
  kOn,
  kFrozen  // the program ends: the figures stay as they are for the report
};

[[gnu::visibility("hidden")]] extern std::uint8_t state;
[[gnu::visibility("hidden")]] extern qk::Mtx growth_lock;
[[gnu::visibility("hidden")]] extern qk::PageArena arena QK_GUARDED_BY(growth_lock);

/** To be called first in functions that rely on the growth lock. */
inline void assert_growth_held() QK_ASSERTS_HELD(growth_lock) { growth_lock.assert_held(); }

/** Reasons for an allocation not to go the shortest way, each a bit. */
namespace attention {
inline constexpr std::uint8_t kNotOn = 1;       // blocks get no marks
inline constexpr std::uint8_t kWorkIsDue = 2;   // see profile/due.h
inline constexpr std::uint8_t kClockIsDue = 4;  // see profile/events.h
inline constexpr std::uint8_t kStacks = 8;      // are kept
inline constexpr std::uint8_t kLabels = 16;     // a thread has pushed one
inline constexpr std::uint8_t kSample = 32;     // only some allocations are booked
}  // namespace attention

/**
 * Whether new memory gets contents that are no addresses. What earlier blocks have left in memory
 * that was never written would lead a search for lost blocks astray.
 */
[[gnu::visibility("hidden")]] extern std::uint8_t fills_new_memory;

/** Who wants that, each a bit. */
enum class Filling : std::uint8_t { kForSearch = 1, kForChecks = 2 };
void set_filling(Filling reason, bool is_wanted);

/** Reasons for a note not to go the shortest way, each a bit. */
namespace unusual {
inline constexpr std::uint8_t kSample = 1;    // a block can stand for others
inline constexpr std::uint8_t kFrozen = 2;    // nothing is noted
inline constexpr std::uint8_t kRecorded = 4;  // events are told to a recording
}  // namespace unusual

/** All of them, of a block that was made and of one that is gone: one question each. */
[[gnu::visibility("hidden")]] extern std::uint8_t unusual_made;
[[gnu::visibility("hidden")]] extern std::uint8_t unusual_gone;

/** All reasons that there are: an allocation asks one question in place of many. */
[[gnu::visibility("hidden")]] extern std::uint8_t reasons_for_attention;

[[nodiscard]] inline bool needs_attention() { return !qk::is_equal(reasons_for_attention, 0); }
[[nodiscard]] inline bool needs_attention_for(std::uint8_t reason) {
  return (qk::load(reasons_for_attention) & reason) != 0;
}

[[nodiscard]] inline State state_now() { return static_cast<State>(qk::load(state)); }

/** Whether new allocations are booked. */
[[nodiscard]] inline bool is_on() { return state_now() == State::kOn; }

/** Whether new allocations get marks, booked or not. */
[[nodiscard]] inline bool gives_marks() {
  return state_now() == State::kOn || state_now() == State::kFollowing;
}

[[nodiscard]] inline bool is_frozen() {
  return qk::is_equal(state, static_cast<std::uint8_t>(State::kFrozen));
}

/** Whether blocks get marks, and are not booked. */
[[nodiscard]] inline bool only_marks() {
  return qk::is_equal(state, static_cast<std::uint8_t>(State::kFollowing));
}

/** Books what is allocated from now on. */
void start();

/** Books no new allocations from now on. Blocks that were booked are followed to their release. */
void stop();

/** Gives blocks marks from now on, or does so only while the profile is on. */
void set_following(bool is_wanted);

/** Keeps the figures as they are from now on, if the profile was ever on. */
void freeze();

/** The process that the profile was switched on in. A fork takes it over into another one. */
[[nodiscard]] int first_process();

/** Bytes of the tables' mappings. Takes no lock: they can grow meanwhile. */
[[nodiscard]] std::uint64_t own_bytes() QK_UNCHECKED_LOCKING;

/** Whether there is something to report. */
[[nodiscard]] bool was_ever_on();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_STATE_H_

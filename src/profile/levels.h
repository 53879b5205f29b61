#ifndef QKMEM_PROFILE_LEVELS_H_
#define QKMEM_PROFILE_LEVELS_H_

#include <cstdint>

#include "support/shared_variable.h"

namespace qk::mem::profile {

/** How many bytes are in use, and when they were most. */
struct Level {
  std::uint64_t live;
  std::uint64_t highest;
  std::uint64_t highest_event;
};

/** Adds to a level that one thread at a time changes. Returns whether it is the highest now. */
[[gnu::always_inline]] inline bool raise_alone(Level& level, std::uint64_t bytes,
                                               std::uint64_t event) {
  const std::uint64_t live = qk::load(level.live) + bytes;
  qk::store(level.live, live);
  if (!qk::is_below(level.highest, live)) [[likely]]
    return false;
  qk::store(level.highest, live);
  qk::store(level.highest_event, event);
  return true;
}

/** Takes bytes away again. */
[[gnu::always_inline]] inline void lower_alone(Level& level, std::uint64_t bytes) {
  qk::bump(level.live, 0 - bytes);
}

/** Adds bytes, or takes some away, where several threads change a level. */
inline bool raise_shared(Level& level, std::int64_t bytes, std::uint64_t event) {
  const std::uint64_t live = qk::add(level.live, static_cast<std::uint64_t>(bytes), false);
  if (bytes <= 0) return false;
  std::uint64_t highest = qk::load(level.highest);
  while (live > highest) {
    if (!qk::replace(level.highest, highest, live)) continue;
    qk::store(level.highest_event, event);
    return true;
  }
  return false;
}

/** Takes the present level for the highest. */
inline void reset_level(Level& level) { qk::store(level.highest, qk::load(level.live)); }

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_LEVELS_H_

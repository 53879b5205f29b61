#ifndef QKMEM_CHECK_SETTINGS_H_
#define QKMEM_CHECK_SETTINGS_H_

#include <cstdint>

#include "profile/pool.h"
#include "support/shared_variable.h"

/**
 * What calls ask of the checks: whether new blocks get guards, and what becomes of released ones. It
 * changes under the registry's lock, and is read without it. A block tells by its mark whether it
 * has guards, so that a change of the settings doesn't matter to it.
 */
namespace qk::mem::check {

struct Settings {
  std::uint8_t is_on;
  std::uint8_t guards;  // new blocks get a guard behind them
  std::uint8_t guards_front;
  std::uint8_t fills_released;
  std::uint8_t quarantines;
  std::uint8_t fills_unused;  // memory of blocks that no piece has
  std::uint32_t guard_bytes;  // of each guard that there is; 0 until the first one is wanted
};
#pragma GCC visibility push(hidden)
extern Settings settings;
#pragma GCC visibility pop

inline constexpr std::uint32_t kGuardStep = 16;
inline constexpr std::uint32_t kMostGuardBytes = 4096;

/** Whether the checks are on. */
[[nodiscard]] inline bool is_on() { return !qk::is_equal(settings.is_on, 0); }

/** Whether calls on a handle are checked: also what they do with blocks from before. */
[[nodiscard]] inline bool checks(const qk_mem_handle& handle) {
  return is_on() && profile::is_watched(handle);
}

/** Whether a call that releases a block has more to do than to give it to the allocator. */
[[nodiscard]] inline bool cares_for(const qk_mem_handle& handle, profile::Mark mark) {
  return mark.is_guarded() || checks(handle);
}

/** Room around a block. */
struct Layout {
  std::uint32_t front = 0;
  std::uint32_t behind = 0;
  std::uint32_t flags = 0;  // of the block's mark

  [[nodiscard]] std::uint32_t total() const { return front + behind; }
};

/** The room around a block with a mark. */
[[nodiscard]] inline Layout layout_of(profile::Mark mark) {
  const std::uint32_t bytes = qk::load(settings.guard_bytes);
  const std::uint32_t flags =
      mark.site & (profile::Mark::kGuarded | profile::Mark::kGuardedInFront);
  return {(flags & profile::Mark::kGuardedInFront) != 0 ? bytes : 0,
          (flags & profile::Mark::kGuarded) != 0 ? bytes : 0, flags};
}

/** How much of it is behind the block. */
[[nodiscard]] inline std::uint32_t bytes_behind(profile::Mark mark) {
  return (mark.site & profile::Mark::kGuarded) != 0 ? qk::load(settings.guard_bytes) : 0;
}

/** The room that new blocks of watched handles have behind them. */
[[nodiscard]] inline Layout layout_behind_new() {
  if (qk::load(settings.guards) == 0) return {};
  return {0, qk::load(settings.guard_bytes), profile::Mark::kGuarded};
}

/** The room around a new block of a handle. */
[[nodiscard]] inline Layout layout_of_new(const qk_mem_handle& handle) {
  if (!profile::is_watched(handle)) return {};
  Layout layout = layout_behind_new();
  if (layout.behind != 0 && qk::load(settings.guards_front) != 0) {
    layout.front = layout.behind;
    layout.flags |= profile::Mark::kGuardedInFront;
  }
  return layout;
}

/** The same of a piece. It has nothing in front: other pieces are, with their guards. */
[[nodiscard]] inline Layout layout_of_new_piece(const qk_mem_handle& handle) {
  return profile::is_watched(handle) ? layout_behind_new() : Layout{};
}

/** The settings as one. Only what new guards are, and not how large, may change later. */
void set_settings(const Settings& now);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_SETTINGS_H_

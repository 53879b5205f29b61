#ifndef SUPPORT_LIVE_THREADS_H_
#define SUPPORT_LIVE_THREADS_H_

namespace qk {

/**
 * Whether the process has another thread besides the caller. One that was joined doesn't count,
 * even if the kernel still has to remove it. Returns true if /proc can't tell. Safe in signal
 * handlers; errno is preserved.
 */
[[nodiscard]] bool has_other_threads() noexcept;

}  // namespace qk

#endif  // SUPPORT_LIVE_THREADS_H_

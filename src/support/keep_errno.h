#ifndef SUPPORT_KEEP_ERRNO_H_
#define SUPPORT_KEEP_ERRNO_H_

#include <cerrno>

namespace qk {

/** Restores errno at the end of its scope: callers may read it after a call that must not fail. */
class KeepErrno {
 public:
  KeepErrno() noexcept : saved_(errno) {}
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_;
};

}  // namespace qk

#endif  // SUPPORT_KEEP_ERRNO_H_

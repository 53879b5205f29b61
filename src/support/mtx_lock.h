#ifndef SUPPORT_MTX_LOCK_H_
#define SUPPORT_MTX_LOCK_H_

#include "support/mtx.h"

namespace qk {

/** Holds a lock during its lifetime. */
class QK_SCOPED_CAPABILITY MtxLock {
 public:
  explicit MtxLock(Mtx& mtx) noexcept QK_ACQUIRE(mtx) : mtx_(mtx) { mtx_.lock(); }
  MtxLock(const MtxLock&) = delete;
  MtxLock& operator=(const MtxLock&) = delete;
  ~MtxLock() QK_RELEASE() { mtx_.unlock(); }

 private:
  Mtx& mtx_;
};

}  // namespace qk

#endif  // SUPPORT_MTX_LOCK_H_

#ifndef SUPPORT_NO_CANCELLATION_H_
#define SUPPORT_NO_CANCELLATION_H_

#include <pthread.h>

namespace qk {

/**
 * Keeps the calling thread from being cancelled (pthread_cancel()) during its lifetime. A
 * cancellation stays pending until the thread's next cancellation point after that. Needed around
 * each function that is one, because a thread that ended there would leave locks held, a line cut
 * off, and memory without its owner.
 */
class NoCancellation {
 public:
  NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;
  ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace qk

#endif  // SUPPORT_NO_CANCELLATION_H_

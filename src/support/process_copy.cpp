#include "support/process_copy.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace qk {

NoSignals::NoSignals() noexcept {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

NoSignals::~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

pid_t copy_process() noexcept {
  // A signal at its end, which would be the lowest byte, makes a child that wait() sees.
  const long result = syscall(SYS_clone, CLONE_UNTRACED, nullptr, nullptr, nullptr, nullptr);
  if (result == 0) {
    constexpr rlimit kNoCore = {0, 0};
    setrlimit(RLIMIT_CORE, &kNoCore);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  return static_cast<pid_t>(result);
}

bool wait_for_copy(pid_t copy) noexcept {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(copy, &status, __WALL);
  } while (ended < 0 && errno == EINTR);
  return ended == copy && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool has_copy_ended(pid_t copy) noexcept { return waitpid(copy, nullptr, __WALL | WNOHANG) != 0; }

bool wait_for_copy(pid_t copy, int milliseconds) noexcept {
  for (int waited = 0; waited < milliseconds; ++waited) {
    if (has_copy_ended(copy)) return true;
    constexpr timespec kMillisecond = {0, 1'000'000};
    nanosleep(&kMillisecond, nullptr);
  }
  kill(copy, SIGKILL);
  static_cast<void>(wait_for_copy(copy));
  return false;
}

}  // namespace qk

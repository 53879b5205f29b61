#include "support/end_runner.h"

#include <pthread.h>
#include <unistd.h>

namespace qk {
namespace {

constexpr std::uint64_t kIdBits = 0xffffff;

constinit std::atomic<pid_t> adopted_process{0};
constinit std::atomic<bool> watches_forks{false};

void note_process() { adopted_process.store(getpid()); }

}  // namespace

bool ActingThread::is_of_this_process() const {
  return process == (static_cast<std::uint64_t>(getpid()) & kIdBits);
}

ActingThread calling_thread(int signal_number) {
  return {static_cast<std::uint64_t>(getpid()) & kIdBits,
          static_cast<std::uint64_t>(gettid()) & kIdBits,
          static_cast<std::uint64_t>(signal_number) & 0xffff};
}

std::optional<ActingThread> Role::holder() const {
  const ActingThread now = holder_.load();
  if (!now.is_of_this_process()) return std::nullopt;
  return now;
}

std::optional<ActingThread> Role::take(const ActingThread& own) {
  ActingThread now = holder_.load();
  while (now.process != own.process) {
    if (holder_.compare_exchange_weak(now, own)) return std::nullopt;
  }
  return now;
}

void adopt_process() {
  note_process();
  if (!watches_forks.exchange(true)) pthread_atfork(nullptr, nullptr, note_process);
}

bool is_adopted_process() { return adopted_process.load() == getpid(); }

}  // namespace qk

#include "tests/lives/companion.h"

#include <dirent.h>

#include <utility>

namespace lives {
namespace {

int threads() {
  int count = -2;  // the entries for the folder itself and the one above
  DIR* tasks = opendir("/proc/self/task");
  while (readdir(tasks) != nullptr) ++count;
  closedir(tasks);
  return count;
}

}  // namespace

void Companion::start() {
  ends_ = false;
  thread_ = new std::thread([this] { run(); });
}

void Companion::join() {
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  thread_->join();
  delete std::exchange(thread_, nullptr);
  // The system lists a thread a little longer, and the library asks it for the threads.
  while (threads() != 1) std::this_thread::yield();
}

void Companion::act(const std::function<void()>& action) {
  std::unique_lock lock(mutex_);
  action_ = &action;
  changed_.notify_all();
  changed_.wait(lock, [this] { return action_ == nullptr; });
}

void Companion::forget() { thread_ = nullptr; }

void Companion::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ends_ || action_ != nullptr; });
    if (ends_) return;
    (*action_)();
    action_ = nullptr;
    changed_.notify_all();
  }
}

}  // namespace lives

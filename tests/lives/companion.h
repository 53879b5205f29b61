#ifndef TESTS_LIVES_COMPANION_H_
#define TESTS_LIVES_COMPANION_H_

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace lives {

/** A second thread that acts only while the first one waits for it. */
class Companion {
 public:
  [[nodiscard]] bool exists() const { return thread_ != nullptr; }
  void start();
  void join();

  /** Calls a function in that thread, and returns when it has. */
  void act(const std::function<void()>& action);

  /** In the child of a fork, where the thread is not. */
  void forget();

 private:
  void run();

  std::thread* thread_ = nullptr;
  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<void()>* action_ = nullptr;
  bool ends_ = false;
};

}  // namespace lives

#endif  // TESTS_LIVES_COMPANION_H_

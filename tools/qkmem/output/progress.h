#ifndef QKMEM_TOOLS_OUTPUT_PROGRESS_H_
#define QKMEM_TOOLS_OUTPUT_PROGRESS_H_

#include <chrono>
#include <cstdint>

namespace qk::command {

/**
 * Says on standard error how far an input was read, where that is a terminal, and once the work has
 * lasted for a second. The line is gone at the end.
 */
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /** To be called now and then, with the bytes so far and all of them, 0 if that is not known. */
  void show(std::uint64_t read, std::uint64_t all);

 private:
  using Time = std::chrono::steady_clock;

  const bool is_terminal_;
  const Time::time_point start_ = Time::now();
  Time::time_point next_ = start_ + std::chrono::seconds(1);
  bool is_shown_ = false;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OUTPUT_PROGRESS_H_

#include "output/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "output/words.h"

namespace qk::command {

Progress::Progress() : is_terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (is_shown_) fmt::print(stderr, "\r\x1B[K");
}

void Progress::show(std::uint64_t read, std::uint64_t all) {
  if (!is_terminal_ || Time::now() < next_) return;
  next_ = Time::now() + std::chrono::milliseconds(200);
  is_shown_ = true;
  const double seconds = std::chrono::duration<double>(Time::now() - start_).count();
  const auto rate = static_cast<std::uint64_t>(static_cast<double>(read) / seconds);
  fmt::print(stderr, "\r\x1B[K{} read, {} a second", size_text(read), size_text(rate));
  if (all > read && rate != 0) fmt::print(stderr, ", {} s left", (all - read) / rate + 1);
  std::fflush(stderr);
}

}  // namespace qk::command

#ifndef QKMEM_TOOLS_OUTPUT_WORDS_H_
#define QKMEM_TOOLS_OUTPUT_WORDS_H_

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "formats/figures.h"
#include "ledger/figures.h"

/** Figures in lines for people. */
namespace qk::command {

[[nodiscard]] inline std::string count_text(std::uint64_t count) {
  return std::string(mem::count_figure(count).text());
}

[[nodiscard]] inline std::string size_text(std::uint64_t bytes) {
  return std::string(mem::size_figure(bytes).text());
}

/** "2.4 s". */
[[nodiscard]] inline std::string duration_text(std::uint64_t nanoseconds) {
  const auto ns = static_cast<double>(nanoseconds);
  if (nanoseconds < 1'000) return fmt::format("{} ns", nanoseconds);
  if (nanoseconds < 1'000'000) return fmt::format("{:.1f} us", ns / 1e3);
  if (nanoseconds < 1'000'000'000) return fmt::format("{:.1f} ms", ns / 1e6);
  return fmt::format("{:.1f} s", ns / 1e9);
}

/** "1,240 blocks". */
[[nodiscard]] inline std::string counted(std::uint64_t count, std::string_view what) {
  return fmt::format("{} {}{}", count_text(count), what, count == 1 ? "" : "s");
}

/** "34.5 KiB in 1,240 blocks". */
[[nodiscard]] inline std::string amount_text(const Amount& amount) {
  return size_text(amount.bytes) + " in " + counted(amount.blocks, "block");
}

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OUTPUT_WORDS_H_

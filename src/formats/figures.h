#ifndef QKMEM_FORMATS_FIGURES_H_
#define QKMEM_FORMATS_FIGURES_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/cursor.h"

/**
 * Figures as people read them, the same in every locale. No function allocates or fails. Safe in a
 * signal handler.
 */
namespace qk::mem {

/** A short text by value. */
class Figure {
 public:
  /** `write` gets a cursor, and writes no more than kMost bytes. */
  template <class Write>
  explicit Figure(const Write& write) noexcept {
    qk::Cursor cursor(text_);
    write(cursor);
    length_ = cursor.length();
  }

  [[nodiscard]] std::string_view text() const noexcept { return {text_, length_}; }

  static constexpr std::size_t kMost = 32;

 private:
  std::size_t length_ = 0;
  char text_[kMost + qk::Cursor::kOverrun];
};

/** A difference without its sign, also that of the least number. */
[[nodiscard]] constexpr std::uint64_t amount_of(std::int64_t change) noexcept {
  const auto bits = static_cast<std::uint64_t>(change);
  return change < 0 ? 0 - bits : bits;
}

/** A number with commas between thousands: "181,020". */
[[nodiscard]] Figure count_figure(std::uint64_t count) noexcept;

/** A difference of counts, with its sign: "+1,020", "-3", "0". */
[[nodiscard]] Figure count_change_figure(std::int64_t change) noexcept;

/**
 * A size with one decimal, in the unit that leaves fewer than 1,024 of it: "1.0 KiB". Bytes have no
 * decimal: "1,023 B". Halves are rounded up.
 */
[[nodiscard]] Figure size_figure(std::uint64_t bytes) noexcept;

/** A difference of sizes, with its sign: "+1.0 KiB", "-3 B", "0 B". */
[[nodiscard]] Figure size_change_figure(std::int64_t bytes) noexcept;

/**
 * A share as a percentage without decimals: "39%". Only nothing is "0%" and only all is "100%", so
 * that a small part shows as "<1%" and a part that lacks little as "99%". More than all is
 * possible, and a part of nothing is "-".
 */
[[nodiscard]] Figure percent_figure(std::uint64_t part, std::uint64_t whole) noexcept;

/**
 * A duration with one decimal below a minute, and in two units from there on: "812 ns", "3.1 us",
 * "3.1 ms", "12.4 s", "2 min 5 s", "3 h 12 min", "5 d 4 h". Halves are rounded up.
 */
[[nodiscard]] Figure duration_figure(std::uint64_t nanoseconds) noexcept;

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_FIGURES_H_

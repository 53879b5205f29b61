#include "formats/figures.h"

namespace qk::mem {
namespace {

using qk::Cursor;

void put_digit(Cursor& text, std::uint64_t digit) { text.put(static_cast<char>('0' + digit)); }

void put_count(Cursor& text, std::uint64_t count) {
  if (count < 1000) {
    text.number(count);
    return;
  }
  put_count(text, count / 1000);
  text.put(',');
  put_digit(text, count / 100 % 10);
  put_digit(text, count / 10 % 10);
  put_digit(text, count % 10);
}

void put_tenths(Cursor& text, std::uint64_t tenths) {
  put_count(text, tenths / 10);
  text.put('.');
  put_digit(text, tenths % 10);
}

/** The quotient, rounded to the nearest; halves up. */
std::uint64_t rounded(std::uint64_t dividend, std::uint64_t divisor) {
  const std::uint64_t rest = dividend % divisor;
  return dividend / divisor + (rest >= divisor - rest ? 1 : 0);
}

/** Same as rounded(10 * bytes, 2^shift), which could overflow. */
std::uint64_t tenths_of_unit(std::uint64_t bytes, unsigned shift) {
  const std::uint64_t rest = bytes & ((std::uint64_t{1} << shift) - 1);
  return 10 * (bytes >> shift) + rounded(10 * rest, std::uint64_t{1} << shift);
}

constexpr std::string_view kUnits[] = {" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};

void put_size(Cursor& text, std::uint64_t bytes) {
  if (bytes < 1024) {
    put_count(text, bytes);
    text.put(" B");
    return;
  }
  // Rounded first: what rounds to 1,024 of a unit is 1.0 of the next.
  unsigned unit = 0;
  std::uint64_t tenths = tenths_of_unit(bytes, 10);
  while (tenths >= 10240) tenths = tenths_of_unit(bytes, 10 * (++unit + 1));
  put_tenths(text, tenths);
  text.put(kUnits[unit]);
}

/** Rounded to the nearest; at most 2^64 - 1. */
std::uint64_t percent_of(std::uint64_t part, std::uint64_t whole) {
  // Dividing both loses less than a millionth.
  for (; whole > UINT64_MAX / 101; part /= 2) whole /= 2;
  const std::uint64_t times = part / whole;
  if (times >= UINT64_MAX / 100) return UINT64_MAX;
  return 100 * times + rounded(100 * (part % whole), whole);
}

/** Whether it is less than a hundredth, without the rounding of percent_of(). */
bool is_below_one_percent(std::uint64_t part, std::uint64_t whole) {
  return part < whole / 100 || (part == whole / 100 && whole % 100 != 0);
}

void put_percent(Cursor& text, std::uint64_t part, std::uint64_t whole) {
  if (part == 0) {
    text.put("0%");
  } else if (whole == 0) {
    text.put('-');
  } else if (is_below_one_percent(part, whole)) {
    text.put("<1%");
  } else {
    const std::uint64_t percent = percent_of(part, whole);
    put_count(text, part < whole && percent >= 100 ? 99 : percent);
    text.put('%');
  }
}

/** A unit of time with one decimal. */
struct FineUnit {
  std::uint64_t nanoseconds;
  std::uint64_t most;  // of the unit; from there on the next one is used
  std::string_view name;
};
constexpr FineUnit kFineUnits[] = {
    {1'000, 1'000, " us"}, {1'000'000, 1'000, " ms"}, {1'000'000'000, 60, " s"}};

/** Two units of time. */
struct CoarseUnit {
  std::uint64_t nanoseconds;  // of the smaller one
  std::uint64_t ratio;        // smaller ones in the larger one
  std::uint64_t most;         // of the larger one; from there on the next two are used
  std::string_view large;
  std::string_view small;
};
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr CoarseUnit kCoarseUnits[] = {{kSecond, 60, 60, " min ", " s"},
                                       {60 * kSecond, 60, 24, " h ", " min"},
                                       {3600 * kSecond, 24, UINT64_MAX, " d ", " h"}};

bool put_fine(Cursor& text, std::uint64_t nanoseconds, const FineUnit& unit) {
  const std::uint64_t tenths = rounded(nanoseconds, unit.nanoseconds / 10);
  if (tenths >= 10 * unit.most) return false;
  put_tenths(text, tenths);
  text.put(unit.name);
  return true;
}

bool put_coarse(Cursor& text, std::uint64_t nanoseconds, const CoarseUnit& unit) {
  const std::uint64_t small = rounded(nanoseconds, unit.nanoseconds);
  if (small / unit.ratio >= unit.most) return false;
  put_count(text, small / unit.ratio);
  text.put(unit.large);
  put_count(text, small % unit.ratio);
  text.put(unit.small);
  return true;
}

void put_duration(Cursor& text, std::uint64_t nanoseconds) {
  if (nanoseconds < 1'000) {
    text.number(nanoseconds).put(" ns");
    return;
  }
  for (const FineUnit& unit : kFineUnits) {
    if (put_fine(text, nanoseconds, unit)) return;
  }
  for (const CoarseUnit& unit : kCoarseUnits) {
    if (put_coarse(text, nanoseconds, unit)) return;
  }
}

void put_sign(Cursor& text, std::int64_t value) {
  if (value != 0) text.put(value < 0 ? '-' : '+');
}

}  // namespace

Figure count_figure(std::uint64_t count) noexcept {
  return Figure([count](Cursor& text) { put_count(text, count); });
}

Figure count_change_figure(std::int64_t change) noexcept {
  return Figure([change](Cursor& text) {
    put_sign(text, change);
    put_count(text, amount_of(change));
  });
}

Figure size_figure(std::uint64_t bytes) noexcept {
  return Figure([bytes](Cursor& text) { put_size(text, bytes); });
}

Figure size_change_figure(std::int64_t bytes) noexcept {
  return Figure([bytes](Cursor& text) {
    put_sign(text, bytes);
    put_size(text, amount_of(bytes));
  });
}

Figure percent_figure(std::uint64_t part, std::uint64_t whole) noexcept {
  return Figure([part, whole](Cursor& text) { put_percent(text, part, whole); });
}

Figure duration_figure(std::uint64_t nanoseconds) noexcept {
  return Figure([nanoseconds](Cursor& text) { put_duration(text, nanoseconds); });
}

}  // namespace qk::mem

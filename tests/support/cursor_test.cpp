#include "support/cursor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <string_view>

namespace {

constexpr char kUntouched = '\x7f';

/** Room in which bytes that were written can be told from others. */
class Room {
 public:
  Room() { bytes_.fill(kUntouched); }

  [[nodiscard]] qk::Cursor start() { return qk::Cursor(bytes_.data()); }

  [[nodiscard]] bool is_untouched_from(std::size_t begin) const {
    return std::all_of(bytes_.begin() + static_cast<std::ptrdiff_t>(begin), bytes_.end(),
                       [](char c) { return c == kUntouched; });
  }

 private:
  std::array<char, 128> bytes_;
};

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  char text[200];
  std::snprintf(text, sizeof text, format, arguments...);
  return text;
}

/** Calls `put` with a cursor and expects the text, and nothing written far behind it. */
template <class Put>
void expect_written(const std::string& expected, Put put) {
  Room room;
  qk::Cursor cursor = room.start();
  put(cursor);
  ASSERT_EQ(cursor.text(), expected);
  ASSERT_EQ(cursor.length(), expected.size());
  ASSERT_TRUE(room.is_untouched_from(expected.size() + qk::Cursor::kOverrun)) << expected;
}

void expect_number(std::uint64_t value, int width) {
  expect_written(formatted("%*zu", width, value), [&](qk::Cursor& cursor) {
    cursor.number(value, static_cast<std::size_t>(width));
  });
}

void expect_signed_number(std::int64_t value, int width) {
  expect_written(formatted("%*zd", width, value), [&](qk::Cursor& cursor) {
    cursor.signed_number(value, static_cast<std::size_t>(width));
  });
}

constexpr int kWidths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 24};

TEST(Cursor, ShowsSmallNumbersAsTheCLibraryDoes) {
  for (int value = 0; value < 12000; ++value) {
    expect_number(static_cast<std::uint64_t>(value), 0);
    expect_number(static_cast<std::uint64_t>(value), 7);
    expect_signed_number(-value, 0);
    expect_signed_number(-value, 5);
  }
}

TEST(Cursor, ShowsNumbersBesideEachPowerOfTenInEachWidth) {
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits, power *= 10) {
    for (const std::uint64_t value : {power - 1, power, power + 1, 7 * power / 3}) {
      for (const int width : kWidths) {
        expect_number(value, width);
        expect_signed_number(static_cast<std::int64_t>(value), width);
        expect_signed_number(static_cast<std::int64_t>(0 - value), width);
      }
    }
  }
}

TEST(Cursor, ShowsTheLargestAndTheSmallestNumber) {
  for (const int width : kWidths) {
    expect_number(std::numeric_limits<std::uint64_t>::max(), width);
    expect_signed_number(std::numeric_limits<std::int64_t>::max(), width);
    expect_signed_number(std::numeric_limits<std::int64_t>::min(), width);
  }
}

TEST(Cursor, ShowsAddressesAsTheCLibraryDoes) {
  std::mt19937_64 random(20261122);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t value = i % 50 == 0 ? 0 : random() >> (random() % 64);
    const int digits = i % 2 == 0 ? 16 : static_cast<int>(random() % 24) - 3;
    expect_written(formatted("%.*zx", digits, value),
                   [&](qk::Cursor& cursor) { cursor.hex(value, digits); });
  }
}

TEST(Cursor, ShowsTextsAsTheCLibraryDoes) {
  for (const char* text : {"", "a", "ab", "application.cpp"}) {
    expect_written(text, [&](qk::Cursor& cursor) { cursor.put(text); });
    for (int width = 0; width < 20; ++width) {
      expect_written(formatted("%*s", width, text), [&](qk::Cursor& cursor) {
        cursor.put(text, static_cast<std::size_t>(width));
      });
    }
  }
  const char* none = nullptr;
  expect_written("(null)", [&](qk::Cursor& cursor) { cursor.put(none); });
}

TEST(Cursor, WritesOnePieceAfterTheOther) {
  expect_written(std::string("a\0 12-3 000000000000001fz", 25), [](qk::Cursor& cursor) {
    cursor.put('a').put('\0').number(12, 3).signed_number(-3).put(" ").hex(31, 16).put('z');
  });
}

TEST(Cursor, AcceptsAnEmptyTextWithoutAnAddress) {
  expect_written("a  b", [](qk::Cursor& cursor) {
    cursor.put('a').put(std::string_view()).put(std::string_view(), 2).put('b');
  });
}

TEST(Cursor, TakesBackWhatExceedsALength) {
  expect_written("abc|", [](qk::Cursor& cursor) { cursor.put("abcdef").shorten(3).put('|'); });
  expect_written("abc|", [](qk::Cursor& cursor) { cursor.put("abc").shorten(3).put('|'); });
  expect_written("abc|", [](qk::Cursor& cursor) { cursor.put("abc").shorten(4).put('|'); });
}

}  // namespace

#include "support/line.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

namespace {

/** Random numbers of all lengths. Every number of bits is equally likely. */
class Numbers {
 public:
  std::uint64_t next() { return random_() >> (random_() % 64); }

 private:
  std::mt19937_64 random_{20260711};
};

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  char text[1200];
  std::snprintf(text, sizeof text, format, arguments...);
  return text;
}

TEST(Line, ShowsNumbersAsTheCLibraryDoes) {
  Numbers numbers;
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t value = numbers.next();
    const auto signed_value = static_cast<std::int64_t>(i % 2 == 0 ? value : -value);
    const int width = static_cast<int>(numbers.next() % 25);
    qk::Line line;
    line.number(value).put('|').number(value, static_cast<std::size_t>(width)).put('|');
    line.signed_number(signed_value).put('|');
    line.signed_number(signed_value, static_cast<std::size_t>(width)).put('\n');
    ASSERT_EQ(line.finish(), formatted("%zu|%*zu|%zd|%*zd\n", value, width, value, signed_value,
                                       width, signed_value));
  }
}

TEST(Line, ShowsAddressesAsTheCLibraryDoes) {
  Numbers numbers;
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t value = i % 50 == 0 ? 0 : numbers.next();
    const int digits = static_cast<int>(numbers.next() % 24) - 3;
    qk::Line line;
    line.put('[').hex(value, digits).put("]\n");
    ASSERT_EQ(line.finish(), formatted("[%.*zx]\n", digits, value)) << value << ", " << digits;
  }
}

TEST(Line, ShowsTextsAsTheCLibraryDoes) {
  for (const char* text : {"", "a", "ab", "application.cpp"}) {
    for (int width = 0; width < 20; ++width) {
      qk::Line line;
      line.put(text).put('|').put(text, static_cast<std::size_t>(width)).put('\n');
      EXPECT_EQ(line.finish(), formatted("%s|%*s\n", text, width, text));
    }
  }
  const char* none = nullptr;
  EXPECT_EQ(qk::Line().put(none).put('\n').finish(), "(null)\n");
}

TEST(Line, AcceptsAnEmptyTextWithoutAnAddress) {
  qk::Line line;
  line.put('a').put(std::string_view()).put(std::string_view(), 2).put('b');
  EXPECT_EQ(line.finish(), "a  b");
}

TEST(Line, CanHoldZeroBytes) {
  qk::Line line;
  line.put("a").put('\0').put("b\n");
  EXPECT_EQ(line.finish(), std::string_view("a\0b\n", 4));
}

TEST(Line, HoldsAsManyBytesAsFit) {
  const std::string text(1022, 'x');
  EXPECT_EQ(qk::Line().put(text.c_str()).put('\n').finish(), text + "\n");
}

TEST(Line, IsCutIfTooLongButKeepsItsNewline) {
  const std::string text(1023, 'x');
  EXPECT_EQ(qk::Line().put(text.c_str()).put('\n').finish(), text.substr(1) + "\n");
  const std::string longer(5000, 'x');
  EXPECT_EQ(qk::Line().put(longer.c_str()).number(17).put('\n').finish(), text.substr(1) + "\n");
}

TEST(Line, AppendsAtOnceOnlyWhatItHasRoomFor) {
  const std::string text(1020, 'x');
  qk::Line line;
  line.put(text.c_str());
  EXPECT_FALSE(line.append(4, [](qk::Cursor& /*cursor*/) { FAIL() << "was called"; }));
  EXPECT_TRUE(line.append(3, [](qk::Cursor& cursor) { cursor.put('a').put('b'); }));
  EXPECT_EQ(line.put('\n').finish(), text + "ab\n");
}

TEST(Line, CanBeShortenedAfterItGrewTooLong) {
  const std::string longer(5000, 'x');
  qk::Line line;
  line.put("ab").put(longer.c_str()).shorten(4).put('\n');
  EXPECT_EQ(line.finish(), "abxx\n");
}

}  // namespace

#include "support/utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

/** The text with '?' in place of each U+FFFD, and how many pieces it came in. */
std::string converted(std::string_view text) {
  std::string all;
  std::size_t pieces = 0;
  qk::put_as_utf8(text, [&](std::string_view piece) {
    all += piece == qk::kReplacement ? "?" : piece;
    ++pieces;
  });
  return all + " " + std::to_string(pieces);
}

TEST(Utf8, StaysInOnePieceIfItIsValid) {
  EXPECT_EQ(converted("app.c"), "app.c 1");
  EXPECT_EQ(converted("gr\xC3\xB6\xC3\x9F"
                      "e \xE2\x82\xAC \xF0\x9F\x98\x80!"),
            "gr\xC3\xB6\xC3\x9F"
            "e \xE2\x82\xAC \xF0\x9F\x98\x80! 1");
  EXPECT_EQ(converted(std::string_view("\0\x7F", 2)), std::string("\0\x7F 1", 4));
  EXPECT_EQ(converted("\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80"
                      "\xF4\x8F\xBF\xBF"),
            "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80"
            "\xF4\x8F\xBF\xBF 1");
  EXPECT_EQ(converted(""), " 0");
  EXPECT_EQ(converted({}), " 0");
}

TEST(Utf8, ReplacesBytesThatBeginNoCharacter) {
  EXPECT_EQ(converted("a\x80z"), "a?z 3");
  EXPECT_EQ(converted("\xBF\xC0\xC1\xF5\xFF"), "????? 5");
  EXPECT_EQ(converted("\xC0\x80\xC1\xBF\xF5\x80"), "?????? 6");
}

TEST(Utf8, ReplacesWhatIsCutOffByOneCharacter) {
  EXPECT_EQ(converted("a\xE2\x82"), "a? 2");
  EXPECT_EQ(converted("\xE2\x82z"), "?z 2");
  EXPECT_EQ(converted("\xF0\x9F\x98"), "? 1");
  EXPECT_EQ(converted("\xF0\x9F\x98\xF0\x9F\x98\x80"), "?\xF0\x9F\x98\x80 2");
  EXPECT_EQ(converted("\xC3"), "? 1");
  EXPECT_EQ(converted("\xC3\xC3\xB6"), "?\xC3\xB6 2");
}

TEST(Utf8, ReplacesEachByteOfCharactersThatMustNotBe) {
  EXPECT_EQ(converted("\xE0\x9F\xBF"), "??? 3");
  EXPECT_EQ(converted("\xED\xA0\x80"), "??? 3");
  EXPECT_EQ(converted("\xF0\x8F\xBF\xBF"), "???? 4");
  EXPECT_EQ(converted("\xF4\x90\x80\x80"), "???? 4");
}

}  // namespace

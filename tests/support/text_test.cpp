#include "support/text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

int sign(int number) { return number < 0 ? -1 : number > 0 ? 1 : 0; }

TEST(TextComparison, IgnoresTheCaseOfLetters) {
  struct Case {
    const char* left;
    const char* right;
    int sign;
  };
  const Case cases[] = {
      {"STDERR", "stderr", 0}, {"", "", 0},           {"a", "B", -1},   {"B", "a", 1},
      {"ab", "ABC", -1},       {"ABC", "ab", 1},      {nullptr, "", 0}, {nullptr, "a", -1},
      {"a", nullptr, 1},       {nullptr, nullptr, 0}, {"[", "{", -1},   {"@", "`", -1},
      {"\xc4", "\xe4", -1},    {"\xff", "a", 1},      {"z_", "Z[", 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(sign(qk_stricmp(c.left, c.right)), c.sign)
        << (c.left == nullptr ? "null" : c.left) << " and "
        << (c.right == nullptr ? "null" : c.right);
  }
}

TEST(TextLength, IsZeroForNull) {
  EXPECT_EQ(qk_strlen("OPTIONS"), 7U);
  EXPECT_EQ(qk_strlen(""), 0U);
  EXPECT_EQ(qk_strlen(nullptr), 0U);
}

TEST(FileName, IsWhatFollowsTheLastSlash) {
  EXPECT_STREQ(qk_file_name_only("/home/src/app.c"), "app.c");
  EXPECT_STREQ(qk_file_name_only("app.c"), "app.c");
  EXPECT_STREQ(qk_file_name_only("/app.c"), "app.c");
  EXPECT_STREQ(qk_file_name_only("src/"), "");
  EXPECT_STREQ(qk_file_name_only(""), "");
  EXPECT_STREQ(qk_file_name_only(nullptr), "(null)");
}

TEST(FileName, PointsIntoTheCallersString) {
  const char path[] = "src/app.c";
  EXPECT_EQ(qk_file_name_only(path), path + 4);
}

TEST(CaseConversion, ChangesLettersInPlaceAndNoOtherBytes) {
  char text[] = "aZ09@[`{\xc4\xe4\xff MiXed";
  qk::upper_case(text);
  EXPECT_STREQ(text, "AZ09@[`{\xc4\xe4\xff MIXED");
  qk::lower_case(text);
  EXPECT_STREQ(text, "az09@[`{\xc4\xe4\xff mixed");
  qk::upper_case(nullptr);
  qk::lower_case(nullptr);
}

TEST(TextCopy, IsCutToItsBufferAndTerminated) {
  char buffer[6] = "#####";
  qk::copy_text(buffer, 4, "abcdef");
  EXPECT_EQ(std::string(buffer, 6), std::string("abc\0#\0", 6));
  qk::copy_text(buffer, sizeof buffer, "abcde");
  EXPECT_STREQ(buffer, "abcde");
  qk::copy_text(buffer, sizeof buffer, "x");
  EXPECT_STREQ(buffer, "x");
}

TEST(TextCopy, AcceptsNullAndEmptyBuffers) {
  char buffer[3] = "ab";
  qk::copy_text(buffer, 0, "zz");
  EXPECT_STREQ(buffer, "ab");
  qk::copy_text(buffer, 1, "zz");
  EXPECT_STREQ(buffer, "");
  buffer[0] = 'a';
  qk::copy_text(buffer, sizeof buffer, nullptr);
  EXPECT_STREQ(buffer, "");
  qk::copy_text(nullptr, 3, "zz");
}

TEST(TextCopy, ReadsNoFurtherThanItsBufferNeeds) {
  const char unterminated[3] = {'a', 'b', 'c'};
  char buffer[4];
  qk::copy_text(buffer, sizeof buffer, unterminated);
  EXPECT_STREQ(buffer, "abc");
}

}  // namespace

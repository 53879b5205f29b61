#include "support/page_buffer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

namespace {

TEST(PageBuffer, KeepsAllTextAsItGrows) {
  qk::PageBuffer buffer;
  std::string expected;
  EXPECT_EQ(buffer.text(), "");
  for (int i = 0; i < 100000; ++i) {
    const std::string line = "line " + std::to_string(i) + "\n";
    ASSERT_TRUE(buffer.append(line));
    expected += line;
  }
  EXPECT_EQ(buffer.text(), expected);
  buffer.clear();
  EXPECT_EQ(buffer.text(), "");
  EXPECT_TRUE(buffer.append("again"));
  EXPECT_EQ(buffer.text(), "again");
  buffer.clear();
}

TEST(PageBuffer, TakesEmptyTexts) {
  qk::PageBuffer buffer;
  EXPECT_TRUE(buffer.append(""));
  EXPECT_TRUE(buffer.append({}));
  EXPECT_TRUE(buffer.append("a"));
  EXPECT_TRUE(buffer.append({}));
  EXPECT_EQ(buffer.text(), "a");
  buffer.clear();
}

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST(PageBuffer, KeepsItsTextIfThereIsNoMemory) {
  qk::PageBuffer buffer;
  ASSERT_TRUE(buffer.append("kept"));
  rlimit before = {};
  getrlimit(RLIMIT_AS, &before);
  const std::string large(65536, 'x');
  const rlimit none = {0, before.rlim_max};
  setrlimit(RLIMIT_AS, &none);
  EXPECT_FALSE(buffer.append(large));
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(buffer.text(), "kept");
  EXPECT_TRUE(buffer.append(large));
  EXPECT_EQ(buffer.text(), "kept" + large);
  buffer.clear();
}
#endif

}  // namespace

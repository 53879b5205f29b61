#include "support/known_paths.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string name_in(const char* path) { return qk::name_in_path(path); }

TEST(KnownPath, HasTheNameEachTime) {
  static const char path[] = "src/pool/app.c";
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(qk::name_in_path(path), path + 9);
  }
}

TEST(KnownPath, CanHaveNoFolderOrNoNameOrBeNull) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(name_in("app.c"), "app.c");
    EXPECT_EQ(name_in("src/"), "");
    EXPECT_EQ(name_in(""), "");
    EXPECT_EQ(name_in(nullptr), "(null)");
  }
}

TEST(KnownPath, CanBeOneOfMany) {
  static const char paths[] =
      "a/1.c\0bb/2.c\0ccc/3.c\0dddd/4.c\0eeeee/5.c\0ffffff/6.c\0ggggggg/7.c\0h/8.c\0";
  for (int i = 0; i < 3; ++i) {
    int number = 1;
    for (const char* path = paths; *path != '\0'; path += std::strlen(path) + 1) {
      EXPECT_EQ(name_in(path), std::to_string(number++) + ".c");
    }
  }
}

TEST(KnownPath, IsNotRememberedIfItCanChange) {
  std::vector<char> text(100);
  std::strcpy(text.data(), "src/app.c");
  EXPECT_EQ(name_in(text.data()), "app.c");
  std::strcpy(text.data(), "source/folder/pool.c");
  EXPECT_EQ(name_in(text.data()), "pool.c");
}

TEST(KnownPath, MayBeLongerThanAnOffsetCanSay) {
  static constexpr auto kPath = [] {
    struct Text {
      char text[70000] = {};
    } path;
    for (char& c : path.text) c = 'x';
    path.text[69000] = '/';
    path.text[69999] = '\0';
    return path;
  }();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(qk::name_in_path(kPath.text), kPath.text + 69001);
}

}  // namespace

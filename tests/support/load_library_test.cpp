#include "support/load_library.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(LoadedLibrary, HasFunctionsByTheirNames) {
  void* const library = qk::load_library("libm.so.6");
  ASSERT_NE(library, nullptr);
  double (*absolute)(double) = nullptr;
  ASSERT_TRUE(qk::find_function(library, "fabs", absolute));
  EXPECT_EQ(absolute(-2.0), 2.0);
}

TEST(LoadedLibrary, HasNoOtherFunctions) {
  void* const library = qk::load_library("libm.so.6");
  double (*function)(double) = [](double number) { return number; };
  EXPECT_FALSE(qk::find_function(library, "no_function_of_this_name", function));
  EXPECT_EQ(function, nullptr);
}

TEST(LoadedLibrary, IsNullAndLeavesErrnoIfThereIsNone) {
  errno = 4242;
  EXPECT_EQ(qk::load_library("libno_library_of_this_name.so.1"), nullptr);
  EXPECT_EQ(errno, 4242);
}

TEST(Process, HasFunctionsOfTheLibrariesThatItIsLinkedWith) {
  EXPECT_TRUE(qk::process_has("malloc"));
  EXPECT_FALSE(qk::process_has("no_function_of_this_name"));
}

}  // namespace

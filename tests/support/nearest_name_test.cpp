#include "support/nearest_name.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace {

std::string nearest(std::string_view word, std::initializer_list<std::string_view> names) {
  qk::NearestName nearest(word);
  for (const std::string_view name : names) nearest.try_name(name);
  return std::string(nearest.name());
}

TEST(NearestName, HasTheFewestLettersChangedAddedOrRemoved) {
  EXPECT_EQ("STACKS", nearest("STAKS", {"PEAK", "STACKS", "SITES"}));
  EXPECT_EQ("SITES", nearest("SITTES", {"PEAK", "STACKS", "SITES"}));
  EXPECT_EQ("PEAK", nearest("PEEK", {"SITES", "PEAK", "STACKS"}));
}

TEST(NearestName, IsFoundInEitherCase) {
  EXPECT_EQ("STACKS", nearest("stacs", {"PEAK", "STACKS"}));
}

TEST(NearestName, IsTheFirstOfEquallyNearOnes) { EXPECT_EQ("ab", nearest("aa", {"ab", "ac"})); }

TEST(NearestName, IsEmptyWithoutNames) { EXPECT_EQ("", nearest("word", {})); }

TEST(NearestName, OfALongWordGoesByItsBeginning) {
  const std::string tail(1000, 'x');
  EXPECT_EQ("before" + tail, nearest("befor" + tail, {"after", "before" + tail}));
  EXPECT_EQ("after", nearest("", {"before" + tail, "after"}));
}

}  // namespace

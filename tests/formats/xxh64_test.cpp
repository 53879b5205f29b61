#include "formats/xxh64.h"

#include <gtest/gtest.h>

namespace {

using qk::mem::xxh64;

TEST(Xxh64, IsThatOfItsDescription) {
  EXPECT_EQ(0xEF46DB3751D8E999U, xxh64(""));
  EXPECT_EQ(0xD24EC4F1A98C6E5BU, xxh64("a"));
  EXPECT_EQ(0x44BC2CF5AD770999U, xxh64("abc"));
  EXPECT_EQ(0x32DD38952C4BC720U, xxh64("xxhash"));
  EXPECT_EQ(0xB559B98D844E0635U, xxh64("xxhash", 20141025));
  EXPECT_EQ(0xFBCEA83C8A378BF1U, xxh64("Nobody inspects the spammish repetition"));
}

}  // namespace

#include "support/hash.h"

#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <string>

namespace {

struct Case {
  const char* key;
  int buckets;
  int seed;
  int bucket;
};

// The bucket of a key must be the same in every release: FNV-1a's published values.
TEST(Hash, IsTheSameInEveryProcess) {
  const Case cases[] = {
      {"", INT_MAX, 0, static_cast<int>(0x811c9dc5U % INT_MAX)},
      {"a", INT_MAX, 0, static_cast<int>(0xe40c292cU % INT_MAX)},
      {"foobar", INT_MAX, 0, static_cast<int>(0xbf9cf968U % INT_MAX)},
      {"", 32, 0, 0x05},
      {"a", 32, 0, 0x0c},
      {"foobar", 32, 0, 0x08},
      {nullptr, 32, 0, 0x05},
      {"", 32, 1, 0x04},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(qk_hash(c.key, c.buckets, c.seed), c.bucket)
        << (c.key == nullptr ? "null" : c.key) << " of " << c.buckets << " seed " << c.seed;
  }
}

TEST(Hash, StaysBelowTheNumberOfBucketsAndReachesAllOfThem) {
  std::set<int> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(qk_hash(std::to_string(i).c_str(), 32, 0));
  EXPECT_EQ(seen.size(), 32U);
  EXPECT_EQ(*seen.begin(), 0);
  EXPECT_EQ(*seen.rbegin(), 31);
}

TEST(Hash, AcceptsBytesAbove127AndNegativeSeeds) {
  for (const int seed : {0, -1, INT_MIN, INT_MAX}) {
    const int bucket = qk_hash("\xff\x80\xc3", 7, seed);
    EXPECT_GE(bucket, 0);
    EXPECT_LT(bucket, 7);
  }
}

TEST(Hash, IsZeroWithoutBuckets) {
  EXPECT_EQ(qk_hash("AB", 1, 0), 0);
  EXPECT_EQ(qk_hash("AB", 0, 0), 0);
  EXPECT_EQ(qk_hash("AB", -32, 0), 0);
}

}  // namespace

#include "support/search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

std::int32_t find_one_by_one(const std::vector<std::uint16_t>& values, std::int32_t from,
                             std::int32_t end, std::uint16_t value) {
  const auto at = std::find(values.begin() + from, values.begin() + end, value);
  return at == values.begin() + end ? -1 : static_cast<std::int32_t>(at - values.begin());
}

TEST(Search, FindsTheFirstOfSeveral) {
  std::vector<std::uint16_t> values(500, 7);
  for (std::size_t first = 0; first < 400; ++first) {
    values.assign(500, 7);
    values[first] = 9;
    values[450] = 9;
    EXPECT_EQ(qk::find_value(values.data(), 0, 500, 9), static_cast<std::int32_t>(first));
  }
}

TEST(Search, LooksNeitherBeforeNorAfterItsRange) {
  std::mt19937 random(20260712);
  for (int i = 0; i < 20000; ++i) {
    std::vector<std::uint16_t> values(1 + random() % 300);
    for (auto& value : values) value = static_cast<std::uint16_t>(random() % 40);
    const auto size = static_cast<std::int32_t>(values.size());
    const auto end = static_cast<std::int32_t>(random() % (values.size() + 1));
    const auto from = end == 0 ? 0 : static_cast<std::int32_t>(random()) % end;
    const std::int32_t start = std::max(0, std::min(from, size));
    const auto value = static_cast<std::uint16_t>(random() % 40);
    ASSERT_EQ(qk::find_value(values.data(), start, end, value),
              find_one_by_one(values, start, end, value));
  }
}

TEST(Search, FindsNothingInAnEmptyRange) {
  const std::uint16_t value = 3;
  EXPECT_EQ(qk::find_value(&value, 0, 0, 3), -1);
  EXPECT_EQ(qk::find_value(&value, 1, 1, 3), -1);
}

}  // namespace

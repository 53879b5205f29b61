#include "table/prints.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <random>
#include <set>

#include "tests/kit/standalone_handle.h"

namespace {

using qk::mem::Prints;

/** The print with a number. */
std::uint8_t print_in(const Prints& prints, std::uint32_t number) {
  return static_cast<std::uint8_t>(prints[number / 8] >> number % 8 * 8);
}

/** What prints_with() is to return. */
std::uint32_t equal_to(const Prints& prints, std::uint8_t value) {
  std::uint32_t found = 0;
  for (std::uint32_t i = 0; i < qk::mem::kPrints; ++i) {
    if (print_in(prints, i) == value) found |= std::uint32_t{1} << i;
  }
  return found;
}

TEST(Prints, AreSetOneByOne) {
  Prints prints = {};
  for (const std::uint32_t i : {0U, 15U, 7U, 8U, 3U, 15U}) {
    qk::mem::set_print(prints, i, static_cast<std::uint8_t>(0xA0 + i));
  }
  EXPECT_EQ(prints[0], 0xA7000000A30000A0U);
  EXPECT_EQ(prints[1], 0xAF000000000000A8U);
}

TEST(Prints, AreFoundWhereverTheyAre) {
  // Neighbours that plain sums of bytes would mistake for each other.
  constexpr std::uint8_t kValues[] = {0x00, 0x01, 0x7F, 0x80, 0x81, 0xFE, 0xFF};
  std::mt19937 random(20261122);
  for (int round = 0; round < 20000; ++round) {
    Prints prints = {};
    for (std::uint32_t i = 0; i < qk::mem::kPrints; ++i) {
      qk::mem::set_print(prints, i, kValues[random() % std::size(kValues)]);
    }
    for (const std::uint8_t value : kValues) {
      const std::uint32_t expected = equal_to(prints, value);
      ASSERT_EQ(qk::mem::prints_with(prints, value), expected);
      ASSERT_EQ(qk::mem::bytes_with(prints[0], value), expected & 0xFF);
    }
  }
}

TEST(Prints, DifferForMostAddressesOfAnArray) {
  for (const std::uintptr_t distance : {0x80U, 0x1000U, 0x200000U}) {
    std::set<std::uint8_t> prints;
    for (std::uintptr_t i = 0; i < 16; ++i) {
      prints.insert(qk::mem::print_of(kit::at(0x7F0000001030 + i * distance)));
    }
    EXPECT_GE(prints.size(), 14U) << distance;
  }
}

}  // namespace

#include "support/careful_reading.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kPage = 4096;

std::uintptr_t number(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

TEST(CarefulReading, CopiesWhatIsThereAndNothingElse) {
  auto* const pages = static_cast<char*>(
      mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  std::strcpy(pages + kPage - 5, "text");
  munmap(pages + kPage, kPage);
  char copy[6] = {};
  errno = 77;
  EXPECT_TRUE(qk::copy_if_there(number(pages + kPage - 5), copy, 5));
  EXPECT_STREQ("text", copy);
  EXPECT_FALSE(qk::copy_if_there(number(pages + kPage - 5), copy, 6));
  EXPECT_FALSE(qk::copy_if_there(number(pages + kPage), copy, 1));
  EXPECT_FALSE(qk::copy_if_there(0, copy, 1));
  EXPECT_FALSE(qk::copy_if_there(UINTPTR_MAX, copy, 2));
  EXPECT_EQ(77, errno);
  munmap(pages, kPage);
}

}  // namespace

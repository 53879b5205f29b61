#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "qkmem/profile.h"
#include "qkmem/qkmem.hpp"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

class ForgottenMemory : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES")); }

  kit::Scene scene_;
};

void take(const qk::Handle& handle, std::size_t bytes, int line) {
  qk_mem_imalloc(handle.number(), bytes, 16, "src/shop.cpp", line);
}

std::string said_at_end(std::optional<qk::Handle>& handle) {
  testing::internal::CaptureStderr();
  handle.reset();
  return testing::internal::GetCapturedStderr();
}

/** All handles of the tests are made at this place. */
std::optional<qk::Handle> made(const char* options, const char* tag) {
  // clang-format off
#line 12 "src/main.cpp"
  return qk::Handle(options, tag);
#line 39 "tests/profile/forgotten_test.cpp"
  // clang-format on
}

TEST_F(ForgottenMemory, IsToldWithTheLinesThatAllocatedItWhenItsHandleEnds) {
  auto handle = made("", "SE");
  take(*handle, 32, 9);
  take(*handle, 40, 44);
  take(*handle, 24, 44);
  EXPECT_EQ(
      "qkmem: memory forgotten on handle 3 SE, made at main.cpp:12 (event 3): 96 B in 3 blocks, "
      "allocated at shop.cpp:44 (64 B), shop.cpp:9 (32 B)\n",
      said_at_end(handle));
}

TEST_F(ForgottenMemory, OfOneLineNamesItWithoutRepeatingItsBytes) {
  auto handle = made("", "");
  take(*handle, 32, 9);
  EXPECT_EQ(
      "qkmem: memory forgotten on handle 3, made at main.cpp:12 (event 1): 32 B in 1 block, "
      "allocated at shop.cpp:9\n",
      said_at_end(handle));
}

TEST_F(ForgottenMemory, OfManyLinesNamesTheThreeThatHoldMost) {
  auto handle = made("", "SE");
  for (int line = 1; line <= 5; ++line) take(*handle, 10 * static_cast<std::size_t>(line), line);
  EXPECT_EQ(
      "qkmem: memory forgotten on handle 3 SE, made at main.cpp:12 (event 5): 150 B in 5 blocks, "
      "allocated at shop.cpp:5 (50 B), shop.cpp:4 (40 B), shop.cpp:3 (30 B) and at 2 other lines\n",
      said_at_end(handle));
}

TEST_F(ForgottenMemory, IsToldOnceForALineThatMakesManyHandlesAndCounted) {
  for (int i = 0; i < 4; ++i) {
    auto handle = made("", "SE");
    take(*handle, 32, 9);
    const std::string said = said_at_end(handle);
    EXPECT_EQ(i == 0, !said.empty()) << said;
  }
  EXPECT_EQ(
      "qkmem: nothing is held; 4 allocations of 128 B were watched; peak 32 B at T s (event 1)\n"
      "qkmem: first misuse: memory forgotten on handle 3 SE, made at main.cpp:12 (event 1)\n"
      "qkmem: misuse\n"
      "  times  what\n"
      "      4  memory forgotten on handle 3 SE, made at main.cpp:12: 32 B in 1 block, allocated at "
      "shop.cpp:9\n"
      "qkmem: the profile took M of its own\n",
      kit::text_report(""));
}

TEST_F(ForgottenMemory, IsAnEstimateIfOnlyASampleIsBooked) {
  qk_mem_profile_config("SAMPLE=1");
  auto handle = made("", "");
  take(*handle, 4096, 9);
  EXPECT_EQ(
      "qkmem: memory forgotten on handle 3, made at main.cpp:12 (event 1): about 4.0 KiB in 1 "
      "block, allocated at shop.cpp:9\n",
      said_at_end(handle));
}

TEST_F(ForgottenMemory, IsNotWhatAutofreeAndBlocksAreThere) {
  for (const char* options : {"AUTOFREE", "BLOCKMGMT BLOCKSIZE=4096"}) {
    auto handle = made(options, "SE");
    take(*handle, 32, 9);
    EXPECT_EQ("", said_at_end(handle)) << options;
  }
}

TEST_F(ForgottenMemory, IsNotWhatWasFreedOrHandedOn) {
  auto handle = made("", "SE");
  void* const block = qk_mem_imalloc(handle->number(), 32, 16, "src/shop.cpp", 9);
  qk_mem_ifree(handle->number(), block, "src/shop.cpp", 10);
  EXPECT_EQ("", said_at_end(handle));
  auto released = made("", "SE");
  take(*released, 32, 9);
  const int hid = released->release();
  EXPECT_EQ("", said_at_end(released));
  qk_mem_idel_handle(hid, "src/main.cpp", 20);
}

TEST_F(ForgottenMemory, IsNotToldWhileTheProfileIsOff) {
  auto handle = made("", "SE");
  take(*handle, 32, 9);
  qk_mem_profile_config("");
  EXPECT_EQ("", said_at_end(handle));
}

TEST_F(ForgottenMemory, OfAHandleThatIsGoneIsNotLookedAt) {
  testing::internal::CaptureStderr();
  qk_mem_tell_forgotten(77, "src/main.cpp", 12);
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(0, qk_mem_error());
}

}  // namespace

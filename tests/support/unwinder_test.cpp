#include "support/unwinder.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/modules.h"
#include "tests/kit/failing_allocator.h"

namespace {

using qk::capture_stack;

using Frames = std::vector<std::uintptr_t>;

#ifdef __SANITIZE_THREAD__
constexpr bool kHasThreadSanitizer = true;
#else
constexpr bool kHasThreadSanitizer = false;
#endif

Frames captured(int most) {
  std::array<std::uintptr_t, 200> frames = {};
  const int count = capture_stack(frames.data(), most);
  return {frames.begin(), frames.begin() + count};
}

/** A stack, and what its functions know of where they were called from. */
struct Call {
  Frames captured;
  Frames known;
};

void note_caller(Call& call, const void* caller) {
  call.known.push_back(reinterpret_cast<std::uintptr_t>(caller));
}

/** Without the frame of captured() itself, whose address it can't know. */
[[gnu::noinline]] void innermost(Call& call) {
  call.captured = captured(qk::kMostFrames);
  note_caller(call, __builtin_return_address(0));
}

[[gnu::noinline]] void middle(Call& call) {
  innermost(call);
  note_caller(call, __builtin_return_address(0));
}

[[gnu::noinline]] void outermost(Call& call) {
  middle(call);
  note_caller(call, __builtin_return_address(0));
}

bool has_in_order(const Call& call) {
  return std::search(call.captured.begin(), call.captured.end(), call.known.begin(),
                     call.known.end()) != call.captured.end();
}

[[gnu::noinline]] Frames captured_below(int calls, int most) {
  Frames frames = calls == 0 ? captured(most) : captured_below(calls - 1, most);
  asm volatile("" : : "r"(&frames) : "memory");
  return frames;
}

class EveryUnwinder : public ::testing::TestWithParam<bool> {
 protected:
  EveryUnwinder() { prepare_stacks(GetParam() ? qk::kRuntimeUnwinder : qk::load_unwinder()); }
};

TEST_P(EveryUnwinder, FindsTheCallsInOrder) {
  Call call;
  outermost(call);
  ASSERT_EQ(call.known.size(), 3U);
  EXPECT_TRUE(has_in_order(call));
  // The first frame is in captured(), the second one in innermost().
  EXPECT_EQ(call.captured.at(2), call.known.at(0));
}

TEST_P(EveryUnwinder, WritesNoMoreFramesThanAreWanted) {
  EXPECT_EQ(captured_below(100, 64).size(), 64U);
  EXPECT_EQ(captured_below(100, 1).size(), 1U);
  EXPECT_EQ(captured_below(100, 1000).size(), 64U);
  EXPECT_TRUE(captured_below(100, 0).empty());
  EXPECT_TRUE(captured_below(100, -1).empty());
}

TEST_P(EveryUnwinder, GivesTheInnermostFramesOfADeepStack) {
  const Frames shallow = captured_below(100, 3);
  const Frames deep = captured_below(100, 60);
  ASSERT_EQ(deep.size(), 60U);
  EXPECT_EQ(deep[0], shallow[0]);
  EXPECT_EQ(deep[3], deep[50]);  // captured_below() called itself
}

TEST_P(EveryUnwinder, AllocatesNothingAndKeepsErrno) {
  std::array<std::uintptr_t, 64> frames = {};
  errno = 4242;
  kit::fail_all_requests();
  const int count = capture_stack(frames.data(), 64);
  const bool failed = kit::has_failed();
  kit::let_succeed();
  EXPECT_EQ(errno, 4242);
  EXPECT_FALSE(failed);
  EXPECT_GT(count, 0);
}

TEST_P(EveryUnwinder, WorksInSeveralThreadsAtOnce) {
  std::array<bool, 4> found = {};
  std::vector<std::thread> threads;
  for (bool& mine : found) {
    threads.emplace_back([&mine] {
      mine = true;
      for (int i = 0; i < 200; ++i) {
        Call call;
        outermost(call);
        mine = mine && has_in_order(call);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, (std::array<bool, 4>{true, true, true, true}));
}

INSTANTIATE_TEST_SUITE_P(Stacks, EveryUnwinder, ::testing::Bool(), [](const auto& tried) {
  return tried.param ? std::string("OfTheRuntime") : std::string("Fastest");
});

TEST(Unwinder, GivesTheSameStackWhicheverItIs) {
  std::array<Call, 2> calls;
  for (int i = 0; i < 2; ++i) {
    prepare_stacks(i == 0 ? qk::load_unwinder() : qk::kRuntimeUnwinder);
    outermost(calls.at(static_cast<std::size_t>(i)));
  }
  EXPECT_EQ(calls[0].captured, calls[1].captured);
}

TEST(Unwinder, IsNamed) {
  EXPECT_STREQ(qk::unwinder_name(), "none");
  prepare_stacks(qk::kRuntimeUnwinder);
  EXPECT_STREQ(qk::unwinder_name(), "the C++ run-time");
  prepare_stacks(qk::load_unwinder());
  const bool has_libunwind = dlopen("libunwind.so.8", RTLD_NOW | RTLD_LOCAL) != nullptr;
  EXPECT_STREQ(qk::unwinder_name(),
               has_libunwind && !kHasThreadSanitizer ? "libunwind" : "the C++ run-time");
}

TEST(Unwinder, CapturesNothingUntilItIsPrepared) { EXPECT_TRUE(captured(64).empty()); }

int frames_of_inner_call = -1;

int walk_that_captures(void** addresses, int most) {
  std::uintptr_t frame = 0;
  frames_of_inner_call = capture_stack(&frame, 1);
  return qk::kRuntimeUnwinder.walk(addresses, most);
}

TEST(Unwinder, CapturesNothingInsideAnAllocatorThatItCalls) {
  const qk::Unwinder allocating = {"allocating", walk_that_captures};
  prepare_stacks(allocating);
  frames_of_inner_call = -1;
  EXPECT_FALSE(captured(64).empty());
  EXPECT_EQ(frames_of_inner_call, 0);
  EXPECT_FALSE(captured(64).empty());
}

int walk_to_null(void** addresses, int /*most*/) {
  addresses[0] = &frames_of_inner_call;
  addresses[1] = nullptr;
  return 2;
}

TEST(Unwinder, EndsAStackBeforeANullAddress) {
  const qk::Unwinder ending = {"ending", walk_to_null};
  prepare_stacks(ending);
  EXPECT_EQ(captured(64), Frames{reinterpret_cast<std::uintptr_t>(&frames_of_inner_call)});
}

TEST(Unwinder, LeavesOutTheFramesOfTheSharedLibrary) {
  void* const library = dlopen(QKMEM_CAPTURING_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  auto* const capture_below =
      reinterpret_cast<int (*)(std::uintptr_t*, int)>(dlsym(library, "capture_below_two_calls"));
  ASSERT_NE(capture_below, nullptr);
  std::array<std::uintptr_t, 64> frames = {};
  ASSERT_GT(capture_below(frames.data(), 64), 0);
  EXPECT_TRUE(qk::module_with(frames[0]).is_program);
  ASSERT_EQ(capture_below(frames.data(), 1), 1);
  EXPECT_TRUE(qk::module_with(frames[0]).is_program);
}

}  // namespace

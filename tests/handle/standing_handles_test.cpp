#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "core/registry.h"
#include "core/switches.h"
#include "support/exit_handlers.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::handle_of;
using kit::Pool;
using kit::Scene;

TEST(StandingHandles, AreOneForOverheadAndOneForData) {
  Scene scene("");
  qk_mem_init();
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(handle_of(1).type, 'O');
  EXPECT_EQ(handle_of(1).autofree, 'a');
  EXPECT_NE(handle_of(1).mtx, nullptr);
  EXPECT_EQ(handle_of(2).type, 'D');
  EXPECT_EQ(handle_of(2).autofree, '\0');
  EXPECT_NE(handle_of(2).mtx, nullptr);
  for (const int hid : {1, 2}) {
    EXPECT_EQ(handle_of(hid).id, hid);
    EXPECT_EQ(handle_of(hid).tag, &Qk_mem_global_tag);
    EXPECT_EQ(handle_of(hid).blockmgmt, '\0');
    EXPECT_STREQ(handle_of(hid).file, "qkmem.cpp");
    EXPECT_GT(handle_of(hid).line, 0);
  }
  EXPECT_NE(handle_of(1).line, handle_of(2).line);
  EXPECT_EQ(int{Pool()}, 3);
}

TEST(StandingHandles, HoldTheLibrarysOwnMemoryOnly) {
  Scene scene("");
  qk_mem_init();
  EXPECT_EQ(kit::data_of(1), "0 for 0");
  EXPECT_EQ(kit::data_of(2), "0 for 0");
  EXPECT_EQ(kit::overhead_of(2), "0 for 0") << "it records nothing without a configuration";
  EXPECT_EQ(handle_of(1).overhead_amount % 768,
            (4096 + sizeof(qk_mem_handle) + sizeof(qk::Mtx)) % 768);
}

/** What `body` starts in a process of its own: "nothing" or "everything". */
std::string started_by(void (*body)()) {
  return kit::run({},
                  [body] {
                    body();
                    std::puts(Qk_mem_initialized == 0   ? "nothing"
                              : Qk_mem_num_handles == 2 ? "everything"
                                                        : "something");
                    std::fflush(stdout);
                    std::_Exit(0);
                  })
      .out;
}

TEST(FirstCall, StartsTheLibraryUp) {
  Scene scene("");
  void (*const bodies[])() = {
      [] { qk_mem_init(); },
      [] { qk_mem_idel_handle(3, "src/app.c", 5); },
      [] { qk_mem_isize(2, "src/app.c", 5); },
      [] { std::free(qk_mem_imalloc(2, 8, 16, "src/app.c", 5)); },
      [] { std::free(qk_mem_icalloc(2, 1, 8, 16, "src/app.c", 5)); },
      [] { std::free(qk_mem_irealloc(2, nullptr, 8, 16, "src/app.c", 5)); },
      [] { std::free(qk_mem_irecalloc(2, nullptr, 1, 8, 0, 16, "src/app.c", 5)); },
      [] { std::free(qk_mem_istrdup(2, "text", "src/app.c", 5)); },
      [] { qk_mem_ifree(2, nullptr, "src/app.c", 5); },
      [] { qk_mem_dump(nullptr, "", 0); },
      [] { qk_mallinfo(); },
      [] { qk_mem_debug_on(); },
      [] {
        qk::Status status;
        qk_mem_options("", &status);
      },
      [] { qk_mem_idel_handle(qk_mem_inew_handle("", "", "src/app.c", 5), "src/app.c", 6); },
  };
  for (std::size_t i = 0; i < std::size(bodies); ++i) {
    EXPECT_EQ(started_by(bodies[i]), "everything\n") << "call number " << i;
  }
}

TEST(FirstCall, StartsNothingIfItNeedsNoHandles) {
  Scene scene("");
  void (*const bodies[])() = {
      [] { qk_mem_error(); },
      [] { qk_mem_tag_size("AB"); },
      [] { qk_heapsize(); },
      [] {
        qk::Status status;
        qk_mem_debug_config("TRACE", &status);
      },
      [] {
        qk::Status status;
        char text[QK_MEM_SETTINGS_SIZE];
        qk_mem_debug_settings(text, &status);
      },
      [] {
        qk::Status status;
        qk_mem_dump_config("OPTIONS=HANDLES", &status);
      },
  };
  for (std::size_t i = 0; i < std::size(bodies); ++i) {
    EXPECT_EQ(started_by(bodies[i]), "nothing\n") << "call number " << i;
  }
}

TEST(StartUp, InitializesTheProcessWideValues) {
  Scene scene("");
  kit::set_heap(123456);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_init_heap, 123456);
  EXPECT_EQ(Qk_mem_blocksize, 32U);
  EXPECT_EQ(Qk_mem_ptr_display_size, 16);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_FALSE(Qk_mem_mtx.held());
}

TEST(StartUp, HappensOnce) {
  Scene scene("DEBUG");
  qk_mem_init();
  const std::uint32_t events = Qk_mem_seq;
  scene.skip_log();
  kit::set_heap(123456);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(Qk_mem_seq, events);
  EXPECT_NE(Qk_mem_init_heap, 123456);
  EXPECT_EQ(scene.log(), "");
}

TEST(StartUp, HappensOnceForManyThreads) {
  Scene scene("");
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] { EXPECT_EQ(qk_mem_isize(2, "src/app.c", 5), 0U); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST(StartUp, CreatesNoHandlesWithoutItsExitHandler) {
  Scene scene("EXCEPTIONS");
  for (int i = 0; i < qk::kMaxExitHandlers; ++i) {
    ASSERT_EQ(qk_atexit([](int) {}, "handler", "app", "", nullptr), 0);
  }
  qk_mem_init();
  EXPECT_EQ(qk_mem_error(), 10050);
  EXPECT_EQ(scene.log("qk_mem_init"),
            "   qk_mem_init: ERROR: Unable to activate exit handler: 10050\n");
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_num_handles, 0);
  scene.skip_log();
  EXPECT_EQ(qk_mem_imalloc(2, 8, 16, "src/app.c", 5), nullptr);
  EXPECT_EQ(qk_mem_error(), 5566);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_num_handles, 0) << "a failed start-up isn't tried again";
  EXPECT_EQ(scene.log(), "");
}

TEST(StartUp, CreatesNoHandlesWithBadOptions) {
  Scene scene(Environment{"", "BAD", ""});
  qk_mem_init();
  EXPECT_EQ(qk_mem_error(), 10041);
  EXPECT_EQ(Qk_mem_num_handles, 0);
}

TEST(StartUp, CreatesNoHandlesIfTheOverheadHandleFails) {
  Scene scene("EXCEPTIONS");
  kit::fail_request(3);
  qk_mem_init();
  EXPECT_EQ(scene.log(),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n"
            "   qk_mem_inew_handle: ERROR: calloc of handle failed: 12 Cannot allocate memory\n"
            "   qk_mem_init: ERROR: Failure opening overhead handle: 5012\n");
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(Qk_mem_handles[0], nullptr);
  EXPECT_EQ(Qk_mem_handles[1], nullptr);
}

TEST(StartUp, LogsNoFailureIfTheGlobalSwitchesAreOff) {
  Scene scene("EXCEPTIONS=not,global,qk_mem_inew_handle");
  kit::fail_request(3);
  qk_mem_init();
  EXPECT_EQ(scene.log(),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS=not,global,qk_mem_inew_handle]\n");
  EXPECT_EQ(qk_mem_error(), 5012);
}

/** Starts the library while its nth request for memory fails, then calls `then`. */
kit::Ended start_with_failure(int nth, void (*then)()) {
  return kit::run({"EXCEPTIONS", "DB", ""}, [nth, then] {
    kit::fail_request(nth);
    qk_mem_init();
    std::printf("%d handles, %s", Qk_mem_num_handles, kit::has_failed() ? "failed" : "no failure");
    kit::let_succeed();
    then();
  });
}

void use_data_handle() {
  void* memory = qk_mem_imalloc(2, 8, 16, "src/app.c", 5);
  if (memory != nullptr) qk_mem_ifree(2, memory, "src/app.c", 6);
}

TEST(StartUp, SurvivesTheFailureOfAnyAllocation) {
  Scene scene("");
  kit::Ended ended;
  int nth = 0;
  do {
    ended = start_with_failure(++nth, use_data_handle);
    EXPECT_EQ(ended.exit_code, 0) << "request " << nth;
  } while (ended.out.ends_with(", failed"));
  EXPECT_EQ(ended.out, "2 handles, no failure");
  EXPECT_GT(nth, 8);
}

TEST(StartUp, LeavesTheDataHandleHalfMadeWithoutItsMutex) {
  Scene scene("");
  std::string log;
  for (int nth = 4; nth < 20 && log.find("opening data handle: 5566") == std::string::npos; ++nth) {
    log = start_with_failure(nth, [] {}).log;
  }
  EXPECT_EQ(kit::normalized(log),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n"
            "   qk_mem_inew_handle: ERROR: new of mtx failed: 12 Cannot allocate memory\n"
            "   qk_mem_idel_handle: ERROR: del_handle of QK_MEM_DATA_HANDLE at qkmem.cpp:#\n"
            "   qk_mem_init: ERROR: Failure opening data handle: 5566\n")
      << "number 2 can't be deleted even then";
}

TEST(Error, IsZeroInAThreadThatNeverFailed) {
  Scene scene("");
  EXPECT_EQ(qk_mem_error(), 0);
  qk_mem_isize(99, "src/app.c", 5);
  EXPECT_EQ(qk_mem_error(), 5566);
  std::thread([] {
    EXPECT_EQ(qk_mem_error(), 0);
    qk_mem_inew_handle("BAD", "", "src/app.c", 5);
    EXPECT_EQ(qk_mem_error(), 11102);
  }).join();
  EXPECT_EQ(qk_mem_error(), 5566);
}

}  // namespace

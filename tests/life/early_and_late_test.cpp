// Calls before main() and after the library's clean-up.
#include <gtest/gtest.h>
#include <sys/single_threaded.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Scene;

/** Set in a process whose end a test examines. */
bool prints = false;

void say(const char* what, bool holds) {
  if (prints) std::printf("%s: %s\n", what, holds ? "yes" : "no");
}

/**
 * Calls made while the program's last static objects are destroyed. The library was started after
 * this object's construction, so its clean-up has run by then.
 */
struct Late {
  ~Late() {
    say("the registry is deleted", Qk_mem_handles == nullptr);
    say("the old handles are invalid", qk_mem_imalloc(2, 8, 16, "late.c", 1) == nullptr);
    say("with code 5566", qk_mem_error() == 5566);
    const int hid = qk_mem_inew_handle("MULTITHREADED AUTOFREE", "LT", "late.c", 2);
    // If other threads may still run, remaining handles keep their numbers, and the overhead
    // handle's number isn't given to another one.
    say("a new registry begins at 1, or after 1 if other threads may run",
        __libc_single_threaded ? hid == 1 : hid > 1);
    void* const memory = qk_mem_imalloc(hid, 100, 16, "late.c", 3);
    say("memory is accounted for", memory != nullptr && qk_mem_isize(hid, "late.c", 4) == 100);
    say("also under its tag", qk_mem_tag_size("LT") == 100);
    qk_mem_ifree(hid, memory, "late.c", 5);
    say("and freed", qk_mem_isize(hid, "late.c", 6) == 0);
    say("the handle can be deleted", qk_mem_idel_handle(hid, "late.c", 7) == 0);
    qk::Status status;
    say("configuring works", qk_mem_debug_config("OFF", &status) == 0);
    void* const untracked = qk_mem_imalloc(QK_MEM_DATA_HANDLE, 8, 16, "late.c", 8);
    say("the data handle gives memory without debugging", untracked != nullptr);
    qk_mem_ifree(QK_MEM_DATA_HANDLE, untracked, "late.c", 9);
  }
};
[[gnu::init_priority(101)]] Late late;

/** Calls made while the program's first static objects are constructed. */
struct Early {
  Early() {
    qk::Status status;
    configured = qk_mem_debug_config("TRACE", &status) == 0;
    hid = qk_mem_inew_handle("AUTOFREE", "EA", "early.c", 1);
    memory = qk_mem_istrdup(hid, "early", "early.c", 2);
    failed = qk_mem_idel_handle(400, "early.c", 3);
    error = qk_mem_error();
  }

  // Runs before the clean-up, which the constructor's first call has registered.
  ~Early() {
    say("the early handle is alive at exit", qk_mem_isize(hid, "early.c", 4) == 6);
    say("with its memory", std::string(memory) == "early");
    qk_mem_ifree(hid, memory, "early.c", 5);
    say("which can be freed", qk_mem_isize(hid, "early.c", 6) == 0);
  }

  bool configured;
  int hid;
  char* memory;
  int failed;
  int error;
};
[[gnu::init_priority(102)]] Early early;

TEST(EarlyCalls, WorkBeforeMain) {
  EXPECT_TRUE(early.configured);
  EXPECT_EQ(early.hid, 3);
  EXPECT_STREQ(early.memory, "early");
  EXPECT_EQ(early.failed, 5566);
  EXPECT_EQ(early.error, 5566);
}

TEST(EarlyCalls, AreStillAccountedForInMain) {
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_num_handles, 3);
  EXPECT_EQ(kit::data_of(early.hid), "1 for 6");
  EXPECT_EQ(kit::tag_of("EA"), "1 for 6");
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(Qk_mem_debug[0].trace, 1);
}

TEST(LateCalls, WorkBeforeAndAfterTheCleanUp) {
  const Scene scene;
  const Ended ended = kit::run({}, [] { prints = true; });
  EXPECT_EQ(ended.out,
            "the early handle is alive at exit: yes\n"
            "with its memory: yes\n"
            "which can be freed: yes\n"
            "the registry is deleted: yes\n"
            "the old handles are invalid: yes\n"
            "with code 5566: yes\n"
            "a new registry begins at 1, or after 1 if other threads may run: yes\n"
            "memory is accounted for: yes\n"
            "also under its tag: yes\n"
            "and freed: yes\n"
            "the handle can be deleted: yes\n"
            "configuring works: yes\n"
            "the data handle gives memory without debugging: yes\n");
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(ended.exit_code, 0);
}

TEST(LateCalls, DoNotGetHandleNumber1IfOtherThreadsMayRun) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    std::thread([] {}).join();
    prints = true;
  });
  EXPECT_NE(
      ended.out.find("a new registry begins at 1, or after 1 if other threads may run: yes\n"),
      std::string::npos)
      << ended.out;
  EXPECT_EQ(ended.out.find(": no"), std::string::npos) << ended.out;
  EXPECT_EQ(ended.exit_code, 0);
}

TEST(LateCalls, WorkInExitHandlersToo) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    std::atexit([] {
      const int hid = qk_mem_inew_handle("", "", "handler.c", 1);
      std::printf("handle %d\n", hid);
      qk_mem_ifree(hid, qk_mem_imalloc(hid, 8, 16, "handler.c", 2), "handler.c", 3);
    });
  });
  EXPECT_EQ(ended.out, "handle 4\n");
  EXPECT_EQ(ended.exit_code, 0);
}

}  // namespace

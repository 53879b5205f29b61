// What becomes of AUTOFREE handles when the process exits while other threads run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <latch>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/records.h"
#include "qkmem/qkmem.hpp"
#include "support/assertion.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

namespace {

using kit::Ended;
using kit::Pool;
using kit::Scene;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRounds = 5;
#else
constexpr int kRounds = qk::kAssertions ? 10 : 40;
#endif

void start_parked_thread() {
  std::latch started(1);
  std::thread([&] {
    started.count_down();
    for (;;) pause();
  }).detach();
  started.wait();
}

std::function<void()>& last_step() {
  static auto* const step = new std::function<void()>;
  return *step;
}

/** Calls `step` after the library's clean-up. To be called before the library's first call. */
void after_clean_up(const std::function<void()>& step) {
  last_step() = step;
  std::atexit([] { last_step()(); });
}

/** Ends the process with a text that says what went wrong. */
void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  _exit(9);
}

TEST(AutofreeAtExit, KeepsTheMemoryThatThreadsMayBeUsing) {
  const Scene scene(kit::Environment{});
  for (const char* options :
       {"AUTOFREE", "AUTOFREE MULTITHREADED", "AUTOFREE BLOCKMGMT BLOCKFREE BLOCKSIZE=2048"}) {
    const Ended ended = kit::run({"SUMMARY", "", ""}, [options] {
      static char* text = nullptr;
      const std::string expected(400, 'x');
      after_clean_up([expected] { require(text == expected, "the memory is as it was"); });
      text = static_cast<char*>(qk_mem_icalloc(Pool(options), 1, 500, 16, "app.c", 1));
      std::memset(text, 'x', expected.size());
      start_parked_thread();
    });
    EXPECT_EQ(ended.exit_code, 0) << options << ": " << ended.err;
  }
}

struct SaysWhenItEnds {
  ~SaysWhenItEnds() { std::fputs("destroyed\n", stderr); }
};

Ended exit_with_an_object(bool beside_a_thread) {
  return kit::run({"SUMMARY", "", ""}, [beside_a_thread] {
    const Pool pool("AUTOFREE");
    static_cast<void>(qk::make<SaysWhenItEnds>(qk::On(pool)));
    static_cast<void>(qk::make_array<SaysWhenItEnds>(qk::On(pool), 1));
    if (beside_a_thread) start_parked_thread();
    std::thread([] {}).join();
  });
}

TEST(AutofreeAtExit, DestroysNoObjectsWhileOtherThreadsRun) {
  const Scene scene(kit::Environment{});
  EXPECT_EQ(exit_with_an_object(true).err, "");
}

TEST(AutofreeAtExit, DestroysObjectsOnceOtherThreadsAreJoined) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "in a forked process the sanitizer starts a second thread with the first of ours";
#endif
  const Scene scene(kit::Environment{});
  EXPECT_EQ(exit_with_an_object(false).err, "destroyed\ndestroyed\n");
}

void leave_memory_of_all_sorts() {
  const Pool plain("AUTOFREE", "PL");
  void* memory = qk_mem_imalloc(plain, 10, 16, "app.c", 1);
  qk_mem_iregister(plain, QK_MEM_EXTERNAL, std::malloc(30), nullptr, 30, "app.c", 2);
  memory = qk_mem_icalloc(plain, 3, 50, 16, "app.c", 3);
  memory = qk_mem_irealloc(plain, memory, 60, 16, "app.c", 4);
  memory = qk_mem_istrdup(plain, "text", "app.c", 5);
  static_cast<void>(qk::make<int>(qk::On(plain), 7));
  static_cast<void>(qk::make_array<int>(qk::On(plain), 4));
  const Pool pieces("AUTOFREE MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=256", "PI");
  for (int line = 11; line < 20; ++line) memory = qk_mem_imalloc(pieces, 100, 16, "app.c", line);
  const Pool shared("AUTOFREE MULTITHREADED OVERHEAD", "SH");
  memory = qk_mem_imalloc(shared, 70, 16, "app.c", 21);
  memory = qk_mem_imalloc(Pool("", "LE"), 80, 16, "app.c", 22);
}

/**
 * The lines from `begin` on, sorted. Left out is what differs from run to run: addresses, event
 * numbers, the heap's columns, and pointer arrays, since addresses decide how many a handle needs.
 */
std::string comparable(const std::string& text, const std::string& begin) {
  constexpr const char* kArrays = R"(P *16/48| P +16 |\t16\t48\t)";
  constexpr const char* kVarying =
      R"([0-9a-f]{16}| +\d+(?= \S+:\d+$)|^ *\d+\t|(\t-?\d+){3}(?=\t-?\d+\t-?\d+\t-?\d+$)|\t-?\d+\t-?\d+$)";
  std::istringstream in(text.substr(std::min(text.find(begin), text.size())));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (kit::has_match(line, kArrays)) continue;
    lines.push_back(kit::replaced(line, kVarying, ""));
  }
  std::sort(lines.begin(), lines.end());
  std::string result;
  for (const std::string& line : lines) result += line + "\n";
  return result;
}

TEST(AutofreeAtExit, ReportsBesideThreadsWhatItReportsAlone) {
  const Scene scene(kit::Environment{});
  const kit::Environment environment = {"TRACE DEBUG=qk_mem_idel_handle SUMMARY", "DB",
                                        "OPTIONS=HANDLES,MGMT,BLOCKS,POINTERS"};
  const auto run = [&](const std::function<void()>& last) {
    return kit::run(environment, [&] {
      kit::set_heap(135168);
      leave_memory_of_all_sorts();
      std::thread([] {}).join();
      last();
    });
  };
  const Ended alone = run([] {});
  const Ended beside = run(start_parked_thread);
  EXPECT_EQ(beside.exit_code, 0);
  const char* const begin = "   qk_mem_cleanup:";
  EXPECT_EQ(comparable(beside.log, begin), comparable(alone.log, begin));
  EXPECT_GT(comparable(beside.log, begin).size(), 1000U);
  // The trace file begins with the opening's row, which shows the heap.
  EXPECT_EQ(comparable(beside.trace, "\t1\tN\t"), comparable(alone.trace, "\t1\tN\t"));
  EXPECT_GT(comparable(beside.trace, "\t1\tN\t").size(), 1000U);
}

TEST(AutofreeAtExit, TakesTheirSumsOutOfTheirTags) {
  const Scene scene(kit::Environment{});
  for (const char* options : {"AUTOFREE", "AUTOFREE MULTITHREADED"}) {
    const Ended ended = kit::run({"SUMMARY", "", "OPTIONS=SUMMARY"}, [options] {
      static_cast<void>(qk_mem_imalloc(Pool(options, "TA"), 10, 16, "app.c", 1));
      static_cast<void>(qk_mem_imalloc(Pool("", "TA"), 20, 16, "app.c", 2));
      start_parked_thread();
    });
    EXPECT_NE(ended.log.find("     TA:              1         20\n"), std::string::npos)
        << ended.log;
  }
}

TEST(AutofreeAtExit, LeavesAHandleToTheThreadThatDeletesIt) {
  const Scene scene(kit::Environment{});
  struct Waits {
    std::latch& begun;
    std::latch& may_end;
    Waits(std::latch& first, std::latch& second) : begun(first), may_end(second) {}
    ~Waits() {
      begun.count_down();
      may_end.wait();
    }
  };
  const Ended ended = kit::run({"DEBUG=qk_mem_idel_handle SUMMARY", "", ""}, [] {
    static std::latch begun(1);
    static std::latch may_end(1);
    static std::thread deleter;
    after_clean_up([] {
      may_end.count_down();
      deleter.join();
    });
    const int own = Pool("AUTOFREE BLOCKMGMT BLOCKFREE", "OW");
    for (int i = 0; i < 50; ++i) static_cast<void>(qk_mem_imalloc(own, 100, 16, "app.c", 1));
    static_cast<void>(qk::make<Waits>(qk::On(own), begun, may_end));
    deleter = std::thread(
        [own] { require(qk_mem_idel_handle(own, "app.c", 2) == 0, "the handle is deleted"); });
    begun.wait();
  });
  EXPECT_EQ(ended.exit_code, 0) << ended.err;
  EXPECT_EQ(ended.log.find("Deleting autofree handle 3"), std::string::npos) << ended.log;
}

TEST(AutofreeAtExit, LetsThreadsFinishTheirCallsOnTheHandles) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"SUMMARY EXCEPTIONS", "", ""}, [] {
    static qk::Mtx* lock = nullptr;
    static std::thread caller;
    after_clean_up([] {
      lock->unlock();
      caller.join();
    });
    const int shared = Pool("AUTOFREE MULTITHREADED", "SH");
    void* memory = qk_mem_imalloc(shared, 100, 16, "app.c", 1);
    lock = kit::handle_of(shared).mtx;
    lock->lock();
    caller = std::thread([=] { qk_mem_ifree(shared, memory, "app.c", 2); });
    // Long enough for it to find the handle, in almost every run, and to wait for the lock.
    usleep(20000);
  });
  EXPECT_EQ(ended.signal, 0);
  EXPECT_EQ(ended.exit_code, 0) << ended.err;
}

TEST(AutofreeAtExit, GivesTheirNumbersToNoNewHandles) {
  const Scene scene(kit::Environment{});
  const Ended ended = kit::run({"SUMMARY", "", ""}, [] {
    static int old = 0;
    static void* memory = nullptr;
    after_clean_up([] {
      qk_mem_ifree(old, memory, "app.c", 2);
      require(qk_mem_error() == QK_MEM_ERROR_HANDLE, "the old number is refused at first");
      const Pool recent("", "TA");
      require(recent > old, "a new handle has a new number");
      require(kit::data_of(old) == "1 for 100", "the old number is that of the old handle");
      require(kit::tag_of("TA") == "1 for 100", "its sums count in its tag again");
      qk_mem_ifree(old, memory, "app.c", 3);
      require(kit::data_of(old) == "0 for 0", "memory can be freed on it");
      require(kit::tag_of("TA") == "0 for 0", "the tag's sums follow");
    });
    old = Pool("AUTOFREE", "TA");
    memory = qk_mem_imalloc(old, 100, 16, "app.c", 1);
    start_parked_thread();
  });
  EXPECT_EQ(ended.exit_code, 0) << ended.err;
}

/** What a thread does again and again on AUTOFREE handles. */
using Round = void (*)(int shared);

void use_memory(int hid) {
  void* one = qk_mem_imalloc(hid, 100, 16, "busy.c", 1);
  void* two = qk_mem_icalloc(hid, 3, 50, 16, "busy.c", 2);
  two = qk_mem_irealloc(hid, two, 300, 16, "busy.c", 3);
  if (one != nullptr) std::memset(one, 1, 100);
  if (two != nullptr) std::memset(two, 2, 300);
  qk_mem_ifree(hid, one, "busy.c", 4);
  qk_mem_ifree(hid, two, "busy.c", 5);
}

void use_objects(int shared) {
  auto* text = qk::make<std::string>(qk::On(shared), 100, 'x');
  text->append("yz");
  qk::destroy(qk::On(shared), text);
}

void use_own_handle_for_ever(int /*shared*/) {
  const Pool own("AUTOFREE", "OW");
  std::vector<void*> memory;
  for (;;) {
    for (int i = 0; i < 2000; ++i) memory.push_back(qk_mem_imalloc(own, 50, 16, "busy.c", 6));
    for (void* one : memory) qk_mem_ifree(own, one, "busy.c", 7);
    memory.clear();
  }
}

void use_own_handle_once(const char* options) {
  const Pool own(options, "OW");
  for (int i = 0; i < 40; ++i) use_memory(own);
  for (int i = 0; i < 40; ++i) static_cast<void>(qk_mem_imalloc(own, 50, 16, "busy.c", 8));
  qk_mem_idel_handle(own, "busy.c", 9);
}

void use_new_handles(int /*shared*/) { use_own_handle_once("AUTOFREE"); }
void use_new_blocks(int /*shared*/) { use_own_handle_once("AUTOFREE BLOCKMGMT BLOCKFREE"); }

/** Exits while three threads are busy, in every kind of way in turn. */
Ended exit_beside(Round busy, const char* options, int round) {
  return kit::run({"EXCEPTIONS SUMMARY LOG=/dev/null", "", ""}, [=] {
    const int shared = Pool(options, "SH");
    for (int i = 0; i < 3; ++i) {
      std::thread([=] {
        for (;;) busy(shared);
      }).detach();
    }
    usleep(static_cast<useconds_t>(300 + 97 * round % 2000));
    std::exit(7);
  });
}

TEST(AutofreeAtExit, EndsBusyProgramsWithTheirCode) {
  const Scene scene(kit::Environment{});
  const char* const pieces = "AUTOFREE MULTITHREADED BLOCKMGMT BLOCKFREE";
  const struct {
    Round busy;
    const char* options;
  } kinds[] = {{use_memory, "AUTOFREE MULTITHREADED"},
               {use_memory, pieces},
               {use_objects, "AUTOFREE MULTITHREADED"},
               {use_own_handle_for_ever, ""},
               {use_new_handles, ""},
               {use_new_blocks, ""}};
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t kind = 0; kind < std::size(kinds); ++kind) {
      const Ended ended = exit_beside(kinds[kind].busy, kinds[kind].options, round);
      ASSERT_EQ(ended.signal, 0) << "kind " << kind << ", round " << round;
      ASSERT_EQ(ended.exit_code, 7) << ended.err;
    }
  }
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

/** What processes with QK_MEM_CHECK write, and how they end. */
namespace {

struct Checked {
  std::string end;  // "exit 0" or "signal 6"
  std::string err;
};

/** With several threads, which a sanitizer starts, handles take numbers of events in advance. */
std::string without_figures(const std::string& text) {
  return kit::replaced(kit::replaced(text, "process [0-9]+: ", ""), " in [0-9,]+ events?",
                       " in N events");
}

Checked checked(const char* options, const std::function<void()>& body) {
  const kit::Ended ended = kit::run({}, [&] {
    unsetenv("QK_MEM_PROFILE");  // whose report would have the findings
    setenv("QK_MEM_CHECK", options, 1);
    body();
  });
  return {ended.signal != 0 ? "signal " + std::to_string(ended.signal)
                            : "exit " + std::to_string(ended.exit_code),
          without_figures(ended.err)};
}

char* taken(int hid, std::size_t size, int line = 7) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

int handle_with_overflow() {
  const int hid = qk_mem_new_handle("", "SE");
  taken(hid, 24)[24] = 'A';
  return hid;
}

class EndsOfCheckedProcesses : public testing::Test {
 protected:
  kit::Scene scene_;
};

TEST_F(EndsOfCheckedProcesses, SayNothingIfNothingWasFound) {
  const Checked run = checked("GUARD FILL QUARANTINE FINDINGS=FAIL", [] {
    const int hid = qk_mem_new_handle("", "SE");
    qk_mem_free(hid, taken(hid, 24));
    taken(hid, 10);
  });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: no misuse and no damage in N events\n"
      "qkmem: guards of 1 block that are left took 16 B\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, FindDamageOfLiveBlocks) {
  const Checked run = checked("GUARD", [] { handle_with_overflow(); });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 41\n"
      "qkmem: 1 finding in N events\n"
      "  times  what\n"
      "      1  1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event "
      "1), last seen whole at event 1: 41\n"
      "qkmem: guards of 1 block that are left took 16 B\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, FindWritesAfterFree) {
  const Checked run = checked("QUARANTINE", [] {
    const int hid = qk_mem_new_handle("", "SE");
    char* const memory = taken(hid, 24);
    qk_mem_ifree(hid, memory, "src/b.c", 12);
    std::memset(memory + 2, 0, 3);
  });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: 3 bytes written after free 2 bytes into a block of 24, freed at b.c:12 (event 2), "
      "allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 00 00 00\n"
      "qkmem: 1 finding in N events\n"
      "  times  what\n"
      "      1  3 bytes written after free 2 bytes into a block of 24, freed at b.c:12 (event "
      "2), allocated at a.c:7 by handle 3 SE (event 1), last seen whole at event 2: 00 00 00\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, HaveAFailingCode) {
  EXPECT_EQ("exit 23", checked("GUARD FINDINGS=FAIL", [] { handle_with_overflow(); }).end);
  EXPECT_EQ("exit 7", checked("GUARD FINDINGS=FAIL=7", [] { handle_with_overflow(); }).end);
  EXPECT_EQ("exit 3", checked("GUARD FINDINGS=FAIL", [] {
                        handle_with_overflow();
                        std::exit(3);
                      }).end);
}

TEST_F(EndsOfCheckedProcesses, ComeAtOnceWithABORT) {
  const Checked run = checked("GUARD ABORT", [] {
    qk_mem_check(handle_with_overflow());
    std::fputs("not reached", stderr);
  });
  EXPECT_EQ("signal 6", run.end);
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 41\n"
      "qkmem: 1 finding in N events\n"
      "  times  what\n"
      "      1  1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event "
      "1), last seen whole at event 1: 41\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, WriteFindingsToAFile) {
  const Checked run = checked("GUARD REPORT=found", [] { handle_with_overflow(); });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 41\n",
      run.err);
  EXPECT_EQ(
      "qkmem: 1 finding in N events\n"
      "  times  what\n"
      "      1  1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event "
      "1), last seen whole at event 1: 41\n"
      "qkmem: guards of 1 block that are left took 16 B\n",
      without_figures(kit::contents("found")));
}

TEST_F(EndsOfCheckedProcesses, AreMarkedByMistakesInTheVariable) {
  const Checked run = checked("GUARDS FILL", [] { qk_mem_new_handle("", ""); });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: QK_MEM_CHECK: unknown keyword 'GUARDS'; is GUARD meant? The rest is used.\n"
      "qkmem: no misuse and no damage in N events\n",
      run.err);
}

volatile std::sig_atomic_t traps = 0;

TEST_F(EndsOfCheckedProcesses, CanFollowSIGTRAPAtAnEvent) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "numbers of events are taken in advance";
#endif
  const Checked run = checked("GUARD BREAK=3", [] {
    std::signal(SIGTRAP, [](int /*number*/) { traps = traps + 1; });
    const int hid = qk_mem_new_handle("", "SE");
    taken(hid, 1);
    taken(hid, 2);
    const int before = traps;
    taken(hid, 3);
    const int at = traps;
    taken(hid, 4);
    std::fprintf(stderr, "%d %d %d", before, at, static_cast<int>(traps));
  });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "0 1 1qkmem: no misuse and no damage in N events\n"
      "qkmem: guards of 4 blocks that are left took 64 B\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, OfAForkHaveTheirOwnFindings) {
  const Checked run = checked("GUARD QUARANTINE FINDINGS=FAIL", [] {
    const int hid = qk_mem_new_handle("", "SE");
    char* const memory = taken(hid, 24);
    const pid_t child = fork();
    if (child == 0) {
      memory[24] = 'A';
      std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::fprintf(stderr, "%d\n", WEXITSTATUS(status));
  });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_EQ(
      "qkmem: 1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event 1), "
      "last seen whole at event 1: 41\n"
      "qkmem: 1 finding in N events\n"
      "  times  what\n"
      "      1  1 byte written behind a block of 24, allocated at a.c:7 by handle 3 SE (event "
      "1), last seen whole at event 1: 41\n"
      "qkmem: guards of 1 block that are left took 16 B\n"
      "qkmem: the process ends with 23, because 1 finding was told (FINDINGS=FAIL)\n"
      "23\n"
      "qkmem: no misuse and no damage in N events\n"
      "qkmem: guards of 1 block that are left took 16 B\n",
      run.err);
}

TEST_F(EndsOfCheckedProcesses, FollowAWholePageOfOverflow) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's allocator lays blocks apart";
#endif
  const Checked run = checked("GUARD", [] {
    const int hid = qk_mem_new_handle("", "SE");
    char* memory = nullptr;
    char* behind = nullptr;
    // The first ones may fill holes. Those at the end of the heap lie side by side.
    while (behind == nullptr || behind < memory || behind > memory + 1000) {
      memory = taken(hid, 24);
      behind = taken(hid, 8192, 8);
    }
    std::memset(memory + 24, 'A', 4096);
    qk_mem_check(0);
    std::_Exit(0);
  });
  EXPECT_EQ("exit 0", run.end);
  EXPECT_NE(std::string::npos,
            run.err.find("the whole guard of 16 bytes behind a block of 24 destroyed"))
      << run.err;
}

}  // namespace

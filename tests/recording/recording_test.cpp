#include "tests/kit/recording.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Recording;
using kit::Scene;

kit::Environment with_profile(const char* options) { return {"", "", "", options}; }

/** Runs a program with the profile on, which reports nowhere. */
template <class Body>
kit::Ended run_recorded(const std::string& options, Body body) {
  return kit::run(with_profile((options + " REPORT=/dev/null").c_str()), body);
}

void* take(int hid, std::size_t bytes, int line) {
  return qk_mem_imalloc(hid, bytes, 16, "src/a.c", line);
}

bool exists(const std::string& name) { return access(name.c_str(), F_OK) == 0; }

TEST(Recording, HasEachEventOfAProgram) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm", [] {
    const Pool pool("", "AB");
    void* const first = take(pool, 100, 1);
    void* const second = take(pool, 200, 2);
    qk_mem_ifree(pool, first, "a.c", 3);
    take(pool, 200, 2);
    qk_mem_ifree(pool, second, "a.c", 4);
  });
  EXPECT_EQ("", ended.err);
  const Recording recording("r.qkm");
  EXPECT_EQ(
      "1 made A, 100 B at src/a.c:1 on 3 AB\n"
      "2 made B, 200 B at src/a.c:2 on 3 AB\n"
      "3 gone A\n"
      "4 made C, 200 B at src/a.c:2 on 3 AB\n"
      "5 gone B\n",
      recording.events());
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_FALSE(exists("r.qkm.tail"));
}

TEST(Recording, ShowsWhatAReallocReplaces) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool pool;
    void* block = take(pool, 100, 1);
    block = qk_mem_irealloc(pool, block, 5000, 16, "a.c", 2);
    qk_mem_irealloc(pool, block, SIZE_MAX / 4, 16, "a.c", 3);
    qk_mem_ifree(pool, block, "a.c", 4);
  });
  const Recording recording("r.qkm");
  EXPECT_EQ(
      "1 made A, 100 B at src/a.c:1 on 3\n"
      "2 set aside A\n"
      "2 made B, 5000 B at a.c:2 on 3, in place\n"
      "3 set aside B\n"
      "3 back B\n"
      "3 gone B\n",
      recording.events());
  EXPECT_EQ("", recording.errors());
}

TEST(Recording, ShowsClearsAndDeletions) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool pool("BLOCKMGMT BLOCKSIZE=4096", "BM");
    take(pool, 100, 1);
    take(pool, 100, 1);
    qk_mem_iclear_handle(pool, "a.c", 2);
    take(pool, 50, 3);
    qk_mem_idel_handle(pool, "a.c", 4);
  });
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_EQ(
      "1 made A, 100 B at a.c:1 on 3 BM\n"
      "2 made B, 100 B at a.c:1 on 3 BM\n"
      "3 cleared 3\n"
      "4 made C, 50 B at a.c:3 on 3 BM\n"
      "5 cleared 3\n"
      "6 deleted 3\n",
      recording.events());
}

TEST(Recording, NamesBlocksFromBeforeAsUnsure) {
  const Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("REPORT=/dev/null"));
  const Pool pool;
  void* const early = take(pool, 100, 1);
  take(pool, 30, 2);
  ASSERT_EQ(0, qk_mem_profile_config("RECORD=r.qkm REPORT=/dev/null"));
  void* const late = take(pool, 10, 3);
  qk_mem_ifree(pool, early, "a.c", 4);
  qk_mem_ifree(pool, late, "a.c", 5);
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_EQ(
      "1 made A, 10 B at src/a.c:3 on 3\n"
      "2 gone ?, 100 B at src/a.c:1 on 3\n"
      "3 gone A\n",
      recording.events());
  EXPECT_EQ("1 for 30, made 1 for 10", recording.sums_of(3));
}

TEST(Recording, HasBlocksFromBeforeTheProfileWithTheirAddresses) {
  unsetenv("QK_MEM_PROFILE");  // with which there is nothing before
  const Scene scene;
  const Pool pool;
  void* const early = take(pool, 100, 1);
  ASSERT_EQ(0, qk_mem_profile_config("RECORD=r.qkm REPORT=/dev/null"));
  qk_mem_ifree(pool, early, "a.c", 4);
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_EQ(
      "1 made A, 100 B at no site on 3\n"
      "2 gone A\n",
      recording.events());
}

TEST(Recording, HasLabelsStacksAndModules) {
  const Scene scene;
  run_recorded("STACKS RECORD=r.qkm", [] {
    const Pool pool;
    qk::Site outer("request");
    qk::Site inner("parser");
    take(pool, 10, 1);
  });
  const Recording recording("r.qkm");
  EXPECT_EQ("1 made A, 10 B at src/a.c:1 [request > parser] on 3\n", recording.events());
  EXPECT_EQ("", recording.errors());
  EXPECT_LE(1U, recording.stacks());
  EXPECT_FALSE(recording.modules().empty());
}

TEST(Recording, SaysWhenSnapshotsWereTaken) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool pool;
    take(pool, 10, 1);
    qk_mem_snapshot("warm");
    take(pool, 10, 2);
    take(pool, 10, 3);
    qk_mem_snapshot("served");
    qk_mem_snapshot("");
  });
  const Recording recording("r.qkm");
  const std::vector<std::string> taken = {"warm behind event 1", "served behind event 3"};
  EXPECT_EQ(taken, recording.snapshots());
  EXPECT_EQ("", recording.errors());
}

TEST(Recording, HasTheProcessInItsNameAndInItself) {
  const Scene scene;
  run_recorded("RECORD=r.%p", [] { take(Pool(), 10, 1); });
  for (const auto& file : std::filesystem::directory_iterator(".")) {
    const std::string name = file.path().filename();
    if (!name.starts_with("r.")) continue;
    const Recording recording(name);
    EXPECT_EQ(name, "r." + std::to_string(recording.process()));
    EXPECT_NE("", recording.command());
    return;
  }
  FAIL() << "there is no recording";
}

/** A life of random steps. */
void live_randomly(int hid, unsigned seed, int steps) {
  std::minstd_rand random(seed);
  std::vector<void*> blocks;
  for (int i = 0; i < steps; ++i) {
    const int line = static_cast<int>(random() % 50);
    if (blocks.size() < 20 || random() % 2 == 0) {
      blocks.push_back(take(hid, random() % 1000, line));
      continue;
    }
    void*& block = blocks[random() % blocks.size()];
    if (random() % 4 == 0) {
      block = qk_mem_irealloc(hid, block, random() % 2000 + 1, 16, "a.c", line);
      continue;
    }
    qk_mem_ifree(hid, block, "a.c", line);
    block = blocks.back();
    blocks.pop_back();
  }
}

TEST(Recording, OfEightThreadsHasTheSumsOfTheLibrary) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool first("MULTITHREADED", "AA");
    const Pool second("MULTITHREADED", "BB");
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 8; ++i) {
      threads.emplace_back([&, i] { live_randomly(i % 2 == 0 ? first : second, i, 20'000); });
    }
    for (std::thread& thread : threads) thread.join();
  });
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_LT(160'000U, recording.event_count());
  EXPECT_EQ(8U, recording.thread_names().size());
}

TEST(Recording, OfAProgramThatIsKilledHasAllEvents) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm", [] {
    const Pool pool("MULTITHREADED");
    std::thread([&] { live_randomly(pool, 1, 30'000); }).join();
    live_randomly(pool, 2, 30'000);
    take(pool, 77, 999);
    raise(SIGKILL);
  });
  EXPECT_EQ(SIGKILL, ended.signal);
  EXPECT_TRUE(exists("r.qkm.tail"));
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_FALSE(recording.is_closed());
  const std::string events = recording.events();
  EXPECT_NE(std::string::npos, events.rfind(", 77 B at src/a.c:999 on 3\n", events.size() - 1));
}

TEST(Recording, OfManyThreadsOneAfterTheOtherHasASmallTail) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool pool("MULTITHREADED");
    for (int i = 0; i < 100; ++i) std::thread([&] { take(pool, 10, 1); }).join();
    raise(SIGKILL);
  });
  EXPECT_GE(3U * 65536, kit::contents("r.qkm.tail").size());
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_EQ(100U, recording.event_count());
  EXPECT_EQ(100U, recording.thread_names().size());
}

TEST(Recording, OfAProgramThatIsTerminatedIsClosed) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm", [] {
    take(Pool(), 77, 1);
    raise(SIGTERM);
  });
  EXPECT_EQ(SIGTERM, ended.signal);
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_EQ(1U, recording.event_count());
}

/** Lets a child allocate twice, and waits for it. */
pid_t fork_child(int hid) {
  const pid_t child = fork();
  if (child == 0) {
    take(hid, 11, 100);
    take(hid, 12, 101);
    std::exit(0);
  }
  waitpid(child, nullptr, 0);
  return child;
}

TEST(RecordingOfAFork, IsTheParentsAlone) {
  const Scene scene;
  run_recorded("RECORD=r.qkm", [] {
    const Pool pool;
    take(pool, 10, 1);
    fork_child(pool);
    take(pool, 20, 2);
  });
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_EQ(
      "1 made A, 10 B at src/a.c:1 on 3\n"
      "2 made B, 20 B at src/a.c:2 on 3\n",
      recording.events());
}

TEST(RecordingOfAFork, IsTheChildsTooIfItsNameHasTheProcess) {
  const Scene scene;
  run_recorded("RECORD=r.%p", [] {
    const Pool pool;
    void* const block = take(pool, 10, 1);
    const pid_t child = fork_child(pool);
    std::rename(("r." + std::to_string(child)).c_str(), "child");
    qk_mem_ifree(pool, block, "a.c", 2);
    std::rename(("r." + std::to_string(getpid())).c_str(), "parent");
  });
  const Recording child("child");
  EXPECT_EQ("", child.errors());
  EXPECT_TRUE(child.is_closed());
  EXPECT_EQ("3 for 33, made 2 for 23", child.sums_of(3));
  const Recording parent("parent");
  EXPECT_EQ("", parent.errors());
  EXPECT_EQ("0 for 0, made 1 for 10", parent.sums_of(3));
}

TEST(RecordingOfAFork, ThatCantBeginIsToldOnce) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=folder/r.%p", [] {
    if (mkdir("folder", 0700) != 0) std::exit(1);
    const Pool pool;
    take(pool, 10, 1);
    if (chdir("/") != 0) std::exit(1);
    fork_child(pool);
  });
  EXPECT_EQ(1U, std::count(ended.err.begin(), ended.err.end(), '\n'));
}

TEST(RecordingOfAFork, IsNotBegunByAChildWithoutEvents) {
  const Scene scene;
  run_recorded("RECORD=r.%p", [] {
    take(Pool(), 10, 1);
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    waitpid(child, nullptr, 0);
    std::exit(exists("r." + std::to_string(child)) ? 1 : 0);
  });
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(".")) {
    if (file.path().filename().string().starts_with("r.")) ++files;
  }
  EXPECT_EQ(1, files);
}

TEST(Recording, ThatCantBeginIsTold) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=nowhere/r.qkm", [] { take(Pool(), 10, 1); });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("qkmem: nothing is recorded to 'nowhere/r.qkm': No such file or directory\n",
            ended.err);
}

TEST(Recording, EndsOnceTheDiskIsFull) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=/dev/full", [] {
    const Pool pool;
    for (int i = 0; i < 100; ++i) take(pool, 10, 1);
  });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("qkmem: nothing more is recorded to '/dev/full': No space left on device\n", ended.err);
}

TEST(Recording, EndsBeforeTheLimitOfFilesSizes) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm", [] {
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 200'000;
    setrlimit(RLIMIT_FSIZE, &limit);
    live_randomly(Pool(), 1, 60'000);
  });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("qkmem: nothing more is recorded to 'r.qkm': File too large\n", ended.err);
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_LT(10'000U, recording.event_count());
}

TEST(Recording, GoesOnAfterTheProgramHasClosedItsDescriptors) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm", [] {
    const Pool pool;
    live_randomly(pool, 1, 10'000);
    for (int descriptor = 3; descriptor < 100; ++descriptor) close(descriptor);
    if (mkdir("folder", 0700) != 0 || chdir("folder") != 0) std::exit(1);
    for (int i = 0; i < 10; ++i) {
      if (open("../other", O_RDWR | O_CREAT, 0600) < 0) std::exit(1);
    }
    live_randomly(pool, 2, 50'000);
  });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("", kit::contents("other"));
  EXPECT_FALSE(exists("r.qkm.tail"));
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_LT(60'000U, recording.event_count());
}

TEST(Recording, GoesThroughAFifo) {
  const Scene scene;
  ASSERT_EQ(0, mkfifo("fifo", 0600));
  const pid_t reader = fork();
  if (reader == 0) {
    execlp("sh", "sh", "-c", "cat fifo >r.qkm", nullptr);
    _exit(127);
  }
  run_recorded("RECORD=fifo", [] { live_randomly(Pool(), 1, 30'000); });
  waitpid(reader, nullptr, 0);
  EXPECT_FALSE(exists("fifo.tail"));
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
}

TEST(Recording, LeavesTheProgramAloneIfAFifosReaderGoes) {
  const Scene scene;
  ASSERT_EQ(0, mkfifo("fifo", 0600));
  const pid_t reader = fork();
  if (reader == 0) {
    execlp("sh", "sh", "-c", "head -c 100000 fifo >r.qkm", nullptr);
    _exit(127);
  }
  const auto ended = run_recorded("RECORD=fifo", [] { live_randomly(Pool(), 1, 200'000); });
  waitpid(reader, nullptr, 0);
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("qkmem: nothing more is recorded to 'fifo': Broken pipe\n", ended.err);
}

TEST(Recording, KeepsTheLatestEventsWithinItsLimit) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm RECORD_MAX=1M", [] {
    const Pool pool;
    std::vector<void*> early;
    for (int i = 0; i < 100; ++i) early.push_back(take(pool, 100, 1));
    live_randomly(pool, 1, 1'000'000);
    for (void* const block : early) qk_mem_ifree(pool, block, "a.c", 2);
    take(pool, 10, 3);
  });
  EXPECT_EQ("", ended.err);
  const Recording recording("r.qkm");
  EXPECT_EQ("", recording.errors());
  EXPECT_TRUE(recording.is_closed());
  EXPECT_LT(500'000U, recording.dropped());
  EXPECT_LT(50'000U, recording.event_count());
  EXPECT_NE(std::string::npos, recording.events().find(" gone ?, 100 B at src/a.c:1 on 3\n"));
  struct stat status = {};
  ASSERT_EQ(0, stat("r.qkm", &status));
  EXPECT_GT(1'300'000, status.st_blocks * 512);
  EXPECT_LT(2'000'000, status.st_size);
}

TEST(Recording, LeavesOutASampleAndSaysSo) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm SAMPLE=1G", [] { take(Pool(), 10, 1); });
  EXPECT_EQ("qkmem: QK_MEM_PROFILE: SAMPLE is left out, because a recording has all blocks\n",
            ended.err);
  EXPECT_EQ(1U, Recording("r.qkm").event_count());
}

TEST(Recording, IsRefusedWhileBlocksOfASampleCanBeLive) {
  const Scene scene;
  const auto ended = run_recorded("SAMPLE=1G", [] {
    qk_mem_profile_config("RECORD=r.qkm REPORT=/dev/null");
    take(Pool(), 10, 1);
  });
  EXPECT_EQ(
      "qkmem: qk_mem_profile_config: there is no recording, because blocks of a sample can be "
      "live\n",
      ended.err);
  EXPECT_FALSE(exists("r.qkm"));
}

TEST(Recording, CanFollowAnotherOne) {
  const Scene scene;
  const Pool pool("MULTITHREADED");
  ASSERT_EQ(0, qk_mem_profile_config("RECORD=first REPORT=/dev/null"));
  live_randomly(pool, 1, 1000);
  ASSERT_EQ(0, qk_mem_profile_config("RECORD=second REPORT=/dev/null"));
  live_randomly(pool, 2, 1000);
  ASSERT_EQ(0, qk_mem_profile_config("REPORT=/dev/null"));
  live_randomly(pool, 3, 1000);
  for (const char* name : {"first", "second"}) {
    const Recording recording(name);
    EXPECT_EQ("", recording.errors());
    EXPECT_TRUE(recording.is_closed());
    EXPECT_LT(1000U, recording.event_count());
  }
}

TEST(Recording, AgreesWithFiguresThatCountAnew) {
  const Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("RECORD=r.qkm REPORT=/dev/null"));
  const Pool pool;
  live_randomly(pool, 1, 1000);
  ASSERT_EQ(0, qk_mem_profile_config(""));
  EXPECT_EQ("", Recording("r.qkm").errors());
}

}  // namespace

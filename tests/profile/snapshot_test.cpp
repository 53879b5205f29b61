#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "config/profile_config.h"
#include "profile/report/growth.h"
#include "profile/snapshots.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "support/line.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::growth;
using kit::Pool;

class Snapshot : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null")); }

  kit::Scene scene_;
};

void* take(int hid, std::size_t size, int line) {
  return qk_mem_imalloc(hid, size, 16, "a.c", line);
}

TEST_F(Snapshot, IsWhatGrowthIsMeasuredFrom) {
  const Pool pool;
  take(pool, 1000, 1);
  ASSERT_EQ(0, qk_mem_snapshot("before"));
  take(pool, 100, 1);
  take(pool, 10, 2);
  EXPECT_EQ("a.c:1 +100 in +1 a.c:2 +10 in +1", growth("SINCE=before"));
}

TEST_F(Snapshot, ReplacesAnOlderOneOfItsName) {
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(pool, 100, 1);
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(pool, 10, 2);
  EXPECT_EQ("a.c:2 +10 in +1", growth("SINCE=mark"));
}

TEST_F(Snapshot, StandsBesideOthers) {
  const Pool pool;
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(0, qk_mem_snapshot(std::to_string(i).c_str()));
    take(pool, 10, i + 1);
  }
  EXPECT_EQ("a.c:50 +10 in +1", growth("SINCE=49"));
  EXPECT_EQ("a.c:8 +10 in +1 a.c:9 +10 in +1", growth("SINCE=7 UNTIL=9"));
}

TEST_F(Snapshot, KeepsACopyOfItsName) {
  const Pool pool;
  char name[] = "first";
  ASSERT_EQ(0, qk_mem_snapshot(name));
  name[0] = 'F';
  take(pool, 10, 1);
  EXPECT_EQ("a.c:1 +10 in +1", growth("SINCE=first"));
}

TEST_F(Snapshot, NeedsANameOfOneTo200Bytes) {
  EXPECT_EQ(5014, qk_mem_snapshot(nullptr));
  EXPECT_EQ(5014, qk_mem_error());
  EXPECT_EQ(5022, qk_mem_snapshot(""));
  EXPECT_EQ(5022, qk_mem_error());
  EXPECT_EQ(0, qk_mem_snapshot(std::string(200, 'x').c_str()));
  EXPECT_EQ(5022, qk_mem_snapshot(std::string(201, 'x').c_str()));
}

TEST_F(Snapshot, IsForgottenWhenItIsDropped) {
  ASSERT_EQ(0, qk_mem_snapshot("one"));
  ASSERT_EQ(0, qk_mem_snapshot("two"));
  ASSERT_EQ(0, qk_mem_snapshot("three"));
  EXPECT_EQ(0, qk_mem_drop_snapshot("two"));
  EXPECT_EQ(5002, qk_mem_drop_snapshot("two"));
  EXPECT_EQ(5002, qk_mem_error());
  EXPECT_EQ(5014, qk_mem_drop_snapshot(nullptr));
  EXPECT_EQ(5002, kit::requested("SINCE=two").code);
  EXPECT_EQ(0, kit::requested("SINCE=one UNTIL=three").code);
}

TEST_F(Snapshot, GivesItsMemoryBackWhenReplacedOrDropped) {
  const Pool pool;
  for (int line = 1; line <= 2000; ++line) take(pool, 10, line);
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  const std::uint64_t mapped = qk::mem::profile::own_bytes();
  for (int i = 0; i < 100; ++i) ASSERT_EQ(0, qk_mem_snapshot("mark"));
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, qk_mem_snapshot("other"));
    ASSERT_EQ(0, qk_mem_drop_snapshot("other"));
  }
  EXPECT_EQ(mapped, qk::mem::profile::own_bytes());
}

TEST_F(Snapshot, CountsAsMemoryOfTheProfile) {
  const Pool pool;
  for (int line = 1; line <= 2000; ++line) take(pool, 10, line);
  const std::uint64_t mapped = qk::mem::profile::own_bytes();
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  EXPECT_EQ(mapped + (64U << 10), qk::mem::profile::own_bytes());
}

TEST_F(Snapshot, ThatMaxLeavesNoRoomForIsToldAndTheOlderStays) {
  const Pool pool;
  for (int line = 1; line <= 2000; ++line) take(pool, 10, line);
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(pool, 10, 1);
  ASSERT_EQ(0, qk_mem_profile_config("MAX=100K REPORT=/dev/null"));
  const std::uint64_t mapped = qk::mem::profile::own_bytes();
  testing::internal::CaptureStderr();
  EXPECT_EQ(5012, qk_mem_snapshot("mark"));
  EXPECT_EQ(5012, qk_mem_error());
  EXPECT_EQ("qkmem: the snapshot \"mark\" was not kept: MAX is too small\n",
            testing::internal::GetCapturedStderr());
  EXPECT_EQ(mapped, qk::mem::profile::own_bytes());
  EXPECT_EQ("a.c:1 +10 in +1", growth("SINCE=mark"));
}

TEST(SnapshotWithoutProfile, IsRefused) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  EXPECT_EQ(5061, qk_mem_snapshot("mark"));
  EXPECT_EQ(5061, qk_mem_error());
  EXPECT_EQ(0U, qk::mem::profile::own_bytes());
}

TEST(SnapshotWithoutProfile, IsTakenWhenTheEnvironmentAsksForTheProfile) {
  const kit::Scene scene(kit::Environment{"", "", "", "SITES REPORT=/dev/null"});
  EXPECT_EQ(0, qk_mem_snapshot("first call of all"));
}

TEST(SnapshotWithoutProfile, IsTakenOfMemoryFromBeforeTheProfileToo) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Pool one;
  const Pool two;
  void* const first = take(one, 10, 1);
  void* const second = take(two, 100, 1);
  ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null"));
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  EXPECT_EQ("", growth("SINCE=mark"));
  qk_mem_free(one, first);
  EXPECT_EQ("(from before the profile was on) -10 in -1", growth("SINCE=mark"));
  qk_mem_free(two, second);
  EXPECT_EQ("(from before the profile was on) -110 in -2", growth("SINCE=mark"));
  EXPECT_EQ("(from before the profile was on) -100 in -1", growth("SINCE=mark HANDLE=4"));
  EXPECT_EQ("", growth("SINCE=mark FILE=*"));
}

TEST_F(Snapshot, IsTakenOfMemoryThatIsNotRecordedToo) {
  const Pool pool;
  for (int line = 1; line <= 40; ++line) take(pool, 10, line);
  ASSERT_EQ(0, qk_mem_profile_config("MAX=0 REPORT=/dev/null"));
  void* last = nullptr;
  for (int line = 41; line <= 3000; ++line) last = take(pool, 10, line);
  const auto not_recorded = kit::row_of(qk::mem::profile::RowKind::kNotRecorded);
  ASSERT_NE(0U, not_recorded.live_blocks);
  ASSERT_EQ(0, qk_mem_profile_config("SITES REPORT=/dev/null"));
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  EXPECT_EQ("", growth("SINCE=mark"));
  qk_mem_free(pool, last);
  EXPECT_EQ("(not recorded: the profile had no memory left) -10 in -1", growth("SINCE=mark"));
}

TEST_F(Snapshot, HasWhatWasMadeToo) {
  const Pool pool;
  for (int i = 0; i < 7; ++i) qk_mem_free(pool, take(pool, 10, 1));
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  for (int i = 0; i < 5; ++i) qk_mem_free(pool, take(pool, 10, 1));
  take(pool, 10, 1);
  EXPECT_EQ(6U, kit::growth_at("SINCE=mark", "a.c", 1).made_blocks);
  EXPECT_EQ(60U, kit::growth_at("SINCE=mark", "a.c", 1).made_bytes);
}

TEST_F(Snapshot, BeforeAResetCountsWhatWasMadeSinceTheReset) {
  const Pool pool;
  for (int i = 0; i < 7; ++i) qk_mem_free(pool, take(pool, 10, 1));
  take(pool, 10, 1);
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  qk::mem::reset_profile();
  for (int i = 0; i < 9; ++i) qk_mem_free(pool, take(pool, 10, 1));
  EXPECT_EQ(10U, kit::growth_at("SINCE=mark", "a.c", 1).made_blocks);
  EXPECT_EQ(0, kit::growth_at("SINCE=mark", "a.c", 1).bytes);
}

TEST_F(Snapshot, OfAParentIsKnownToAForkedChild) {
  const Pool pool;
  ASSERT_EQ(0, qk_mem_snapshot("parent"));
  const pid_t child = fork();
  if (child == 0) {
    take(pool, 10, 1);
    const bool knows = growth("SINCE=parent") == "a.c:1 +10 in +1";
    const bool takes = qk_mem_snapshot("child") == 0;
    take(pool, 20, 2);
    _exit(knows && takes && growth("SINCE=child") == "a.c:2 +20 in +1" ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(0, status);
  EXPECT_EQ("", growth("SINCE=parent"));
  EXPECT_EQ(5002, kit::requested("SINCE=child").code);
}

TEST_F(Snapshot, CanBeTakenByAForkedChildOfAThreadedProcess) {
  std::atomic<bool> is_over = false;
  std::thread busy([&is_over] {
    for (int i = 0; !is_over; ++i) {
      qk_mem_snapshot("busy");
      qk_mem_drop_snapshot("busy");
    }
  });
  for (int i = 0; i < 50; ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(qk_mem_snapshot("child"));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
  }
  is_over = true;
  busy.join();
}

TEST_F(Snapshot, CanBeTakenWhileThreadsAllocateAndReport) {
  constexpr int kThreads = 3;
  constexpr int kRounds = 300;
  std::atomic<int> running = kThreads;
  std::vector<std::thread> threads;
  const Pool shared("MULTITHREADED");
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&running, &shared, thread] {
      const Pool own;
      for (int i = 1; i <= kRounds; ++i) {
        take(own, 10, thread * kRounds + i);
        qk_mem_free(shared, take(shared, 100, i));
      }
      --running;
    });
  }
  threads.emplace_back([&running] {
    std::FILE* const nowhere = std::fopen("/dev/null", "w");
    while (running != 0) qk_mem_profile_report(nowhere, "SINCE=mark FORMAT=JSON");
    std::fclose(nowhere);
  });
  do {
    ASSERT_EQ(0, qk_mem_snapshot("mark"));
  } while (running != 0);
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  EXPECT_EQ("", growth("SINCE=mark"));
  EXPECT_EQ("", kit::profile_errors());
}

TEST_F(Snapshot, IsNamedAsUnknownEvenIfItWasTakenMeanwhile) {
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  qk::mem::profile::GrowthQuery query;
  query.since = "mark";
  qk::Line line;
  put_growth_error(line, qk::mem::profile::GrowthError::kNoBeginning, query);
  EXPECT_EQ("qkmem: unknown snapshot \"mark\"; is \"mark\" meant?\n", line.finish());
}

TEST(SnapshotCommand, IsTakenByTheControlFile) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=/dev/null"));
  const Pool pool;
  std::ofstream("control") << "snapshot at noon\nSNAPSHOT  'in quotes' \nsnapshot  \nsnapshot ''\n";
  testing::internal::CaptureStderr();
  for (int i = 0; i < 6000 && kit::requested("SINCE='in quotes'").code != 0; ++i) {
    qk_mem_profile_tick();
    usleep(10'000);
  }
  EXPECT_EQ(
      "qkmem: unknown command 'snapshot' in control; there are on, off, report, report OPTIONS, "
      "reset and snapshot NAME\n"
      "qkmem: the name of a snapshot has 1 to 200 bytes\n",
      testing::internal::GetCapturedStderr());
  take(pool, 10, 1);
  EXPECT_EQ("a.c:1 +10 in +1", growth("SINCE='at noon'"));
  EXPECT_EQ("a.c:1 +10 in +1", growth("SINCE='in quotes'"));
}

}  // namespace

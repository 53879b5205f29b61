#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "profile/state.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;

/** Ticks until a condition holds, for a minute at most. */
template <class Condition>
[[nodiscard]] bool tick_until(Condition holds) {
  for (int i = 0; i < 6000; ++i) {
    qk_mem_profile_tick();
    if (holds()) return true;
    usleep(10'000);
  }
  return false;
}

void write_file(const char* name, const std::string& text) { std::ofstream(name) << text; }

void* take(int hid, int line) { return qk_mem_imalloc(hid, 100, 16, "a.c", line); }

TEST(Reports, AreWrittenAtIntervalsWhileTheProgramRuns) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("EVERY=1 REPORT=r.%i"));
  const Pool pool;
  take(pool, 1);
  EXPECT_TRUE(tick_until([] { return !kit::contents("r.2").empty(); }));
  EXPECT_EQ(0U, kit::contents("r.1").find("qkmem: 1 site holds 100 B in 1 block; peak 100 B at"));
}

TEST(Reports, AreWrittenByAllocationsToo) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("EVERY=1 REPORT=r.%i"));
  const Pool pool;
  for (int i = 0; i < 6000 && kit::contents("r.1").empty(); ++i) {
    qk_mem_free(pool, take(pool, 1));
    usleep(10'000);
  }
  EXPECT_NE("", kit::contents("r.1"));
}

TEST(ControlFile, SwitchesTheProfileOffAndOn) {
  const kit::Scene scene;
  write_file("control", "off\n");
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=/dev/null"));
  const Pool pool;
  EXPECT_TRUE(tick_until([] { return !qk::mem::profile::is_on(); }));
  take(pool, 1);
  EXPECT_EQ(0U, kit::site_at("a.c", 1).made_blocks);
  write_file("control", "on");
  EXPECT_TRUE(tick_until([] { return qk::mem::profile::is_on(); }));
  take(pool, 2);
  EXPECT_EQ(1U, kit::site_at("a.c", 2).live_blocks);
}

TEST(ControlFile, IsLookedAtByAllocationsWhileTheProfileIsOff) {
  const kit::Scene scene;
  write_file("control", "off\n");
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=/dev/null"));
  const Pool pool;
  EXPECT_TRUE(tick_until([] { return !qk::mem::profile::is_on(); }));
  write_file("control", "on  \r\n");
  for (int i = 0; i < 6000 && !qk::mem::profile::is_on(); ++i) {
    take(pool, 1);
    usleep(10'000);
  }
  EXPECT_TRUE(qk::mem::profile::is_on());
}

TEST(ControlFile, AsksForAReportOnceForEachChange) {
  const kit::Scene scene;
  write_file("control", "report\n");
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=r.%i"));
  EXPECT_TRUE(tick_until([] { return !kit::contents("r.1").empty(); }));
  for (int i = 0; i < 250; ++i) {
    qk_mem_profile_tick();
    usleep(10'000);
  }
  EXPECT_EQ("", kit::contents("r.2"));
}

TEST(ControlFile, AsksForReportsWithOptionsOfTheirOwn) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=r.%i"));
  const Pool pool;
  take(pool, 1);
  ASSERT_EQ(0, qk_mem_snapshot("mark"));
  take(pool, 2);
  testing::internal::CaptureStderr();
  write_file("control", "report SINCE=mark TOPP=1\nreport FORMAT=JSON\n");
  EXPECT_TRUE(tick_until([] { return !kit::contents("r.2").empty(); }));
  EXPECT_EQ("qkmem: control: unknown keyword 'TOPP'; is TOP meant? The rest is used.\n",
            testing::internal::GetCapturedStderr());
  EXPECT_EQ(0U, kit::contents("r.1").find("qkmem: 1 site grew by 100 B in 1 block between"));
  EXPECT_EQ(0U, kit::contents("r.2").find("{\"program\":"));
}

TEST(ControlFile, TakesNothingBehindOtherCommands) {
  const kit::Scene scene;
  write_file("control", "off now\nreport\n");
  testing::internal::CaptureStderr();
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=r"));
  EXPECT_TRUE(tick_until([] { return !kit::contents("r").empty(); }));
  EXPECT_EQ(
      "qkmem: unknown command 'off now' in control; there are on, off, report, report OPTIONS, "
      "reset and snapshot NAME\n",
      testing::internal::GetCapturedStderr());
  EXPECT_TRUE(qk::mem::profile::is_on());
}

TEST(ControlFile, ResetsWhatWasMadeAndHighest) {
  const kit::Scene scene;
  write_file("control", "");
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control PEAK REPORT=/dev/null"));
  const Pool pool;
  take(pool, 1);
  for (int i = 0; i < 5; ++i) qk_mem_free(pool, take(pool, 2));
  write_file("control", "reset\n");
  EXPECT_TRUE(tick_until([] { return kit::site_at("a.c", 2).made_blocks == 0; }));
  EXPECT_EQ("1 for 100, made 1 for 100", kit::held_by(kit::site_at("a.c", 1)));
  EXPECT_EQ(100U, qk::mem::profile::whole.highest);
  EXPECT_EQ("", kit::profile_errors());
  take(pool, 3);
  EXPECT_EQ(200U, qk::mem::profile::whole.highest);
  EXPECT_EQ("", kit::profile_errors());
}

TEST(ControlFile, NamesCommandsThatAreNotUnderstood) {
  const kit::Scene scene;
  write_file("control", "stop\nreport\n");
  testing::internal::CaptureStderr();
  ASSERT_EQ(0, qk_mem_profile_config("CONTROL=control REPORT=r"));
  EXPECT_TRUE(tick_until([] { return !kit::contents("r").empty(); }));
  EXPECT_EQ(
      "qkmem: unknown command 'stop' in control; there are on, off, report, report OPTIONS, "
      "reset and snapshot NAME\n",
      testing::internal::GetCapturedStderr());
}

TEST(ForkedChild, ReportsUnderItsOwnNumber) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "SITES"}, [] {
    take(QK_MEM_DATA_HANDLE, 1);
    const pid_t child = fork();
    if (child == 0) {
      take(QK_MEM_DATA_HANDLE, 2);
      std::exit(0);
    }
    waitpid(child, nullptr, 0);
    dprintf(STDOUT_FILENO, "%d", child);
  });
  EXPECT_EQ(0U, ended.err.find("qkmem: process " + ended.out + ": 2 sites still hold 200 B"))
      << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("\nqkmem: 1 site still holds 100 B")) << ended.err;
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

void write_file(const char* name, const std::string& text) { std::ofstream(name) << text; }

/** Runs a program with a setting of the profile. Its control file asks for one report. */
kit::Ended run(const std::string& options, void (*body)()) {
  write_file("control", "report\n");
  return kit::run({"", "", "", options.c_str()}, [body] {
    static_cast<void>(qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "a.c", 1));
    qk_mem_profile_tick();
    body();
  });
}

void say_whether_there_is(const char* name) {
  dprintf(STDOUT_FILENO, "%s", std::filesystem::exists(name) ? "there" : "gone");
}

constexpr char kShown[] = "FORMAT=OPENMETRICS CONTROL=control REPORT=m.prom";

TEST(FileForCollectors, IsRemovedWhenTheProcessEnds) {
  const kit::Scene scene;
  const kit::Ended ended = run(kShown, [] { say_whether_there_is("m.prom"); });
  EXPECT_EQ("there", ended.out);
  EXPECT_EQ("", ended.err);
  EXPECT_FALSE(std::filesystem::exists("m.prom"));
}

TEST(FileForCollectors, IsRemovedAtASignalThatEndsTheProcess) {
  const kit::Scene scene;
  const kit::Ended ended = run(kShown, [] {
    say_whether_there_is("m.prom");
    raise(SIGTERM);
    for (;;) pause();  // the end may be put off
  });
  EXPECT_EQ("there", ended.out);
  EXPECT_EQ(SIGTERM, ended.signal);
  EXPECT_FALSE(std::filesystem::exists("m.prom"));
}

TEST(FileForCollectors, StaysWhenAForkedChildEnds) {
  const kit::Scene scene;
  const kit::Ended ended = run(kShown, [] {
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    waitpid(child, nullptr, 0);
    say_whether_there_is("m.prom");
  });
  EXPECT_EQ("there", ended.out);
  EXPECT_FALSE(std::filesystem::exists("m.prom"));
}

TEST(FileForCollectors, StaysIfAnotherProgramHasReplacedIt) {
  const kit::Scene scene;
  const kit::Ended ended = run(kShown, [] {
    write_file("other", "another program's");
    std::filesystem::rename("other", "m.prom");
  });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("another program's", kit::contents("m.prom"));
}

TEST(FileForCollectors, IsNotMadeAtTheEndUnderEvery) {
  const kit::Scene scene;
  const kit::Ended ended = run("FORMAT=OPENMETRICS EVERY=1000000 REPORT=m.prom", [] {});
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_FALSE(std::filesystem::exists("m.prom"));
}

TEST(Metrics, AreWrittenAtTheEndIfTheyWereNotAskedForBefore) {
  const kit::Scene scene;
  EXPECT_EQ(0, run("FORMAT=OPENMETRICS REPORT=m.prom", [] {}).exit_code);
  EXPECT_TRUE(std::filesystem::exists("m.prom"));
  EXPECT_EQ(0, run("FORMAT=OPENMETRICS CONTROL=none REPORT=n.prom", [] {}).exit_code);
  EXPECT_TRUE(std::filesystem::exists("n.prom"));
}

TEST(Metrics, StayInFilesOfTheirOwnForEachReport) {
  const kit::Scene scene;
  EXPECT_EQ(0, run("FORMAT=OPENMETRICS CONTROL=control REPORT=m.%i", [] {}).exit_code);
  EXPECT_TRUE(std::filesystem::exists("m.1"));
  EXPECT_TRUE(std::filesystem::exists("m.2"));
}

TEST(Metrics, GoToStandardErrorAtTheEndToo) {
  const kit::Scene scene;
  const kit::Ended ended = run("FORMAT=OPENMETRICS EVERY=1000000 CONTROL=control", [] {});
  const std::string end = "# EOF\n";
  const std::size_t first = ended.err.find(end);
  ASSERT_NE(std::string::npos, first);
  EXPECT_NE(std::string::npos, ended.err.find(end, first + 1));
}

TEST(FileForPeople, HasTheReportAtTheEnd) {
  const kit::Scene scene;
  EXPECT_EQ(0, run("EVERY=1000000 CONTROL=control REPORT=m.txt", [] {}).exit_code);
  EXPECT_NE(std::string::npos, kit::contents("m.txt").find(" still holds 100 B "));
}

}  // namespace

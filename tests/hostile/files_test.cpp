#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/kit/scene.h"

/** Logs and trace files that can't be written. The program continues and ends normally. */
namespace {

using kit::Ended;
using kit::Environment;
using kit::Scene;

/** Causes events of many kinds, and prints "done" if the library accounted for them. */
void work() {
  const int hid = qk_mem_inew_handle("MULTITHREADED AUTOFREE", "AB", "src/app.c", 1);
  for (int i = 0; i < 200; ++i) {
    void* memory = qk_mem_imalloc(hid, 100, 16, "src/app.c", 2);
    if (i % 2 == 0) qk_mem_ifree(hid, memory, "src/app.c", 3);
  }
  qk_mem_ifree(hid, nullptr, "src/app.c", 4);
  if (qk_mem_isize(hid, "src/app.c", 5) == 10000) std::fputs("done\n", stderr);
}

void expect_done(const Environment& environment) {
  const Ended ended = kit::run(environment, work);
  EXPECT_EQ(ended.exit_code, 0);
  EXPECT_EQ(ended.signal, 0);
  EXPECT_NE(ended.err.find("done\n"), std::string::npos);
}

const char* const kSections = "OPTIONS=SUMMARY,HANDLES,MGMT,BLOCKS,POINTERS";

TEST(FullDisk, LosesOnlyTheLog) {
  const Scene scene;
  expect_done({"DEBUG SUMMARY LOG=/dev/full", "", kSections});
  expect_done({"DEBUG SUMMARY LOG=/dev/full FLUSH", "", kSections});
  expect_done({"DEBUG SUMMARY LOG=/dev/full APPEND", "HEAPSIZE FLUSH", kSections});
}

TEST(FullDisk, LosesOnlyTheTraceFile) {
  const Scene scene;
  expect_done({"DEBUG SUMMARY", "DB=/dev/full", kSections});
  expect_done({"DEBUG SUMMARY", "DB=/dev/full FLUSH", kSections});
}

TEST(FullDisk, LosesOnlyLogAndTraceFileAtASignal) {
  const Scene scene;
  const Ended ended =
      kit::run({"DEBUG SUMMARY LOG=/dev/full FLUSH", "DB=/dev/full", kSections}, [] {
        work();
        raise(SIGTERM);
      });
  EXPECT_EQ(ended.signal, SIGTERM);
  EXPECT_EQ(ended.err, "done\n");
}

TEST(ClosedStandardStreams, DoNoHarmAsALog) {
  const Scene scene;
  for (const char* debug : {"DEBUG SUMMARY LOG=STDOUT", "DEBUG SUMMARY LOG=STDERR"}) {
    const Ended ended = kit::run({debug, "", kSections}, [] {
      close(STDOUT_FILENO);
      close(STDERR_FILENO);
      work();
      std::fclose(stdin);
    });
    EXPECT_EQ(ended.exit_code, 0) << debug;
  }
}

TEST(LogFile, CausesAWarningIfItCannotBeOpened) {
  Scene scene;
  std::filesystem::create_directory("folder");
  for (const char* name : {"missing/a.log", "folder", ".", "/", "/dev/full/a.log"}) {
    const Ended ended = kit::run({"DEBUG SUMMARY LOG=" + std::string(name), "", kSections}, work);
    EXPECT_EQ(ended.exit_code, 0) << name;
    EXPECT_EQ(ended.err, "done\n") << name;
    EXPECT_EQ(ended.out.find("   qk_mem_debug_config: WARNING: unable to open " +
                             std::string(name) + " ("),
              0U)
        << ended.out;
  }
}

TEST(TraceFile, CausesAWarningIfItCannotBeOpened) {
  Scene scene;
  std::filesystem::create_directory("folder");
  for (const char* name : {"missing/a.tdf", "folder", ".", "/", "/dev/full/a.tdf"}) {
    const Ended ended = kit::run({"DEBUG SUMMARY", "DB=" + std::string(name), kSections}, work);
    EXPECT_EQ(ended.exit_code, 0) << name;
    EXPECT_EQ(ended.err, "done\n") << name;
    EXPECT_EQ(
        ended.out.find("   qk_mem_options: WARNING: unable to open " + std::string(name) + " ("),
        0U)
        << ended.out;
    EXPECT_NE(ended.log.find("Memory at program termination"), std::string::npos) << name;
  }
}

TEST(LogFile, MayHaveANameOf240Characters) {
  Scene scene;
  const std::string name(240, 'n');
  EXPECT_EQ(kit::run({"DEBUG LOG=" + name, "", ""}, work).exit_code, 0);
  EXPECT_NE(kit::contents(name), "");
}

TEST(TraceFile, MayHaveANameOf240Characters) {
  Scene scene;
  const std::string name(240, 'n');
  EXPECT_EQ(kit::run({"DEBUG", "DB=" + name, ""}, work).exit_code, 0);
  EXPECT_NE(kit::contents(name), "");
}

TEST(OverlongFileName, DoesNotStopTheProgram) {
  Scene scene;
  // In a missing folder; and the variables are cut at 256 characters.
  for (const std::size_t length : {251U, 252U, 5000U}) {
    const std::string name = std::string(3, 'x') + "/" + std::string(length, 'n');
    const Ended ended = kit::run({"DEBUG LOG=" + name, "DB=" + name, ""}, work);
    EXPECT_EQ(ended.exit_code, 0) << length;
    EXPECT_EQ(ended.err, "done\n") << length;
    EXPECT_NE(ended.out.find("WARNING: unable to open xxx/nnn"), std::string::npos) << length;
  }
}

TEST(LogAndTraceFile, MayBeTheSameFile) {
  Scene scene;
  expect_done({"DEBUG SUMMARY LOG=both", "DB=both", kSections});
  expect_done({"DEBUG SUMMARY LOG=both FLUSH", "DB=both FLUSH", kSections});
}

TEST(Variables, LetTheProgramRunWhateverTheyContain) {
  const Scene scene;
  std::string bytes;
  for (int c = 1; c < 256; ++c) bytes += static_cast<char>(c);
  const std::string texts[] = {std::string(100000, '='),          bytes,
                               "LOG=" + std::string(100000, ' '), "DEBUG='" + std::string(300, 'x'),
                               "DEBUG=not,not LOG==\"\"",         "%s%s%s%n DEBUG=%n"};
  for (const std::string& text : texts) {
    for (const Environment& environment :
         {Environment{text, "", ""}, Environment{"DEBUG", "", text},
          Environment{text, text, text}}) {
      const Ended ended = kit::run(environment, work);
      EXPECT_EQ(ended.exit_code, 0) << text.substr(0, 20);
      EXPECT_NE(ended.err.find("done\n"), std::string::npos) << text.substr(0, 20);
    }
  }
}

}  // namespace

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "diag/log.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::Ended;
using kit::Scene;

void configure(const char* options) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(options, &status), 0) << options;
}

/** Writes a line to the log, wherever that is. */
void say(const char* text) { qk_mem_write_log("%s\n", text); }

void write_file(const char* name, const char* text) { std::ofstream(name) << text; }

/** Closes the log and returns the contents of a file in the current folder. */
std::string closed(const char* name) {
  configure("OFF");
  return contents(name);
}

TEST(LogDestination, IsQkmemLogUnlessNamed) {
  const Scene scene;
  configure("DEBUG");
  say("hello");
  EXPECT_EQ(closed("qkmem.log"), "hello\n");
}

TEST(LogDestination, IsTheFileThatLogNames) {
  const Scene scene;
  configure("SUMMARY LOG='a file, with.blanks'");
  EXPECT_STREQ(Qk_mem_log_filename, "a file, with.blanks");
  say("hello");
  EXPECT_EQ(closed("a file, with.blanks"), "hello\n");
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
}

TEST(LogDestination, MayBeInAnotherFolder) {
  const Scene scene;
  std::filesystem::create_directory("logs");
  configure("DEBUG LOG=logs/a.log");
  say("hello");
  EXPECT_EQ(closed("logs/a.log"), "hello\n");
}

TEST(LogDestination, IsTruncatedWhenConfigured) {
  const Scene scene;
  write_file("qkmem.log", "old\n");
  configure("DEBUG");
  EXPECT_EQ(contents("qkmem.log"), "");
  say("new");
  EXPECT_EQ(closed("qkmem.log"), "new\n");
}

TEST(LogDestination, IsNotOverwrittenByItsEarlierWriter) {
  const Scene scene;
  configure("DEBUG FLUSH");
  say("a line that the other process cuts off");
  const Ended ended = kit::run({}, [] {
    configure("DEBUG FLUSH LOG=qkmem.log");
    say("other");
    _exit(0);
  });
  EXPECT_EQ(ended.exit_code, 0);
  say("own");
  EXPECT_EQ(closed("qkmem.log"), "other\nown\n");
}

TEST(LogDestination, IsTruncatedAgainAtEachConfiguration) {
  const Scene scene;
  for (const char* text : {"one", "two"}) {
    configure("DEBUG LOG=a.log");
    say(text);
  }
  EXPECT_EQ(closed("a.log"), "two\n");
}

TEST(LogDestination, IsExtendedUnderAppend) {
  const Scene scene;
  write_file("qkmem.log", "old\n");
  configure("DEBUG APPEND");
  say("new");
  EXPECT_EQ(closed("qkmem.log"), "old\nnew\n");
}

TEST(LogDestination, IsCreatedUnderAppendIfMissing) {
  const Scene scene;
  configure("EXCEPTIONS APPEND LOG=a.log");
  say("new");
  EXPECT_EQ(closed("a.log"), "new\n");
}

TEST(LogDestination, CanBeAStandardStreamInEitherCase) {
  const Scene scene;
  const struct {
    const char* options;
    const char* word;
    FILE* stream;
  } cases[] = {
      {"DEBUG LOG=STDERR", "STDERR", stderr}, {"DEBUG LOG=stderr", "stderr", stderr},
      {"DEBUG LOG=StdErr", "StdErr", stderr}, {"DEBUG LOG=STDOUT", "STDOUT", stdout},
      {"DEBUG LOG=stdout", "stdout", stdout}, {"DEBUG LOG='STDERR'", "STDERR", stderr},
  };
  for (const auto& c : cases) {
    configure(c.options);
    EXPECT_EQ(Qk_mem_log, c.stream) << c.options;
    EXPECT_STREQ(Qk_mem_log_filename, c.word) << c.options;
  }
  EXPECT_FALSE(std::filesystem::exists("STDERR"));
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
}

TEST(LogDestination, CanBeNone) {
  const Scene scene;
  for (const char* options : {"DEBUG LOG=NONE", "DEBUG LOG=none"}) {
    configure("DEBUG LOG=a.log");
    configure(options);
    EXPECT_EQ(Qk_mem_log, nullptr) << options;
    EXPECT_EQ(Qk_mem_debug[0].debug, 1) << options;
  }
  EXPECT_FALSE(std::filesystem::exists("NONE"));
}

TEST(LogDestination, IsQkmemLogAgainAfterNone) {
  const Scene scene;
  configure("DEBUG LOG=NONE");
  configure("DEBUG");
  say("hello");
  EXPECT_EQ(closed("qkmem.log"), "hello\n");
}

TEST(LogDestination, IsNotOpenedByTraceAlone) {
  const Scene scene;
  for (const char* options : {"TRACE", "TRACE=qk_ifree LOG=a.log", "LOG=a.log", "APPEND,FLUSH"}) {
    configure(options);
    EXPECT_EQ(Qk_mem_log, nullptr) << options;
  }
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
  EXPECT_FALSE(std::filesystem::exists("a.log"));
}

TEST(LogDestination, IsOpenedByEachOtherSwitch) {
  const Scene scene;
  for (const char* options : {"CTRLBLKS LOG=a.log", "DEBUG=qk_ifree LOG=a.log",
                              "EXCEPTIONS LOG=a.log TRACE", "SUMMARY=not,global LOG=a.log"}) {
    configure("OFF");
    std::filesystem::remove("a.log");
    configure(options);
    EXPECT_TRUE(std::filesystem::exists("a.log")) << options;
  }
}

TEST(LogDestination, StaysUntilANewLogIsOpened) {
  const Scene scene;
  configure("DEBUG LOG=a.log");
  say("one");
  configure("EXCEPTIONS");
  say("two");
  configure("TRACE LOG=b.log");
  say("three");
  configure("LOG=b.log");
  say("four");
  EXPECT_EQ(closed("a.log"), "one\ntwo\nthree\nfour\n");
  EXPECT_FALSE(std::filesystem::exists("b.log"));
}

TEST(LogDestination, ClosesTheOldFileForANewOne) {
  const Scene scene;
  configure("DEBUG LOG=a.log");
  say("one");
  configure("DEBUG LOG=b.log");
  say("two");
  EXPECT_EQ(contents("a.log"), "one\n");
  EXPECT_EQ(closed("b.log"), "two\n");
  EXPECT_EQ(contents("a.log"), "one\n");
}

TEST(LogDestination, IsTruncatedAgainIfNamedAgain) {
  const Scene scene;
  configure("DEBUG LOG=a.log");
  say("one");
  configure("DEBUG LOG=a.log");
  say("two");
  EXPECT_EQ(closed("a.log"), "two\n");
}

TEST(LogDestination, KeepsStandardStreamsOpenWhenItChanges) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    configure("DEBUG LOG=STDERR");
    say("log on stderr");
    configure("DEBUG LOG=STDOUT");
    say("log on stdout");
    configure("DEBUG LOG=a.log");
    std::fputs("still open\n", stderr);
    std::fputs("still open\n", stdout);
  });
  EXPECT_EQ(ended.err, "log on stderr\nstill open\n");
  EXPECT_EQ(ended.out, "log on stdout\nstill open\n");
}

TEST(LogDestination, IsClosedAndNotWrittenAfterOff) {
  const Scene scene;
  configure("DEBUG");
  say("one");
  configure("OFF");
  EXPECT_EQ(contents("qkmem.log"), "one\n");
  EXPECT_EQ(qk_mem_write_log("two\n"), 0);
  configure("OFF");
  EXPECT_EQ(contents("qkmem.log"), "one\n");
}

TEST(LogDestination, StaysClosedAfterOffUnlessNamed) {
  const Scene scene;
  configure("DEBUG");
  configure("OFF");
  std::filesystem::remove("qkmem.log");
  configure("DEBUG");
  EXPECT_EQ(qk_mem_write_log("lost\n"), 0);
  EXPECT_EQ(Qk_mem_debug[0].debug, 1);
  configure("EXCEPTIONS APPEND FLUSH");
  EXPECT_EQ(qk_mem_write_log("lost\n"), 0);
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
}

TEST(LogDestination, IsOpenedAfterOffIfNamed) {
  const Scene scene;
  configure("DEBUG LOG=a.log");
  say("one");
  configure("OFF");
  configure("DEBUG LOG=b.log");
  say("two");
  EXPECT_EQ(contents("a.log"), "one\n");
  configure("EXCEPTIONS");
  say("three");
  EXPECT_EQ(closed("b.log"), "two\nthree\n");
}

TEST(LogDestination, IsTheDefaultAfterOffIfNoneWasOpen) {
  const Scene scene;
  configure("OFF");
  configure("DEBUG");
  say("hello");
  EXPECT_EQ(closed("qkmem.log"), "hello\n");
}

TEST(LogDestination, StaysAStandardStreamAfterOff) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    configure("DEBUG LOG=STDERR");
    configure("OFF");
    configure("DEBUG");
    say("still here");
  });
  EXPECT_EQ(ended.err, "still here\n");
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
}

TEST(LogDestination, StaysOpenIfOffIsRefused) {
  const Scene scene;
  configure("DEBUG");
  qk::Status status;
  EXPECT_EQ(qk_mem_debug_config("OFF DEBUG LOG=b.log", &status), 11104);
  say("still here");
  EXPECT_EQ(closed("qkmem.log"), "still here\n");
  EXPECT_FALSE(std::filesystem::exists("b.log"));
}

TEST(LogDestination, IsChosenBeforeAListIsRefused) {
  const Scene scene;
  qk::Status status;
  EXPECT_EQ(qk_mem_debug_config("DEBUG=nonsense LOG=a.log", &status), 10040);
  say("hello");
  EXPECT_EQ(closed("a.log"), "hello\n");
}

TEST(LogDestination, WarnsOnStdoutAndTurnsAllOffIfItCannotBeOpened) {
  const Scene scene;
  std::filesystem::create_directory("folder");
  const Ended ended = kit::run({}, [] {
    configure("DEBUG LOG=before.log");
    say("before");
    configure("DEBUG LOG=missing/a.log");
    say("lost");
    configure("EXCEPTIONS LOG=folder");
    std::printf("on %d, debug %d, log %s\n", Qk_mem_debug[0].on, Qk_mem_debug[0].debug,
                Qk_mem_log == nullptr ? "none" : "open");
    configure("DEBUG");
    say("after");
  });
  EXPECT_EQ(
      ended.out,
      "   qk_mem_debug_config: WARNING: unable to open missing/a.log (2 No such file or directory)\n"
      "   qk_mem_debug_config: WARNING: unable to open folder (21 Is a directory)\n"
      "on 0, debug 0, log none\n");
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(contents("before.log"), "before\n");
  EXPECT_EQ(ended.log.substr(0, 6), "after\n");
}

TEST(LogDestination, IsGivenUpIfItIsAFifoThatNobodyReads) {
  const Scene scene;
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const Ended ended = kit::run({"DEBUG LOG=fifo", "", ""}, [] { qk_mem_init(); });
  EXPECT_EQ(ended.out,
            "   qk_mem_debug_config: WARNING: unable to open fifo (6 No such device or address)\n");
  EXPECT_EQ(ended.exit_code, 0);
}

TEST(LogDestination, MayBeAFifoThatSomebodyReads) {
  const Scene scene;
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  configure("EXCEPTIONS LOG=fifo");
  EXPECT_EQ(::fcntl(::fileno(Qk_mem_log), F_GETFL) & O_NONBLOCK, 0) << "writers wait for readers";
  say("a line");
  configure("OFF");
  char line[64] = "";
  EXPECT_EQ(::read(reader, line, sizeof line), 7);
  EXPECT_STREQ(line, "a line\n");
  ::close(reader);
}

TEST(LogDestination, IsBufferedUnlessFlushIsGiven) {
  const Scene scene;
  configure("DEBUG LOG=buffered.log");
  say("one");
  EXPECT_EQ(contents("buffered.log"), "");
  configure("DEBUG LOG=flushed.log FLUSH");
  say("two");
  EXPECT_EQ(contents("flushed.log"), "two\n");
}

TEST(LogDestination, IsNotInheritedByStartedPrograms) {
  const Scene scene({"DEBUG", "DB", ""});
  qk_mem_init();
  ASSERT_EQ(std::system("ls -l /proc/self/fd > descriptors.txt"), 0);
  const std::string descriptors = contents("descriptors.txt");
  EXPECT_NE(descriptors.find("descriptors.txt"), std::string::npos);
  EXPECT_EQ(descriptors.find("qkmem.log"), std::string::npos);
  EXPECT_EQ(descriptors.find("qkmem.tdf"), std::string::npos);
}

}  // namespace

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "profile/report/callers.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"

namespace {

[[gnu::noinline]] void* take_a_page(int hid) {
  void* const memory = qk_mem_malloc(hid, 4096);
  EXPECT_NE(nullptr, memory);
  return memory;
}

/** With a name that leaves no room for a second one. */
[[gnu::noinline]] void forget_a_page_after_a_while(int hid) {
  void* const memory = take_a_page(hid);
  EXPECT_NE(nullptr, memory);
}

struct Case {
  const char* terminal = "xterm";
  const char* no_colour = nullptr;
};

void set(const char* name, const char* value) {
  if (value == nullptr) {
    unsetenv(name);
  } else {
    setenv(name, value, 1);
  }
}

/** A terminal. */
class Terminal {
 public:
  Terminal() {
    termios raw = {};
    cfmakeraw(&raw);
    if (openpty(&own_end_, &programs_end_, nullptr, &raw, nullptr) != 0) std::abort();
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() { close(own_end_); }

  [[nodiscard]] int programs_end() const { return programs_end_; }

  /** What it shows. No program can write to it any more. */
  std::string text() const {
    close(programs_end_);
    std::string text;
    char part[1024];
    for (ssize_t size = 1; size > 0;) {
      size = read(own_end_, part, sizeof part);
      if (size > 0) text.append(part, static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  int own_end_ = -1;
  int programs_end_ = -1;
};

/** Without what depends on the time, the threads, the lines of this file, and how tables grow. */
std::string plain(const std::string& report) {
  const std::string exact = kit::replaced(report, R"( \(within [^)]*\))", "");
  const std::string timed = kit::replaced(exact, R"(at \d+\.\d s)", "at T s");
  const std::string sized = kit::replaced(timed, R"(took [0-9.]+ .iB)", "took M");
  const std::string placed = kit::replaced(sized, R"(test\.cpp:\d+)", "test.cpp:#");
  // Where the tests of a folder are one source, their unnamed namespaces have names.
  return kit::replaced(placed, "colour_test::", "");
}

/** Leaks, with standard output or standard error on a terminal. */
void leak(const Case& in, const Terminal& terminal, int descriptor) {
  dup2(terminal.programs_end(), descriptor);
  set("TERM", in.terminal);
  set("NO_COLOR", in.no_colour);
  forget_a_page_after_a_while(qk_mem_new_handle("", "AB"));
}

/** What a program that leaks shows on a terminal. */
std::string shown(const char* options, const Case& in = {}, int descriptor = STDERR_FILENO) {
  const kit::Scene scene;
  const Terminal terminal;
  const kit::Ended ended = kit::run({"", "", "", options}, [&] { leak(in, terminal, descriptor); });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ("", ended.out);
  EXPECT_EQ("", ended.err);
  return plain(terminal.text());
}

constexpr char kBold[] = "\x1b[1m";
constexpr char kDim[] = "\x1b[2m";
constexpr char kEnd[] = "\x1b[0m";

constexpr char kPlain[] =
    "qkmem: 1 site still holds 4.0 KiB in 1 block; peak 4.0 KiB at T s (event 1)\n"
    "    bytes  blocks  share  made  handle  site\n"
    "  4.0 KiB       1   100%     1    3 AB  colour_test.cpp:#\n"
    "qkmem: the profile took M of its own\n";

std::string coloured() {
  return kBold +
         std::string(
             "qkmem: 1 site still holds 4.0 KiB in 1 block; peak 4.0 KiB at T s (event 1)") +
         kEnd + "\n" + kDim + "    bytes  blocks  share  made  handle  site" + kEnd +
         "\n"
         "  4.0 KiB       1   100%     1    3 AB  colour_test.cpp:#\n"
         "qkmem: the profile took M of its own\n";
}

TEST(Colours, MarkVerdictHeadingsAndCallersOnATerminal) {
  EXPECT_EQ(kBold +
                std::string(
                    "qkmem: 1 site still holds 4.0 KiB in 1 block; peak 4.0 KiB at T s (event 1)") +
                kEnd + "\n" + kDim + "    bytes  blocks  share  made  handle  site" + kEnd +
                "\n"
                "  4.0 KiB       1   100%     1    3 AB  take_a_page colour_test.cpp:#" +
                kDim + " < forget_a_page_after_a_while colour_test.cpp:# < \u2026" + kEnd +
                "\n"
                "qkmem: the profile took M of its own\n",
            shown("STACKS"));
}

TEST(Colours, DoNotChangeHowManyCallersFit) {
  using namespace qk::mem::profile;
  ShownFrames frames(3);
  for (const char* const function : {"first", "second", "third"}) {
    qk::Frame frame;
    frame.function = function;
    frames.push_back(frame);
  }
  Row row = {};
  row.frame_count = 3;
  for (std::size_t width = 0; width < 40; ++width) {
    qk::Line plain;
    put_callers(plain, row, frames, kPlainStyle, width);
    qk::Line coloured;
    put_callers(coloured, row, frames, kTerminalStyle, width);
    EXPECT_EQ(kDim + std::string(plain.finish()) + kEnd, coloured.finish());
  }
}

TEST(Colours, EndWithALineThatIsCut) {
  using namespace qk::mem::profile;
  const std::string name(2000, 'x');
  ShownFrames frames(1);
  qk::Frame frame;
  frame.function = name;
  frames.push_back(frame);
  Row row = {};
  row.frame_count = 1;
  qk::Line line;
  put_callers(line, row, frames, kTerminalStyle, 60);
  EXPECT_TRUE(line.put('\n').finish().ends_with("xxx\x1b[0m\n"));
}

TEST(Colours, AreNotUsedWithNoColor) { EXPECT_EQ(kPlain, shown("SITES", {.no_colour = "1"})); }

TEST(Colours, AreUsedWithAnEmptyNoColor) {
  EXPECT_EQ(coloured(), shown("SITES", {.no_colour = ""}));
}

TEST(Colours, AreNotUsedOnADumbTerminal) {
  EXPECT_EQ(kPlain, shown("SITES", {.terminal = "dumb"}));
}

TEST(Colours, AreNotUsedOnAnUnknownTerminal) {
  EXPECT_EQ(kPlain, shown("SITES", {.terminal = nullptr}));
}

TEST(Colours, AreUsedForStandardOutputToo) {
  EXPECT_EQ(coloured(), shown("REPORT=STDOUT", {}, STDOUT_FILENO));
}

TEST(Colours, AreNotUsedWhereAReportIsRedirected) {
  const kit::Scene scene;
  const Terminal terminal;
  const kit::Ended ended =
      kit::run({"", "", "", "SITES"}, [&] { leak({}, terminal, STDOUT_FILENO); });
  EXPECT_EQ(kPlain, plain(ended.err));
}

TEST(Colours, AreNotWrittenToFiles) {
  const kit::Scene scene;
  const Terminal terminal;
  const kit::Ended ended =
      kit::run({"", "", "", "REPORT=r"}, [&] { leak({}, terminal, STDERR_FILENO); });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ(kPlain, plain(kit::contents("r")));
}

TEST(Colours, AreNotWrittenToAStreamOfTheProgram) {
  const kit::Scene scene;
  const Terminal terminal;
  const kit::Ended ended = kit::run({"", "", "", "REPORT=STDERR"}, [&] {
    leak({}, terminal, STDERR_FILENO);
    std::FILE* const file = std::fopen("r", "w");
    qk_mem_profile_report(file, "");
    std::fclose(file);
  });
  EXPECT_EQ(0, ended.exit_code);
  EXPECT_EQ(0U, kit::contents("r").find("qkmem: 1 site holds 4.0 KiB"));
  EXPECT_EQ(std::string::npos, kit::contents("r").find('\x1b'));
}

}  // namespace

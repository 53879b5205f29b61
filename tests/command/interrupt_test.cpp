// A user at a terminal, who waits and may lose patience.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::Scene;
using kit::StartedCommand;

struct Pipe {
  Pipe() { EXPECT_EQ(0, pipe2(ends, O_CLOEXEC)); }
  [[nodiscard]] int reader() const { return ends[0]; }
  [[nodiscard]] int writer() const { return ends[1]; }

  int ends[2] = {-1, -1};
};

/** The user's end and the program's. */
struct Terminal {
  Terminal() {
    EXPECT_EQ(0, grantpt(user));
    EXPECT_EQ(0, unlockpt(user));
    program = open(ptsname(user), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(0, fcntl(user, F_SETFL, O_NONBLOCK));
  }

  /** What was shown since. */
  [[nodiscard]] std::string shown() const {
    std::string text;
    char bytes[4096];
    for (ssize_t count; (count = read(user, bytes, sizeof bytes)) > 0;) {
      text.append(bytes, static_cast<std::size_t>(count));
    }
    return text;
  }

  int user = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  int program = -1;
};

int nowhere() { return open("/dev/null", O_RDWR | O_CLOEXEC); }

std::string many_rows() {
  std::string rows;
  for (int i = 0; i < 10'000; ++i) rows += "2\t3\tf\t1000\t1\t9\t0\ta.c\t7\t0\t0\t0\t0\t0\t0\n";
  return rows;
}

void write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    ASSERT_LT(0, count);
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

TEST(Terminal, ShowsHowFarALongReadingIs) {
  const Scene scene;
  const Terminal terminal;
  Pipe input;
  StartedCommand command({"check", "-"}, input.reader(), nowhere(), terminal.program);
  close(input.reader());
  write_all(input.writer(), kit::table_of({"1 3 N 0 0 0 0 main.c 1"}));
  const std::string rows = many_rows();
  std::string shown;
  while (shown.find(" a second") == std::string::npos) {
    write_all(input.writer(), rows);
    usleep(20'000);
    shown += terminal.shown();
  }
  close(input.writer());
  EXPECT_EQ(0, command.end());
  shown += terminal.shown();
  EXPECT_EQ(0U, shown.find("\r\x1B[K"));
  EXPECT_NE(std::string::npos, shown.find("iB read, ")) << shown;
  // Nothing of it stays.
  EXPECT_TRUE(shown.ends_with("\r\x1B[K")) << shown;
}

TEST(CtrlC, WhileAnInputIsReadLeavesNothing) {
  const Scene scene;
  Pipe input;
  StartedCommand command({"export", "--to", "csv", "-o", "out.csv", "-"}, input.reader(), nowhere(),
                         nowhere());
  close(input.reader());
  // The pipe is full when the command does not read it, so it has begun to read behind this.
  write_all(input.writer(), kit::table_of({"1 3 N 0 0 0 0 main.c 1"}) + many_rows());
  kill(command.process(), SIGINT);
  EXPECT_EQ(128 + SIGINT, command.end());
  EXPECT_NE(0, access("out.csv", F_OK));
  EXPECT_NE(0, access("out.csv.unfinished", F_OK));
}

TEST(CtrlC, WhileAFileIsWrittenLeavesNothing) {
  const Scene scene;
  std::vector<std::string> rows = {"1 3 N 0 0 0 0 main.c 1"};
  for (int i = 2; i < 5'000; ++i) {
    rows.push_back(std::to_string(i) + " 3 M " + std::to_string(1000 + i) +
                   " 1 9 9 a_long_name_of_a_file.c " + std::to_string(i));
  }
  kit::write_file("t.tdf", kit::table_of(rows));
  // It takes less than the command writes, so that the signal comes in the middle.
  ASSERT_EQ(0, mkfifo("out.csv.unfinished", 0600));
  StartedCommand command({"export", "--to", "csv", "-o", "out.csv", "t.tdf"}, nowhere(), nowhere(),
                         nowhere());
  const int reader = open("out.csv.unfinished", O_RDONLY | O_CLOEXEC);
  char byte;
  ASSERT_EQ(1, read(reader, &byte, 1));
  kill(command.process(), SIGINT);
  EXPECT_EQ(128 + SIGINT, command.end());
  EXPECT_NE(0, access("out.csv", F_OK));
  EXPECT_NE(0, access("out.csv.unfinished", F_OK));
  close(reader);
}

TEST(Pipe, OfAProgramThatStillRunsIsReadAsFarAsIsWanted) {
  const Scene scene;
  Pipe input;
  Pipe output;
  StartedCommand command({"top", "--at", "2", "--csv", "-"}, input.reader(), output.writer(),
                         nowhere());
  close(output.writer());
  write_all(input.writer(), kit::table_of({"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 9 9 a.c 7",
                                           "3 3 M 2000 1 8 17 b.c 8"}));
  EXPECT_EQ(0, command.end());
  char text[512] = {};
  EXPECT_LT(0, read(output.reader(), text, sizeof text - 1));
  EXPECT_NE(nullptr, std::strstr(text, "a.c")) << text;
  EXPECT_EQ(nullptr, std::strstr(text, "b.c")) << text;
  close(input.writer());
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::output_of;
using kit::qkmem;
using kit::Scene;
using kit::write_file;
using kit::write_small_table;

bool exists(const std::string& name) { return access(name.c_str(), F_OK) == 0; }

TEST(Output, GoesToAFile) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ("", output_of({"leaks", "t.tdf", "-o", "leaks.txt"}));
  EXPECT_EQ(output_of({"leaks", "t.tdf"}), contents("leaks.txt"));
}

TEST(Output, LeavesAFileThatExistsAlone) {
  const Scene scene;
  write_small_table();
  write_file("kept.txt", "mine\n");
  const kit::Ran ran = qkmem({"leaks", "t.tdf", "-o", "kept.txt"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: kept.txt exists: -f overwrites it\n", ran.err);
  EXPECT_EQ("mine\n", contents("kept.txt"));
}

TEST(Output, ReplacesAFileIfItIsToldTo) {
  const Scene scene;
  write_small_table();
  write_file("old.txt", "old\n");
  EXPECT_EQ("", output_of({"leaks", "t.tdf", "-f", "-o", "old.txt"}));
  EXPECT_EQ(output_of({"leaks", "t.tdf"}), contents("old.txt"));
}

TEST(Output, ToAFullDiskIsAnError) {
  const Scene scene;
  write_small_table();
  const int status = std::system(QKMEM_COMMAND_PROGRAM " leaks t.tdf >/dev/full 2>err");
  EXPECT_EQ(2, WEXITSTATUS(status));
  EXPECT_EQ("qkmem: standard output: No space left on device\n", contents("err"));
}

TEST(Output, ToAFolderThatTakesNoFilesLeavesNothing) {
  const Scene scene;
  write_small_table();
  const kit::Ran ran = qkmem({"leaks", "t.tdf", "-o", "/proc/out.txt"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: /proc/out.txt: No such file or directory\n", ran.err);
  EXPECT_FALSE(exists("/proc/out.txt.unfinished"));
}

/** The longest line in characters. */
std::size_t width_of(const std::string& text) {
  std::size_t widest = 0;
  std::size_t width = 0;
  for (const char c : text) {
    if (c == '\n') width = 0;
    if (c != '\n' && (static_cast<unsigned char>(c) & 0xC0) != 0x80) ++width;
    widest = std::max(widest, width);
  }
  return widest;
}

/** A site with a name of 60 characters, over 1,000 events. */
void write_wide_table() {
  const std::string file = std::string(56, 'f') + ".c";
  std::vector<std::string> rows = {"1 3 N 0 0 0 0 main.c 10"};
  for (int event = 2; event <= 1000; ++event) {
    rows.push_back(std::to_string(event) + " 3 M " + std::to_string(100 * event) + " 1 10 " +
                   std::to_string(10 * (event - 1)) + " " + file + " 1");
  }
  write_file("wide.tdf", kit::table_of(rows));
}

TEST(Output, UsesNoMoreColumnsForLevelsThanThereAre) {
  const Scene scene;
  write_wide_table();
  for (const std::size_t columns : {40U, 100U, 200U}) {
    setenv("COLUMNS", std::to_string(columns).c_str(), 1);
    const std::string text = output_of({"timeline", "-n", "1", "wide.tdf"});
    const std::string bars = text.substr(text.find("\n  ") + 1);
    EXPECT_GE(columns, width_of(bars.substr(0, bars.find('\n'))));
    EXPECT_LT(std::min<std::size_t>(columns, 120) - 10, width_of(bars.substr(0, bars.find('\n'))));
  }
}

TEST(Output, HasOnlyAsciiWhereTheLocaleHasNoMore) {
  const Scene scene;
  write_wide_table();
  setenv("LC_ALL", "C", 1);
  for (const char c : output_of({"summary", "wide.tdf"})) EXPECT_EQ(0, c & 0x80);
}

TEST(Output, ShowsNoControlCharactersOfNames) {
  const Scene scene;
  write_file("t.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 9 9 \x1B[2Ja.c 7"}));
  EXPECT_NE(std::string::npos, output_of({"top", "t.tdf"}).find("?[2Ja.c:7\n"));
}

TEST(Output, HasForMachinesTheTablesWithoutARow) {
  const Scene scene;
  write_file("t.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 9 9 a.c 7",
                                     "3 3 F 1000 1 9 0 a.c 8"}));
  EXPECT_EQ("live_bytes,live_blocks,made_blocks,largest_bytes,last_event,handle,site\n",
            output_of({"leaks", "--csv", "t.tdf"}));
  EXPECT_NE(std::string::npos, output_of({"leaks", "--json", "t.tdf"}).find("\"rows\":[]"));
  EXPECT_EQ(
      "t.tdf: 3 events, 1 handle, 1 site\n"
      "nothing is left: each block was released\n",
      output_of({"leaks", "t.tdf"}));
}

TEST(Output, HasNoProgressWhereThereIsNoTerminal) {
  const Scene scene;
  write_wide_table();
  EXPECT_EQ("", qkmem({"summary", "wide.tdf"}).err);
}

}  // namespace

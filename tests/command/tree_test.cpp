#include <gtest/gtest.h>

#include "tests/command/command.h"
#include "tests/command/made_recording.h"
#include "tests/kit/scene.h"

namespace {

using kit::MadeRecording;
using kit::output_of;
using kit::qkmem;
using kit::Scene;

constexpr std::uint64_t kMain = 0x1001;
constexpr std::uint64_t kServe = 0x1002;
constexpr std::uint64_t kParse = 0x1003;
constexpr std::uint64_t kLoad = 0x1004;
constexpr std::uint64_t kTake = 0x1005;

/** main calls serve; that calls parse and load, which has take inlined in it. */
MadeRecording with_callers() {
  MadeRecording recording;
  recording.name(kMain, 0, "main", "/src/main.c", 40);
  recording.name(kServe, 0, "net::serve(int)", "/src/main.c", 30);
  recording.name(kParse, 0, "net::(anonymous namespace)::parse()", "/src/parse.c", 20);
  recording.name(kLoad, 0, "take", "/src/load.c", 5);
  recording.name(kLoad, 1, "load", "/src/load.c", 12);
  return recording;
}

void write_callers() {
  MadeRecording recording = with_callers();
  const auto parsed = recording.site("src/parse.c", 20, {kParse, kServe, kMain});
  const auto loaded = recording.site("src/load.c", 5, {kLoad, kServe, kMain});
  const auto other = recording.site("src/load.c", 9, {kLoad, kServe, kMain});
  recording.made(parsed, 1000);
  recording.made(loaded, 4000);
  recording.made(loaded, 2000);
  recording.made(other, 40);
  recording.write("r.qkm");
}

TEST(Tree, ShowsWhoHasCalledWhat) {
  const Scene scene;
  write_callers();
  EXPECT_EQ(
      "r.qkm: 4 events, 1 handle, 3 sites\n"
      "6.9 KiB in 4 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  function\n"
      "  6.9 KiB   100%       4  main\n"
      "  6.9 KiB   100%       4  > net::serve\n"
      "  5.9 KiB    86%       3    load\n"
      "  5.9 KiB    86%       3    > take\n"
      "  5.9 KiB    85%       2      load.c:5\n"
      "     40 B    <1%       1      1 more below 1 %\n"
      "  1,000 B    14%       1    net::parse\n"
      "  1,000 B    14%       1    > parse.c:20\n",
      output_of({"tree", "r.qkm"}));
}

TEST(Tree, ShowsAllIfThatIsWanted) {
  const Scene scene;
  write_callers();
  EXPECT_EQ(
      "r.qkm: 4 events, 1 handle, 3 sites\n"
      "5.9 KiB in 3 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  function\n"
      "  5.9 KiB   100%       3  main\n"
      "  5.9 KiB   100%       3  > net::serve\n"
      "  5.9 KiB   100%       3  > load\n"
      "  5.9 KiB   100%       3  > take\n"
      "  5.9 KiB    99%       2    load.c:5\n"
      "     40 B    <1%       1    load.c:9\n",
      output_of({"tree", "r.qkm", "-n", "0", "--file", "load.c"}));
}

TEST(Tree, ShowsSoManyCallsOfAFunctionAtMost) {
  const Scene scene;
  write_callers();
  EXPECT_EQ(
      "r.qkm: 4 events, 1 handle, 3 sites\n"
      "6.9 KiB in 4 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  function\n"
      "  6.9 KiB   100%       4  main\n"
      "  6.9 KiB   100%       4  > net::serve\n"
      "  5.9 KiB    86%       3    load\n"
      "  5.9 KiB    86%       3    > take\n"
      "  5.9 KiB    85%       2      load.c:5\n"
      "     40 B    <1%       1      1 more below 1 %\n"
      "  1,000 B    14%       1    1 more\n",
      output_of({"tree", "r.qkm", "-n", "1"}));
}

TEST(Tree, CanBeSortedByBlocks) {
  const Scene scene;
  MadeRecording recording = with_callers();
  const auto parsed = recording.site("src/parse.c", 20, {kParse, kMain});
  const auto loaded = recording.site("src/load.c", 5, {kLoad, kMain});
  recording.made(loaded, 4000);
  recording.made(parsed, 1000);
  recording.made(parsed, 1000);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 3 events, 1 handle, 2 sites\n"
      "5.9 KiB in 3 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  function\n"
      "  5.9 KiB   100%       3  main\n"
      "  2.0 KiB    67%       2    net::parse\n"
      "  2.0 KiB    67%       2    > parse.c:20\n"
      "  3.9 KiB    33%       1    load\n"
      "  3.9 KiB    33%       1    > take\n"
      "  3.9 KiB    33%       1    > load.c:5\n",
      output_of({"tree", "r.qkm", "--sort", "blocks"}));
}

TEST(Tree, HasOnePlaceForBlocksWithoutAStack) {
  const Scene scene;
  MadeRecording recording = with_callers();
  const auto parsed = recording.site("src/parse.c", 20, {kParse, kMain});
  const auto unknown = recording.site("src/load.c", 5, {});
  recording.made(parsed, 3000);
  recording.made(unknown, 1000);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 2 events, 1 handle, 2 sites\n"
      "3.9 KiB in 2 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  function\n"
      "  2.9 KiB    75%       1  main\n"
      "  2.9 KiB    75%       1  > net::parse\n"
      "  2.9 KiB    75%       1  > parse.c:20\n"
      "  1,000 B    25%       1  no stack\n"
      "  1,000 B    25%       1  > load.c:5\n",
      output_of({"tree", "r.qkm"}));
}

TEST(Tree, GoesFromTheTagToTheLineWithoutStacks) {
  const Scene scene;
  MadeRecording recording;
  recording.made(recording.site("src/parse.c", 20, {}), 1000);
  recording.made(recording.site("src/parse.c", 30, {}), 2000);
  recording.made(recording.site("src/load.c", 5, {}), 4000);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 3 events, 1 handle, 3 sites\n"
      "6.8 KiB in 3 blocks live at the end\n"
      "\n"
      "    bytes  share  blocks  handle, file and line\n"
      "  6.8 KiB   100%       3  tag NT\n"
      "  6.8 KiB   100%       3  > handle 3\n"
      "  3.9 KiB    57%       1    load.c\n"
      "  3.9 KiB    57%       1    > load.c:5\n"
      "  2.9 KiB    43%       2    parse.c\n"
      "  2.0 KiB    29%       1      parse.c:30\n"
      "  1,000 B    14%       1      parse.c:20\n",
      output_of({"tree", "r.qkm"}));
}

TEST(Tree, OfATableBeginsWithHandles) {
  const Scene scene;
  kit::write_file("t.tdf",
                  kit::table_of({"1 3 M 1000 1 100 100 a.c 7", "2 4 M 3000 1 300 300 b.c 9",
                                 "3 4 F 3000 1 300 0 b.c 9"}));
  EXPECT_EQ(
      "t.tdf: 3 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks live at the peak\n"
      "\n"
      "  bytes  share  blocks  handle, file and line\n"
      "  300 B    75%       1  handle 4\n"
      "  300 B    75%       1  > b.c\n"
      "  300 B    75%       1  > b.c:9\n"
      "  100 B    25%       1  handle 3\n"
      "  100 B    25%       1  > a.c\n"
      "  100 B    25%       1  > a.c:7\n",
      output_of({"tree", "t.tdf", "--at", "peak"}));
}

TEST(Tree, IsFlatForMachines) {
  const Scene scene;
  write_callers();
  EXPECT_EQ(
      "bytes,blocks,node,parent,depth,name\n"
      "6000,2,1,,0,main\n"
      "6000,2,2,1,1,net::serve\n"
      "6000,2,3,2,2,load\n"
      "6000,2,4,3,3,take\n"
      "6000,2,5,4,4,load.c:5\n",
      output_of({"tree", "r.qkm", "--csv", "--site", "load.c:5"}));
  const std::string json = output_of({"tree", "r.qkm", "--json", "--site", "load.c:5"});
  EXPECT_EQ(
      "\"rows\":[\n"
      "{\"bytes\":6000,\"blocks\":2,\"node\":1,\"parent\":null,\"depth\":0,\"name\":\"main\"},\n"
      "{\"bytes\":6000,\"blocks\":2,\"node\":2,\"parent\":1,\"depth\":1,"
      "\"name\":\"net::serve\"},\n"
      "{\"bytes\":6000,\"blocks\":2,\"node\":3,\"parent\":2,\"depth\":2,\"name\":\"load\"},\n"
      "{\"bytes\":6000,\"blocks\":2,\"node\":4,\"parent\":3,\"depth\":3,\"name\":\"take\"},\n"
      "{\"bytes\":6000,\"blocks\":2,\"node\":5,\"parent\":4,\"depth\":4,"
      "\"name\":\"load.c:5\"}]}\n",
      json.substr(json.find("\"rows\"")));
}

TEST(Tree, HasNoOrderByShortLives) {
  const Scene scene;
  write_callers();
  EXPECT_EQ("qkmem: tree: --sort 'short' is not bytes, blocks, made or peak\n",
            qkmem({"tree", "r.qkm", "--sort", "short"}).err);
}

}  // namespace

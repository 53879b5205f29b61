#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/command/command.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::Scene;
using kit::write_small_table;

TEST(Summary, IsOneScreenThatBeginsWithTheVerdict) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks were never released; b.c:9 has 75% of it\n"
      "\n"
      "peak    500 B in 3 blocks at event 5\n"
      "churn   500 B in 3 blocks made; 33% of the blocks lived for 16 events at most\n"
      "level   ▂▃█▆\n"
      "\n"
      "what is left\n"
      "  bytes  blocks  share  made  largest  last made  handle  site\n"
      "  300 B       1    75%     1    300 B          5       4  b.c:9\n"
      "  100 B       1    25%     2    100 B          4       3  a.c:7\n"
      "\n"
      "what held the peak\n"
      "  at peak  blocks  share  own peak  at end  handle  site\n"
      "    300 B       1    60%     300 B   300 B       4  b.c:9\n"
      "    200 B       2    40%     200 B   100 B       3  a.c:7\n"
      "\n"
      "what churns\n"
      "  made  bytes made  short-lived  share  mean life  handle  site\n"
      "     2       200 B            1    50%          3       3  a.c:7\n"
      "     1       300 B            0     0%          -       4  b.c:9\n",
      output_of({"summary", "t.tdf"}));
}

TEST(Top, RanksSitesByWhatTheyHoldAtTheEnd) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks live at the end; peak 500 B in 3 blocks at event 5\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  site\n"
      "  300 B       1    75%    300 B     1       300 B       4  b.c:9\n"
      "  100 B       1    25%    200 B     2       200 B       3  a.c:7\n",
      output_of({"top", "t.tdf"}));
}

TEST(Top, ShowsTheMomentThatIsAskedFor) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 3 events, 2 handles, 1 site\n"
      "100 B in 1 block live at event 3; peak 100 B in 1 block at event 3\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  site\n"
      "  100 B       1   100%    100 B     1       100 B       3  a.c:7\n",
      output_of({"top", "--at", "3", "t.tdf"}));
}

TEST(Top, ShowsThePeak) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "500 B in 3 blocks live at the peak; peak 500 B in 3 blocks at event 5\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  site\n"
      "  300 B       1    60%    300 B     1       300 B       4  b.c:9\n"
      "  200 B       2    40%    200 B     2       200 B       3  a.c:7\n",
      output_of({"top", "--at", "peak", "t.tdf"}));
}

TEST(Top, CountsOnlyBlocksThatWereMadeInATime) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks live at the end; peak 400 B in 2 blocks at event 5\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle\n"
      "  300 B       1    75%    300 B     1       300 B  4 made at main.c:11\n"
      "  100 B       1    25%    100 B     1       100 B  3 made at main.c:10\n",
      output_of({"top", "--from", "4", "--by", "handle", "t.tdf"}));
}

TEST(Top, CountsOnlyFilesThatMatch) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "100 B in 1 block live at the end; peak 200 B in 2 blocks at event 4\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  site\n"
      "  100 B       1   100%    200 B     2       200 B       3  a.c:7\n",
      output_of({"top", "--file", "a.*", "t.tdf"}));
}

TEST(Top, SaysHowManyRowsItLeavesOut) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks live at the end; peak 500 B in 3 blocks at event 5\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  site\n"
      "  300 B       1    75%    300 B     1       300 B       4  b.c:9\n"
      "  1 more: -n 0 shows all\n",
      output_of({"top", "-n", "1", "--sort", "made", "t.tdf"}));
}

TEST(Top, GivesMachinesNumbers) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      R"({"command":"top",)"
      "\n"
      R"("input":"t.tdf",)"
      "\n"
      R"("events":6,)"
      "\n"
      R"("first_event":1,)"
      "\n"
      R"("last_event":6,)"
      "\n"
      R"("live_bytes":400,)"
      "\n"
      R"("live_blocks":2,)"
      "\n"
      R"("peak_bytes":500,)"
      "\n"
      R"("peak_blocks":3,)"
      "\n"
      R"("peak_event":5,)"
      "\n"
      R"("made_bytes":500,)"
      "\n"
      R"("made_blocks":3,)"
      "\n"
      R"("is_whole":true,)"
      "\n"
      R"("rows":[)"
      "\n"
      R"({"bytes":300,"blocks":1,"peak_bytes":300,"made_blocks":1,"made_bytes":300,"handle":4,"site":"b.c:9"},)"
      "\n"
      R"({"bytes":100,"blocks":1,"peak_bytes":200,"made_blocks":2,"made_bytes":200,"handle":3,"site":"a.c:7"}]})"
      "\n",
      output_of({"top", "--json", "t.tdf"}));
}

TEST(Leaks, ListsWhatWasNeverReleased) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "400 B in 2 blocks were never released\n"
      "\n"
      "  bytes  blocks  share  made  largest  last made  handle  site\n"
      "  300 B       1    75%     1    300 B          5       4  b.c:9\n"
      "  100 B       1    25%     2    100 B          4       3  a.c:7\n",
      output_of({"leaks", "t.tdf"}));
}

TEST(Peak, ShowsWhoHeldIt) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "peak 500 B in 3 blocks at event 5\n"
      "\n"
      "  at peak  blocks  share  own peak  at end  handle  site\n"
      "    300 B       1    60%     300 B   300 B       4  b.c:9\n"
      "    200 B       2    40%     200 B   100 B       3  a.c:7\n",
      output_of({"peak", "t.tdf"}));
}

TEST(Churn, RanksSitesByShortLives) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "500 B in 3 blocks made; 33% of 3 blocks were released within 16 events\n"
      "\n"
      "  made  bytes made  short-lived  share  mean life  handle  site\n"
      "     2       200 B            1    50%          3       3  a.c:7\n"
      "     1       300 B            0     0%          -       4  b.c:9\n",
      output_of({"churn", "t.tdf"}));
}

TEST(Lives, AreCountedByTheirLengthAndBySite) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "1 of 3 blocks released; lives are in events\n"
      "\n"
      "  at least  blocks  share  bytes\n"
      "         2       1   100%  100 B\n"
      "\n"
      "  made  released  mean life  longest  mean size  largest  handle  site\n"
      "     1         0          -        0      300 B    300 B       4  b.c:9\n"
      "     2         1          3        3      100 B    100 B       3  a.c:7\n",
      output_of({"lives", "t.tdf"}));
}

TEST(Sizes, AreCountedByPowersOfTwo) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "500 B in 3 blocks made\n"
      "\n"
      "  at least  blocks  share  bytes made  share\n"
      "      64 B       2    67%       200 B    40%\n"
      "     256 B       1    33%       300 B    60%\n",
      output_of({"sizes", "t.tdf"}));
}

TEST(Timeline, HasTheExtremesOfEachPart) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "peak 500 B in 3 blocks at event 5\n"
      "  ▂▃█▆\n"
      "\n"
      "  from  lowest  highest\n"
      "     3   100 B    200 B\n"
      "     5   400 B    500 B\n",
      output_of({"timeline", "-n", "2", "t.tdf"}));
}

TEST(History, TellsWhatHappenedAtAnAddress) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "history of 0x1000\n"
      "\n"
      "  event  what    address  bytes  handle  at     of\n"
      "      3  malloc  0x1000     100       3  a.c:7  -\n"
      "      6  free    0x1000     100       3  a.c:8  a.c:7 (event 3)\n",
      output_of({"history", "0x1000", "t.tdf"}));
}

TEST(History, TellsWhatBecameOfTheBlocksOfASite) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "history of a.c:7\n"
      "\n"
      "  event  what    address  bytes  handle  at     of\n"
      "      3  malloc  0x1000     100       3  a.c:7  -\n"
      "      4  malloc  0x2000     100       3  a.c:7  -\n"
      "      6  free    0x1000     100       3  a.c:8  a.c:7 (event 3)\n",
      output_of({"history", "a.c:7", "t.tdf"}));
}

TEST(Check, SaysThatATableIsWhole) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "whole: each release has its block, and the sums are those that the input says\n",
      output_of({"check", "t.tdf"}));
}

TEST(Summary, IsAsManyTablesInCsv) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "live_bytes,live_blocks,made_blocks,largest_bytes,last_event,handle,site\n"
      "300,1,1,300,5,4,b.c:9\n"
      "100,1,2,100,4,3,a.c:7\n"
      "\n"
      "peak_bytes,peak_blocks,highest_bytes,live_bytes,handle,site\n"
      "300,1,300,300,4,b.c:9\n"
      "200,2,200,100,3,a.c:7\n"
      "\n"
      "made_blocks,made_bytes,released_soon,mean_life_events,handle,site\n"
      "2,200,1,3,3,a.c:7\n"
      "1,300,0,,4,b.c:9\n",
      output_of({"summary", "--csv", "t.tdf"}));
}

TEST(Churn, CountsBlocksThatLiveForSixteenEventsAtMost) {
  const Scene scene;
  std::vector<std::string> rows = {"1 3 N 0 0 0 0 main.c 1", "2 3 M 1000 1 8 8 soon.c 1",
                                   "3 3 M 2000 1 8 16 later.c 2"};
  for (int event = 4; event < 18; ++event) {
    rows.push_back(std::to_string(event) + " 3 M " + std::to_string(event * 10000) +
                   " 1 1 20 other.c 3");
  }
  rows.emplace_back("18 3 F 1000 1 8 30 soon.c 4");
  rows.emplace_back("19 3 M 9000 1 1 31 other.c 3");
  rows.emplace_back("20 3 F 2000 1 8 15 later.c 5");
  kit::write_file("t.tdf", kit::table_of(rows));
  EXPECT_EQ(
      "made_blocks,made_bytes,released_soon,mean_life_events,handle,site\n"
      "1,8,1,16,3,soon.c:1\n"
      "15,15,0,,3,other.c:3\n"
      "1,8,0,17,3,later.c:2\n",
      output_of({"churn", "--csv", "t.tdf"}));
}

/** The same program a version later: two lines were added in front, and one site allocates more. */
void write_later_table() {
  kit::write_file("later.tdf",
                  kit::table_of({"1 3 N 0 0 0 0 main.c 10", "2 4 N 0 0 0 0 main.c 11",
                                 "3 3 M 1000 1 100 100 a.c 9", "4 3 M 2000 1 100 200 a.c 9",
                                 "5 4 C 3000 10 30 300 b.c 9", "6 3 M 4000 1 50 250 new.c 1"}));
}

TEST(Difference, LinesUpSitesWhoseLinesHaveMoved) {
  const Scene scene;
  write_small_table();
  write_later_table();
  EXPECT_EQ(
      "t.tdf: 6 events, 2 handles, 2 sites\n"
      "later.tdf: 6 events, 2 handles, 3 sites\n"
      "400 B in 2 blocks -> 550 B in 4 blocks\n"
      "\n"
      "   bytes  blocks  before  after  handle  site\n"
      "  +100 B      +1   100 B  200 B  3       a.c:7 -> 9\n"
      "   +50 B      +1     0 B   50 B  3       new.c:1\n",
      output_of({"diff", "t.tdf", "later.tdf"}));
}

TEST(Difference, HasSignedNumbersForMachines) {
  const Scene scene;
  write_small_table();
  write_later_table();
  EXPECT_EQ(
      "bytes_change,blocks_change,bytes_before,bytes_after,handle,name\n"
      "-100,-1,200,100,3,a.c:9 -> 7\n"
      "-50,-1,50,0,3,new.c:1\n",
      output_of({"diff", "--csv", "later.tdf", "t.tdf"}));
}

TEST(Fail, EndsWithOneIfThereIsAnythingToFind) {
  const Scene scene;
  write_small_table();
  kit::write_file("clean.tdf", kit::table_of({"1 3 N 0 0 0 0 main.c 10", "2 3 M 1000 1 9 9 a.c 1",
                                              "3 3 F 1000 1 9 0 a.c 2"}));
  EXPECT_EQ(1, kit::qkmem({"leaks", "--fail", "t.tdf"}).status);
  EXPECT_EQ(0, kit::qkmem({"leaks", "t.tdf"}).status);
  EXPECT_EQ(0, kit::qkmem({"leaks", "--fail", "clean.tdf"}).status);
  EXPECT_EQ(0, kit::qkmem({"check", "--fail", "t.tdf"}).status);
  EXPECT_EQ(1, kit::qkmem({"diff", "--fail", "clean.tdf", "t.tdf"}).status);
  EXPECT_EQ(0, kit::qkmem({"diff", "--fail", "t.tdf", "clean.tdf"}).status);
}

}  // namespace

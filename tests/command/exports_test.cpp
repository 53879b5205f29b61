#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "tests/command/command.h"
#include "tests/command/made_recording.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::output_of;
using kit::qkmem;
using kit::Scene;
using kit::write_small_table;

TEST(ExportFolded, HasALineForEachStack) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"(handle:3;a.c:7 100
handle:4;b.c:9 300
)",
            output_of({"export", "--to", "folded", "-o", "-", "t.tdf"}));
}

TEST(ExportHeaptrack, HasTheEventsInOrder) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"(v 10400 3
X t.tdf
I 1000 0
s 5 qkmem
s 8 handle:3
i 1 1 2
t 1 0
s 5 a.c:7
s 3 a.c
i 2 1 3 4 7
t 2 1
a 64 2
s 8 handle:4
i 3 1 5
t 3 0
s 5 b.c:9
s 3 b.c
i 4 1 6 7 9
t 4 3
a 12c 4
c 1
c 2
c 3
+ 0
c 4
+ 0
c 5
+ 1
c 6
- 0
)",
            output_of({"export", "--to", "heaptrack", "-o", "-", "t.tdf"}));
}

TEST(ExportHeaptrack, HasNoFunctionThatEndsAStack) {
  const Scene scene;
  kit::MadeRecording recording;
  recording.name(0x1001, 0, "main", "/src/main.c", 40);
  recording.name(0x1002, 0, "domain", "/src/net.c", 30);
  recording.made(recording.site("/src/net.c", 30, {0x1002, 0x1001}), 100);
  recording.write("r.qkm");
  const std::string output = output_of({"export", "--to", "heaptrack", "-o", "-", "r.qkm"});
  EXPECT_NE(std::string::npos, output.find("\ns 6 main()\n"));
  EXPECT_NE(std::string::npos, output.find("\ns 6 domain\n"));
  EXPECT_EQ(std::string::npos, output.find(" main\n"));
}

TEST(ExportMassif, HasATreeAtThePeakAndAtTheEnd) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"(desc: qkmem; time is in events
cmd: t.tdf
time_unit: i
#-----------
snapshot=0
#-----------
time=3
mem_heap_B=100
mem_heap_extra_B=0
mem_stacks_B=0
heap_tree=empty
#-----------
snapshot=1
#-----------
time=4
mem_heap_B=200
mem_heap_extra_B=0
mem_stacks_B=0
heap_tree=empty
#-----------
snapshot=2
#-----------
time=5
mem_heap_B=500
mem_heap_extra_B=0
mem_stacks_B=0
heap_tree=empty
#-----------
snapshot=3
#-----------
time=5
mem_heap_B=500
mem_heap_extra_B=0
mem_stacks_B=0
heap_tree=peak
n2: 500 (heap allocation functions) malloc/new/new[], --alloc-fns, etc.
 n1: 300 0x1: b.c:9
  n0: 300 0x1: handle:4
 n1: 200 0x1: a.c:7
  n0: 200 0x1: handle:3
#-----------
snapshot=4
#-----------
time=6
mem_heap_B=400
mem_heap_extra_B=0
mem_stacks_B=0
heap_tree=detailed
n2: 400 (heap allocation functions) malloc/new/new[], --alloc-fns, etc.
 n1: 300 0x1: b.c:9
  n0: 300 0x1: handle:4
 n1: 100 0x1: a.c:7
  n0: 100 0x1: handle:3
)",
            output_of({"export", "--to", "massif", "-o", "-", "t.tdf"}));
}

TEST(ExportDhat, HasAPointForEachPath) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"({"dhatFileVersion":2,"mode":"heap","verb":"Allocated","bklt":true,"bkacc":false,
"tu":"events","Mtu":"million events","tuth":16,
"cmd":"t.tdf","pid":0,"te":6,"tg":5,
"pps":[
{"tb":200,"tbk":2,"tl":5,"mb":200,"mbk":2,"gb":200,"gbk":2,"eb":100,"ebk":1,"fs":[1,2]},
{"tb":300,"tbk":1,"tl":1,"mb":300,"mbk":1,"gb":300,"gbk":1,"eb":300,"ebk":1,"fs":[3,4]}],
"ftbl":[
"[root]",
"0x1: handle:3",
"0x2: a.c:7",
"0x3: handle:4",
"0x4: b.c:9"]}
)",
            output_of({"export", "--to", "dhat", "-o", "-", "t.tdf"}));
}

TEST(ExportSpeedscope, HasAProfileForTheEndThePeakAndAll) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"({"$schema":"https://www.speedscope.app/file-format-schema.json",
"name":"t.tdf","exporter":"qkmem","activeProfileIndex":0,
"profiles":[
{"type":"sampled","name":"live at the end","unit":"bytes","startValue":0,"endValue":400,"samples":[[0,1],[2,3]],"weights":[100,300]},
{"type":"sampled","name":"live at the peak","unit":"bytes","startValue":0,"endValue":500,"samples":[[0,1],[2,3]],"weights":[200,300]},
{"type":"sampled","name":"ever made","unit":"bytes","startValue":0,"endValue":500,"samples":[[0,1],[2,3]],"weights":[200,300]}],
"shared":{"frames":[
{"name":"handle:3"},
{"name":"a.c:7","file":"a.c","line":7},
{"name":"handle:4"},
{"name":"b.c:9","file":"b.c","line":9}]}}
)",
            output_of({"export", "--to", "speedscope", "-o", "-", "t.tdf"}));
}

TEST(ExportCsv, HasARowForEachSite) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      R"(handle,tag,file,line,label,live_bytes,live_blocks,unsure_bytes,peak_bytes,peak_blocks,highest_bytes,made_bytes,made_blocks,released_blocks,released_soon,sum_of_lives_events,largest_bytes,first_event,last_event
3,,a.c,7,,100,1,0,200,2,200,200,2,1,1,3,100,3,4
4,,b.c,9,,300,1,0,300,1,300,300,1,0,0,0,300,5,5
)",
      output_of({"export", "--to", "csv", "-o", "-", "t.tdf"}));
}

TEST(ExportOpenmetrics, HasASeriesForEachHandle) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(R"(# TYPE qkmem_tag_bytes gauge
# UNIT qkmem_tag_bytes bytes
# HELP qkmem_tag_bytes Live memory on the handles of a tag.
# TYPE qkmem_handle_bytes gauge
# UNIT qkmem_handle_bytes bytes
# HELP qkmem_handle_bytes Live memory on a handle.
qkmem_handle_bytes{program="t.tdf",pid="0",handle="3",tag=""} 100
qkmem_handle_bytes{program="t.tdf",pid="0",handle="4",tag=""} 300
# TYPE qkmem_handle_blocks gauge
# HELP qkmem_handle_blocks Live allocations on a handle.
qkmem_handle_blocks{program="t.tdf",pid="0",handle="3",tag=""} 1
qkmem_handle_blocks{program="t.tdf",pid="0",handle="4",tag=""} 1
# HELP qkmem_allocations_total Allocations since the profile began.
qkmem_allocations_total{program="t.tdf",pid="0"} 3
# TYPE qkmem_peak_bytes gauge
# UNIT qkmem_peak_bytes bytes
# HELP qkmem_peak_bytes Most live memory at one time since the profile began.
qkmem_peak_bytes{program="t.tdf",pid="0"} 500
# EOF
)",
            output_of({"export", "--to", "openmetrics", "-o", "-", "t.tdf"}));
}

TEST(Export, IsNamedAfterItsInputAndSaysWhatOpensIt) {
  const Scene scene;
  write_small_table();
  const kit::Ran ran = qkmem({"export", "--to", "heaptrack", "t.tdf"});
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("", ran.out);
  EXPECT_EQ("qkmem: heaptrack_print t.heaptrack\n", ran.err);
  EXPECT_EQ(output_of({"export", "--to", "heaptrack", "-o", "-", "t.tdf"}),
            contents("t.heaptrack"));
  EXPECT_EQ("qkmem: ms_print massif.out.t\n", qkmem({"export", "--to", "massif", "t.tdf"}).err);
}

TEST(Export, QuotesANameThatAShellWouldTakeApart) {
  const Scene scene;
  write_small_table();
  kit::write_file("it's mine;.tdf", contents("t.tdf"));
  kit::write_file("-x.tdf", contents("t.tdf"));
  EXPECT_EQ("qkmem: heaptrack_print 'it'\\''s mine;.heaptrack'\n",
            qkmem({"export", "--to", "heaptrack", "it's mine;.tdf"}).err);
  EXPECT_EQ("qkmem: heaptrack_print ./-x.heaptrack\n",
            qkmem({"export", "--to", "heaptrack", "--", "-x.tdf"}).err);
}

/** Of a program whose command line and file name have several lines. */
void write_recording_with_lines() {
  kit::MadeRecording recording;
  recording.started(0, "sh -c 'one\n+ 0'");
  recording.made(recording.site("a\nb.c", 7, {}), 100);
  recording.write("r.qkm");
}

TEST(Export, KeepsNamesWithNewlinesOnOneLine) {
  const Scene scene;
  write_recording_with_lines();
  const auto of = [](const char* format) {
    return output_of({"export", "--to", format, "-o", "-", "r.qkm"});
  };
  EXPECT_NE(std::string::npos, of("heaptrack").find("\nX sh -c 'one + 0'\n"));
  EXPECT_NE(std::string::npos, of("heaptrack").find(" a b.c:7\n"));
  EXPECT_NE(std::string::npos, of("massif").find("\ncmd: sh -c 'one + 0'\n"));
  EXPECT_NE(std::string::npos, of("massif").find(" 0x1: a b.c:7\n"));
}

TEST(Export, OfMetricsHasOnlyTheHandlesThatAreAskedFor) {
  const Scene scene;
  write_small_table();
  const std::string text =
      output_of({"export", "--to", "openmetrics", "--handle", "3", "-o", "-", "t.tdf"});
  EXPECT_NE(std::string::npos, text.find("handle=\"3\""));
  EXPECT_EQ(std::string::npos, text.find("handle=\"4\""));
}

TEST(Export, LeavesAFileThatExistsAlone) {
  const Scene scene;
  write_small_table();
  kit::write_file("t.csv", "mine");
  const kit::Ran ran = qkmem({"export", "--to", "csv", "t.tdf"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: t.csv exists: -f overwrites it\n", ran.err);
  EXPECT_EQ("mine", contents("t.csv"));
}

TEST(Export, IsOfTheMomentThatIsAskedFor) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ("handle:3;a.c:7 200\nhandle:4;b.c:9 300\n",
            output_of({"export", "--to", "folded", "--at", "peak", "-o", "-", "t.tdf"}));
  EXPECT_EQ("handle:3;a.c:7 200\n", output_of({"export", "--to", "folded", "--at", "ever", "--file",
                                               "a.c", "-o", "-", "t.tdf"}));
  EXPECT_EQ("handle:3;a.c:7 100\n",
            output_of({"export", "--to", "folded", "--at", "3", "-o", "-", "t.tdf"}));
}

TEST(Export, CountsABlockOnceThatAReallocHasLeftAsItWas) {
  const Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "RECORD=r.qkm REPORT=/dev/null"}, [] {
    const kit::Pool pool;
    void* const block = qk_mem_imalloc(pool, 100, 16, "a.c", 1);
    qk_mem_irealloc(pool, block, SIZE_MAX / 4, 16, "a.c", 2);
    qk_mem_ifree(pool, block, "a.c", 3);
  });
  ASSERT_EQ(0, ended.exit_code);
  const std::string text = output_of({"export", "--to", "heaptrack", "-o", "-", "r.qkm"});
  const std::string events = text.substr(text.find("\n+ "));
  EXPECT_EQ(1, std::count(events.begin(), events.end(), '+'));
  EXPECT_EQ(1, std::count(events.begin(), events.end(), '-'));
}

TEST(Export, OfMetricsHasNoneOfWhatIsNoLongerThere) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ("qkmem: --at ever: these metrics are of live memory\n",
            qkmem({"export", "--to", "openmetrics", "--at", "ever", "t.tdf"}).err);
}

TEST(Export, ToAnUnknownFormatIsRefused) {
  const Scene scene;
  write_small_table();
  EXPECT_EQ(
      "qkmem: --to: 'html' is not pprof, dhat, heaptrack, speedscope, folded, massif, csv or "
      "openmetrics\n",
      qkmem({"export", "--to", "html", "t.tdf"}).err);
}

}  // namespace

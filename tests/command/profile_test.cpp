#include "qkmem/profile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/command/command.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

using kit::output_of;
using kit::qkmem;
using kit::Scene;

std::string report_of(const std::string& sites, const std::string& more = {}) {
  return R"({"program":"net","process":7,"start_ns":1000,"duration_ns":2000000,"events":40,)" +
         more + R"("peak_bytes":700,"peak_event":30,"peak_time_ns":1500,)" +
         R"("handles":[{"handle":3,"tag":"NT"}],"sites":[)" + sites + "]}";
}

constexpr const char* kSites =
    R"x({"file":"net.c","line":12,"handle":3,"tag":"NT","live_bytes":400,"live_blocks":4,)x"
    R"x("bytes_at_peak":500,"highest_bytes":600,"made_bytes":900,"made_blocks":9,)x"
    R"x("largest_block":100,"freed_soon":5,"sum_of_lives":70,"first_event":1,"last_event":38,)x"
    R"x("stack":[{"function":"receive(int)","file":"/src/net.c","line":12},)x"
    R"x({"module":"/usr/lib/libnet.so.1","build_id":"ab","offset":4660}]},)x"
    R"x({"file":"net.c","line":20,"handle":3,"tag":"NT","label":"headers","live_bytes":0,)x"
    R"x("live_blocks":0,"bytes_at_peak":200,"highest_bytes":200,"made_bytes":200,)x"
    R"x("made_blocks":1,"largest_block":200,"freed_soon":0,"sum_of_lives":9,)x"
    R"x("first_event":2,"last_event":2},)x"
    R"x({"place":"(from before the profile was on)","live_bytes":50,"live_blocks":1,)x"
    R"x("bytes_at_peak":0,"highest_bytes":50,"made_bytes":0,"made_blocks":0,)x"
    R"x("largest_block":0,"freed_soon":0,"sum_of_lives":0,"first_event":0,"last_event":0})x";

TEST(ProfileReport, IsSummedUp) {
  const Scene scene;
  kit::write_file("p.json", report_of(kSites));
  EXPECT_EQ(
      "p.json: 40 events, 2 handles, 3 sites\n"
      "400 B in 4 blocks were never released; net.c:12 has 100% of it\n"
      "\n"
      "peak    700 B at event 30\n"
      "churn   1.1 KiB in 10 blocks made; 50% of the blocks lived for 16 events at most\n"
      "\n"
      "what is left\n"
      "  bytes  blocks  share  made  largest  last made  handle  tag  site\n"
      "  400 B       4   100%     9    100 B         38       3  NT   net.c:12\n"
      "\n"
      "what held the peak\n"
      "  at peak  share  own peak  at end  handle  tag  site\n"
      "    500 B    71%     600 B   400 B       3  NT   net.c:12\n"
      "    200 B    29%     200 B     0 B       3  NT   net.c:20 [headers]\n"
      "\n"
      "what churns\n"
      "  made  bytes made  short-lived  share  handle  tag  site\n"
      "     9       900 B            5    56%       3  NT   net.c:12\n"
      "     1       200 B            0     0%       3  NT   net.c:20 [headers]\n"
      "\n"
      "50 B in 1 block of what is live: made before the profile was on\n",
      output_of({"summary", "p.json"}));
}

TEST(ProfileReport, HasTheFiguresOfARecordingOfTheSameLife) {
  const Scene scene;
  const kit::Ended ended =
      kit::run({"", "", "", "SITES PEAK FORMAT=JSON REPORT=p.json RECORD=r.qkm"}, [] {
        const kit::Pool pool("", "NT");
        std::vector<void*> blocks;
        for (int i = 1; i <= 300; ++i) {
          blocks.push_back(qk_mem_imalloc(pool, static_cast<size_t>(i), 16, "a.c", i % 7));
          if (i % 3 == 0) qk_mem_ifree(pool, blocks[static_cast<std::size_t>(i) / 3], "b.c", 1);
        }
      });
  ASSERT_EQ(0, ended.exit_code);
  const std::string of_recording = output_of({"top", "-n", "0", "--csv", "r.qkm"});
  EXPECT_NE(std::string::npos, of_recording.find(",3,NT,a.c:6\n"));
  EXPECT_EQ(of_recording, output_of({"top", "-n", "0", "--csv", "p.json"}));
}

TEST(ProfileReport, HasStacksOfNamesAlone) {
  const Scene scene;
  kit::write_file("p.json", report_of(kSites));
  EXPECT_NE(std::string::npos,
            output_of({"top", "--by", "function", "p.json"}).find("  receive\n"));
  const std::string tree = output_of({"tree", "-n", "0", "p.json"});
  EXPECT_NE(std::string::npos, tree.find("  libnet.so.1+0x1234\n")) << tree;
  EXPECT_NE(std::string::npos, tree.find("receive\n")) << tree;
}

TEST(ProfileReport, TakesWhatWasNotRecordedForMadeByTheProgram) {
  const Scene scene;
  kit::write_file(
      "p.json",
      report_of(R"x({"place":"(not recorded: the profile had no memory left)","live_bytes":50,)x"
                R"x("live_blocks":1,"bytes_at_peak":0,"highest_bytes":50,"made_bytes":50,)x"
                R"x("made_blocks":1,"largest_block":50,"freed_soon":0,"sum_of_lives":0,)x"
                R"x("first_event":1,"last_event":1})x"));
  EXPECT_EQ(
      "p.json: 40 events, 2 handles, 1 site\n"
      "50 B in 1 block was never released\n"
      "\n"
      "  bytes  blocks  share  made  largest  last made  handle  tag  site\n"
      "   50 B       1   100%     1     50 B          1       0  -    no site\n",
      output_of({"leaks", "p.json"}));
}

TEST(ProfileReport, RefusesWhatNeedsEvents) {
  const Scene scene;
  kit::write_file("p.json", report_of(kSites));
  const std::vector<std::vector<std::string>> requests = {
      {"lives", "p.json"},
      {"sizes", "p.json"},
      {"timeline", "p.json"},
      {"check", "p.json"},
      {"history", "net.c:12", "p.json"},
      {"top", "--from", "3", "p.json"},
      {"top", "--to", "1s", "p.json"},
      {"top", "--at", "3", "p.json"},
      {"export", "--to", "dhat", "-o", "-", "p.json"},
      {"export", "--to", "heaptrack", "-o", "-", "p.json"},
      {"export", "--to", "massif", "-o", "-", "p.json"}};
  for (const auto& request : requests) {
    const kit::Ran ran = qkmem(request);
    EXPECT_EQ(2, ran.status) << request.front();
    EXPECT_EQ("qkmem: a profile's report has no events; a recording has\n", ran.err)
        << request.front();
  }
  EXPECT_EQ("qkmem: a profile's report has no threads; a recording has\n",
            qkmem({"top", "--thread", "1", "p.json"}).err);
  EXPECT_EQ("qkmem: a profile's report has no blocks at the peak; a recording has\n",
            qkmem({"top", "--at", "peak", "p.json"}).err);
}

TEST(ProfileReport, ThatWasSampledSaysSo) {
  const Scene scene;
  kit::write_file("p.json", report_of(kSites, R"("sample_interval_bytes":1024,)"));
  EXPECT_NE(std::string::npos,
            output_of({"top", "p.json"})
                .find("the profile has looked at samples: its figures are estimates\n"));
}

TEST(ProfileReport, ThatIsDamagedIsToldWithThePlace) {
  const Scene scene;
  const auto complaint = [](const std::string& text) {
    const kit::Ran ran = qkmem({"top", "-"}, text);
    EXPECT_EQ(2, ran.status);
    return ran.err;
  };
  EXPECT_EQ("qkmem: -: byte 12: no JSON\n", complaint(R"({"program":)"));
  EXPECT_EQ("qkmem: -: not the profile's report: the report: there is no 'program'\n",
            complaint("{}"));
  EXPECT_EQ("qkmem: -: not the profile's report: site 1: it is no object\n",
            complaint(report_of("17")));
  EXPECT_EQ("qkmem: -: not the profile's report: site 1: 'line' is no size\n",
            complaint(report_of(R"({"file":"a.c","line":-1,"handle":3,"tag":""})")));
  EXPECT_EQ("qkmem: -: not the profile's report: site 1: 'line' is too large\n",
            complaint(report_of(R"({"file":"a.c","line":4294967296,"handle":3,"tag":""})")));
  EXPECT_EQ("qkmem: -: not the profile's report: site 1: 'file' is no text\n",
            complaint(report_of(R"({"file":[],"line":1,"handle":3,"tag":""})")));
  EXPECT_EQ("qkmem: -: a report of growth tells no more than what has grown\n",
            complaint(R"({"since":{}})"));
  EXPECT_EQ("qkmem: -: no JSON: a number is too large\n", complaint("{\"program\":1e999}"));
  const std::string deep(100'000, '[');
  EXPECT_EQ("qkmem: -: byte 100012: no JSON\n", complaint("{\"program\":" + deep));
  EXPECT_EQ("qkmem: -: not the profile's report: the report: 'program' is no text\n",
            complaint("{\"program\":" + deep + std::string(deep.size(), ']') + "}"));
}

TEST(Request, IsRefusedBeforeTheInputIsReadToItsEnd) {
  const Scene scene;
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  const std::string rows = kit::table_of(std::vector<std::string>(1000, "1 3 N 0 0 0 0 main.c 1"));
  ASSERT_EQ(static_cast<ssize_t>(rows.size()), write(ends[1], rows.data(), rows.size()));
  kit::StartedCommand command({"top", "--by", "tag", "-"}, ends[0], nowhere, nowhere);
  EXPECT_EQ(2, command.end());
  close(ends[1]);
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "qkmem/qkmem.h"
#include "tests/command/command.h"
#include "tests/command/made_recording.h"
#include "tests/kit/recording.h"
#include "tests/kit/scene.h"

extern "C" {

// C's names are the same wherever the functions are. The asm keeps a call from being the last thing
// that its caller does, whose frame would be gone then.
[[gnu::noinline]] void* names_take(int hid, std::size_t bytes) {
  void* const memory = qk_mem_imalloc(hid, bytes, 16, "src/names_test.cpp", __LINE__);
  asm volatile("");
  return memory;
}

[[gnu::noinline]] void* names_load(int hid, std::size_t bytes) {
  void* const memory = qk_mem_imalloc(hid, bytes, 16, "src/names_test.cpp", __LINE__);
  asm volatile("");
  return memory;
}
}

namespace {

using kit::MadeRecording;
using kit::output_of;
using kit::qkmem;
using kit::Ran;
using kit::Scene;

/** Runs a program with the profile on, which reports nowhere. */
template <class Body>
kit::Ended run_recorded(const std::string& options, Body body) {
  return kit::run({"", "", "", options + " REPORT=/dev/null"}, body);
}

void record_load() {
  const auto ended = run_recorded("RECORD=r.qkm STACKS=8", [] {
    const kit::Pool pool("", "NT");
    names_load(pool, 100);
    names_take(pool, 200);
  });
  EXPECT_EQ("", ended.err);
}

TEST(Names, AreThoseOfTheFunctionsThatHoldTheSites) {
  const Scene scene;
  record_load();
  const std::string csv = output_of({"top", "r.qkm", "--by", "function", "--csv"});
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,function\n"
      "200,1,200,1,200,3,NT,names_take\n"
      "100,1,100,1,100,3,NT,names_load\n",
      csv);
}

TEST(Names, BeginStacksWithTheFunctionThatHoldsTheSite) {
  const Scene scene;
  MadeRecording recording;
  recording.name(0x1001, 0, "checked_malloc", "/src/memory.c", 7);
  recording.name(0x1002, 0, "net::parse(char const*, int)", "/src/net.c", 12);
  recording.name(0x1003, 0, "main", "/src/main.c", 40);
  recording.made(recording.site("src/net.c", 11, {0x1001, 0x1002, 0x1003}), 100);
  recording.made(recording.site("lib/x.c", 1, {0x1001, 0x1002, 0x1003}), 50);
  recording.write("r.qkm");
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,stack\n"
      "100,1,100,1,100,3,NT,net.c:11 < net::parse (net.c:12) < main (main.c:40)\n"
      "50,1,50,1,50,3,NT,x.c:1 < checked_malloc (memory.c:7) < net::parse (net.c:12) < main "
      "(main.c:40)\n",
      output_of({"top", "r.qkm", "--by", "stack", "--csv"}));
}

TEST(Names, OfOuterCallersAreCutWhereTheTerminalEnds) {
  const Scene scene;
  MadeRecording recording;
  recording.name(0x1001, 0, "parse_head", "/src/net.c", 12);
  recording.name(0x1002, 0, "parse", "/src/net.c", 40);
  recording.name(0x1003, 0, "main", "/src/main.c", 40);
  recording.made(recording.site("src/net.c", 12, {0x1001, 0x1002, 0x1003}), 100);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 1 event, 1 handle, 1 site\n"
      "100 B in 1 block live at the end; peak 100 B in 1 block at event 1, 1.0 us\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  tag  site and its callers\n"
      "  100 B       1   100%    100 B     1       100 B       3  NT   net.c:12 < parse_head (net.c:12) <..\n",
      output_of({"top", "r.qkm", "--by", "stack"}));
}

TEST(Names, LeaveOutTheLibraryAndWhatStartsPrograms) {
  const Scene scene;
  MadeRecording recording;
  recording.name(0x1001, 0, "qk_mem_malloc", "", 0);
  recording.name(0x1002, 0, "std::vector<int>::push_back(int)", "", 0);
  recording.name(0x1003, 0, "main", "", 0);
  recording.name(0x1004, 0, "__libc_start_main", "", 0);
  recording.name(0x1005, 0, "_start", "", 0);
  recording.made(recording.site("a.c", 1, {0x1001, 0x1002, 0x1003, 0x1004, 0x1005}), 100);
  recording.write("r.qkm");
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,stack\n"
      "100,1,100,1,100,3,NT,a.c:1 < main\n",
      output_of({"top", "r.qkm", "--by", "stack", "--csv"}));
}

TEST(Names, TellFunctionsOfOneShortNameApart) {
  const Scene scene;
  MadeRecording recording;
  recording.name(0x1001, 0, "put(int)", "", 0);
  recording.name(0x1002, 0, "put(char)", "", 0);
  recording.made(recording.site("a.c", 1, {0x1001}), 100);
  recording.made(recording.site("a.c", 2, {0x1002}), 50);
  recording.write("r.qkm");
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,function\n"
      "100,1,100,1,100,3,NT,put\n"
      "50,1,50,1,50,3,NT,put\n",
      output_of({"top", "r.qkm", "--by", "function", "--csv"}));
}

TEST(Names, ArePlacesInModulesWhereTheFilesAreGone) {
  const Scene scene;
  MadeRecording recording;
  recording.module("/nowhere/libnet.so.1", "123", 0x10000, 0x20000);
  recording.made(recording.site("a.c", 1, {0x10101, 0x50001}), 100);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 1 event, 1 handle, 1 site\n"
      "100 B in 1 block live at the end; peak 100 B in 1 block at event 1, 1.0 us\n"
      "\n"
      "  bytes  blocks  share  at peak  made  bytes made  handle  tag  site and its callers\n"
      "  100 B       1   100%    100 B     1       100 B       3  NT   a.c:1 < libnet.so.1+0x100 < 0x50000\n",
      output_of({"top", "r.qkm", "--by", "stack"}));
}

TEST(Names, SayWhichModulesHaveChanged) {
  const Scene scene;
  MadeRecording recording;
  recording.module(QKMEM_COMMAND_PROGRAM, "another build", 0x10000, 0x20000);
  recording.made(recording.site("a.c", 1, {0x10101}), 100);
  recording.write("r.qkm");
  EXPECT_EQ(
      "r.qkm: 1 event, 1 handle, 1 site\n"
      "100 B in 1 block live at the end\n"
      "\n"
      "  bytes  share  blocks  function\n"
      "  100 B   100%       1  qkmem+0x100\n"
      "  100 B   100%       1  > a.c:1\n"
      "\n" QKMEM_COMMAND_PROGRAM " has changed since: its functions are not named\n",
      output_of({"tree", "r.qkm"}));
}

/** What is remarked of a module without a build-id, of a program that began at a time. */
std::string remark_on_module(const std::string& path, std::uint64_t started) {
  MadeRecording recording;
  recording.started(started);
  recording.module(path, "", 0x10000, 0x20000);
  recording.made(recording.site("a.c", 1, {0x10101}), 100);
  recording.write("r.qkm");
  const std::string tree = output_of({"tree", "r.qkm"});
  return tree.substr(tree.find("a.c:1\n") + 6);
}

TEST(Names, TakeAnOlderFileForTheOneThatHasRunIfItHasNoBuildId) {
  const Scene scene;
  kit::write_file("libold.so", std::string("\x7F"
                                           "ELF\2\1\1",
                                           7) +
                                   std::string(57, '\0'));
  EXPECT_EQ("\nlibold.so has changed since: its functions are not named\n",
            remark_on_module("libold.so", 1));
  EXPECT_EQ("", remark_on_module("libold.so", UINT64_MAX / 2));
}

TEST(Names, DoNotWaitForAFifoInPlaceOfAModule) {
  const Scene scene;
  ASSERT_EQ(0, mkfifo("libold.so", 0600));
  EXPECT_EQ("", remark_on_module("libold.so", UINT64_MAX / 2));
}

TEST(Names, NeedStacks) {
  const Scene scene;
  MadeRecording recording;
  recording.made(recording.site("a.c", 1, {}), 100);
  recording.write("r.qkm");
  EXPECT_EQ("qkmem: there are no stacks: STACKS in QK_MEM_PROFILE takes them along\n",
            qkmem({"top", "r.qkm", "--by", "function"}).err);
  kit::write_file("t.tdf", kit::table_of({"1 3 M 1000 1 100 100 a.c 7"}));
  EXPECT_EQ("qkmem: a trace file has no functions; a recording has\n",
            qkmem({"top", "t.tdf", "--by", "function"}).err);
}

TEST(Symbolize, CopiesARecordingWithItsNames) {
  const Scene scene;
  record_load();
  const Ran ran = qkmem({"symbolize", "r.qkm", "-o", "n.qkm"});
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("", ran.err);
  EXPECT_EQ(0U, ran.out.find("n.qkm: ")) << ran.out;
  const kit::Recording original("r.qkm");
  const kit::Recording copy("n.qkm");
  EXPECT_EQ("", copy.errors());
  EXPECT_EQ(original.events(), copy.events());
  EXPECT_EQ(original.modules(), copy.modules());
  EXPECT_EQ(0U, original.frames().size());
  const auto has = [&copy](const char* function) {
    return std::find(copy.frames().begin(), copy.frames().end(), function) != copy.frames().end();
  };
  EXPECT_TRUE(has("names_load"));
  EXPECT_TRUE(has("names_take"));
  EXPECT_EQ(output_of({"top", "r.qkm", "--by", "stack", "--csv"}),
            output_of({"top", "n.qkm", "--by", "stack", "--csv"}));
  EXPECT_EQ(
      "n.qkm: 2 events, 3 handles, 2 sites\n"
      "whole: each release has its block, and the sums are those that the input says\n"
      "the program has ended it\n",
      output_of({"check", "n.qkm"}));
}

TEST(Symbolize, LeavesNamesThatARecordingHas) {
  const Scene scene;
  record_load();
  EXPECT_EQ(0, qkmem({"symbolize", "r.qkm", "-o", "n.qkm"}).status);
  EXPECT_EQ(0, qkmem({"symbolize", "n.qkm", "-o", "m.qkm"}).status);
  EXPECT_EQ(kit::contents("n.qkm"), kit::contents("m.qkm"));
  EXPECT_EQ(0, qkmem({"symbolize", "n.qkm", "-o", "n.qkm", "-f"}).status);
  EXPECT_EQ(kit::contents("m.qkm"), kit::contents("n.qkm"));
}

TEST(Symbolize, CopiesTheTailOfAProgramThatWasKilled) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm STACKS=8", [] {
    const kit::Pool pool("", "NT");
    names_load(pool, 100);
    raise(SIGKILL);
  });
  EXPECT_EQ(SIGKILL, ended.signal);
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,file\n"
      "100,1,100,1,100,3,NT,names_test.cpp\n",
      output_of({"top", "r.qkm", "--by", "file", "--csv"}));
  EXPECT_EQ(0, qkmem({"symbolize", "r.qkm", "-o", "n.qkm"}).status);
  EXPECT_EQ(
      "n.qkm: 1 event, 3 handles, 1 site\n"
      "whole, as far as it goes: each release has its block\n"
      "the program was killed or still runs: all up to event 1 is there, with the tail\n",
      output_of({"check", "n.qkm"}));
  EXPECT_EQ(
      "bytes,blocks,peak_bytes,made_blocks,made_bytes,handle,tag,function\n"
      "100,1,100,1,100,3,NT,names_load\n",
      output_of({"top", "n.qkm", "--by", "function", "--csv"}));
}

TEST(Symbolize, CopiesWhatIsLeftBehindDroppedEvents) {
  const Scene scene;
  const auto ended = run_recorded("RECORD=r.qkm STACKS=8 RECORD_MAX=1M", [] {
    const kit::Pool pool("", "NT");
    names_load(pool, 100);
    for (int i = 0; i < 300'000; ++i) qk_mem_ifree(pool, names_load(pool, 50), "a.c", 2);
  });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(0, qkmem({"symbolize", "r.qkm", "-o", "n.qkm"}).status);
  const kit::Recording original("r.qkm");
  const kit::Recording copy("n.qkm");
  EXPECT_NE(0U, copy.dropped());
  EXPECT_EQ(original.dropped(), copy.dropped());
  EXPECT_EQ(original.event_count(), copy.event_count());
  EXPECT_EQ("", copy.errors());
  EXPECT_EQ(output_of({"top", "r.qkm", "--by", "stack", "--csv"}),
            output_of({"top", "n.qkm", "--by", "stack", "--csv"}));
  EXPECT_EQ(output_of({"check", "r.qkm", "--csv"}), output_of({"check", "n.qkm", "--csv"}));
}

TEST(Symbolize, OverwritesNothingUnasked) {
  const Scene scene;
  MadeRecording recording;
  recording.made(recording.site("a.c", 1, {0x1001}), 100);
  recording.write("r.qkm");
  kit::write_file("n.qkm", "mine");
  Ran ran = qkmem({"symbolize", "r.qkm", "-o", "n.qkm"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: n.qkm exists: -f overwrites it\n", ran.err);
  EXPECT_EQ("mine", kit::contents("n.qkm"));
  // The tail of what was there before would belong to the copy.
  kit::write_file("n.qkm.tail", "stale");
  ran = qkmem({"symbolize", "r.qkm", "-f", "-o", "n.qkm"});
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("n.qkm: 0 of 1 call named\n", ran.out);
  EXPECT_NE(0, access("n.qkm.tail", F_OK));
}

TEST(Symbolize, WantsARecording) {
  const Scene scene;
  kit::write_file("t.tdf", kit::table_of({"1 3 M 1000 1 100 100 a.c 7"}));
  const Ran ran = qkmem({"symbolize", "t.tdf", "-o", "n.qkm"});
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("qkmem: a trace file has no stacks; a recording has\n", ran.err);
  EXPECT_NE(0, access("n.qkm", F_OK));
}

}  // namespace

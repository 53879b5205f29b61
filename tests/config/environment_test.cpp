#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "config/debug_config.h"
#include "core/switches.h"
#include "diag/log.h"
#include "tests/kit/scene.h"
#include "tests/kit/status.h"

namespace {

using kit::Ended;
using kit::Scene;

int initialise() {
  qk::Status status = kit::used_status();
  const int code = qk_mem_debug_init(&status);
  EXPECT_EQ(kit::text_of(status), "0 details 0 0 numbers 0 0 subject [] arguments [] []");
  return code;
}

TEST(ReadingTheEnvironment, AppliesAndAnnouncesTheDebugVariable) {
  const Scene scene("EXCEPTIONS=qk_ifree");
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(scene.log(), "QK_MEM_DEBUG:  initializing options [EXCEPTIONS=qk_ifree]\n");
  EXPECT_EQ(Qk_mem_debug[7].exceptions, 1);
  EXPECT_EQ(Qk_mem_debug[4].exceptions, 0);
}

TEST(ReadingTheEnvironment, AnnouncesInTheLogTheVariableChooses) {
  const Scene scene;
  const Ended ended = kit::run({"DEBUG LOG=STDERR", "", "OPTIONS=TERSE"}, [] { initialise(); });
  EXPECT_EQ(ended.err,
            "QK_MEM_DEBUG:  initializing options [DEBUG LOG=STDERR]\n"
            "QK_MEM_DUMP:  initializing options [OPTIONS=TERSE]\n");
  EXPECT_EQ(ended.out, "");
}

TEST(ReadingTheEnvironment, AnnouncesNothingWithoutALog) {
  const Scene scene;
  for (const char* debug : {"", "TRACE", "DEBUG LOG=NONE", "NONSENSE", "OFF"}) {
    const Ended ended = kit::run({debug, "", "OPTIONS=TERSE"}, [] { initialise(); });
    EXPECT_EQ(ended.out + ended.err + ended.log, "") << debug;
  }
  EXPECT_FALSE(std::filesystem::exists("qkmem.log"));
}

TEST(ReadingTheEnvironment, AppliesAndAnnouncesTheDumpVariable) {
  const Scene scene({"EXCEPTIONS", "", "OPTIONS=SUMMARY,MGMT"});
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(scene.log(),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n"
            "QK_MEM_DUMP:  initializing options [OPTIONS=SUMMARY,MGMT]\n");
  EXPECT_EQ(Qk_mem_dump_opts, 9U);
}

TEST(ReadingTheEnvironment, AppliesTheDumpVariableUnannounced) {
  const Scene scene({"", "", "OPTIONS=HEAPSIZE"});
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(Qk_mem_dump_opts, 2U);
}

TEST(ReadingTheEnvironment, WarnsOfInvalidOptionsWithoutFailing) {
  const Scene scene({"DEBUG EXCEPTIONS=malloc", "", "OPTIONS=ALL"});
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(scene.log(),
            "QK_MEM_DEBUG:  initializing options [DEBUG EXCEPTIONS=malloc]\n"
            "QK_MEM_DEBUG:  WARNING: invalid options [DEBUG EXCEPTIONS=malloc]\n"
            "QK_MEM_DUMP:  initializing options [OPTIONS=ALL]\n"
            "QK_MEM_DUMP:  WARNING: invalid options [OPTIONS=ALL]\n");
  EXPECT_EQ(Qk_mem_debug[7].debug, 1);
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
}

TEST(ReadingTheEnvironment, CutsTheDebugVariableTo256Characters) {
  const std::string kept = "DEBUG" + std::string(251, ' ');
  const Scene scene({kept + "NONSENSE", "", ""});
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(scene.log(), "QK_MEM_DEBUG:  initializing options [" + kept + "]\n");
  EXPECT_EQ(Qk_mem_debug[7].debug, 1);
}

TEST(ReadingTheEnvironment, MayCutAKeywordIntoAnInvalidOne) {
  const std::string kept = std::string(250, ' ') + "EXCEPT";
  const Scene scene;
  const Ended ended = kit::run({kept + "IONS", "", ""}, [] {
    initialise();
    std::printf("on %d\n", Qk_mem_debug[0].on);
  });
  EXPECT_EQ(ended.out, "on 0\n");
}

TEST(ReadingTheEnvironment, CutsTheDumpVariableTo256Characters) {
  const std::string kept = "OPTIONS=TERSE" + std::string(243, ' ');
  const Scene scene({"EXCEPTIONS", "", kept + "NONSENSE"});
  EXPECT_EQ(initialise(), 0);
  EXPECT_EQ(scene.log(),
            "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n"
            "QK_MEM_DUMP:  initializing options [" +
                kept + "]\n");
  EXPECT_EQ(Qk_mem_dump_opts, 256U);
}

TEST(ReadingTheEnvironment, TreatsEmptyVariablesAsUnset) {
  const Scene scene;
  const Ended ended = kit::run({}, [] {
    setenv("QK_MEM_DEBUG", "", 1);
    setenv("QK_MEM_DUMP", "", 1);
    initialise();
    std::printf("on %d, report %u\n", Qk_mem_debug[0].on, Qk_mem_dump_opts);
  });
  EXPECT_EQ(ended.out, "on 0, report 53\n");
}

TEST(ReadingTheEnvironment, HappensOnce) {
  const Scene scene("TRACE");
  EXPECT_EQ(initialise(), 0);
  setenv("QK_MEM_DEBUG", "DEBUG", 1);
  EXPECT_EQ(initialise(), 0);
  qk_mem_init();
  EXPECT_EQ(Qk_mem_debug[0].debug, 0);
  EXPECT_EQ(Qk_mem_log, nullptr);
}

}  // namespace

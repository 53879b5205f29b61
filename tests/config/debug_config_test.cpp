#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/scene.h"
#include "tests/kit/status.h"

namespace {

using kit::contents;
using kit::Scene;
using kit::text_of;

/** The switches of one routine, as " on debug trace". */
std::string switches_of(const qk_mem_debug& record) {
  std::string text;
  if (record.on != 0) text += " on";
  if (record.ctrlblks != 0) text += " ctrlblks";
  if (record.debug != 0) text += " debug";
  if (record.exceptions != 0) text += " exceptions";
  if (record.summary != 0) text += " summary";
  if (record.trace != 0) text += " trace";
  return text;
}

/** "all: on debug trace" if all routines have the same, else a line for each that has any. */
std::string switches() {
  const std::string first = switches_of(Qk_mem_debug[0]);
  bool same = true;
  std::string lines;
  for (const qk_mem_debug& record : Qk_mem_debug) {
    const std::string text = switches_of(record);
    same = same && text == first;
    if (!text.empty()) lines += std::string(record.routine) + ":" + text + "\n";
  }
  return same && !lines.empty() ? "all:" + first : lines;
}

/** The same if only qk_ifree differs: "qk_ifree: debug, others: on debug trace". */
std::string switches_of_free_and_others() {
  const std::string others = switches_of(Qk_mem_debug[0]);
  for (int i = 1; i < 20; ++i) {
    if (i != 7 && switches_of(Qk_mem_debug[i]) != others) return switches();
  }
  return "qk_ifree:" + switches_of(Qk_mem_debug[7]) + ", others:" + others;
}

/** Configures and returns the status as text. The call must return the status's code. */
std::string configure(const char* options) {
  qk::Status status = kit::used_status();
  const int result = qk_mem_debug_config(options, &status);
  EXPECT_EQ(result, status.code);
  return text_of(status);
}

constexpr char kSuccess[] = "0 details 0 0 numbers 0 0 subject [] arguments [] []";

TEST(DebugConfig, SetsAKeywordsSwitchesForEveryRoutine) {
  const Scene scene;
  const struct {
    const char* options;
    const char* switches;
  } cases[] = {
      {"CTRLBLKS", "all: on ctrlblks summary trace"},
      {"DEBUG", "all: on debug trace"},
      {"EXCEPTIONS", "all: on exceptions trace"},
      {"SUMMARY", "all: on summary trace"},
      {"TRACE", "all: on trace"},
      {"trace,Summary\tdebug", "all: on debug summary trace"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(configure(c.options), kSuccess) << c.options;
    EXPECT_EQ(switches(), c.switches) << c.options;
  }
}

TEST(DebugConfig, KnowsTwentyRoutinesInAFixedOrder) {
  const Scene scene;
  configure("DEBUG");
  std::string names;
  for (const qk_mem_debug& record : Qk_mem_debug) names += std::string(record.routine) + "\n";
  EXPECT_EQ(names,
            "global\nqk_mem_inew_handle\nqk_mem_idel_handle\nqk_mem_iclear_handle\nqk_imalloc\n"
            "qk_icalloc\nqk_irealloc\nqk_ifree\nqk_istrdup\nqk_iregister\nqk_ideregister\n"
            "qk_imarralloc\nqk_iarrfree\nqk_mem_new_block\nqk_mem_block_mgmt\nqk_mem_ptr_mgmt\n"
            "qk_mem_info\nqk_mem_baseline\nqk_heapsize\nqk_mallinfo\n");
}

TEST(DebugConfig, SetsTheRoutinesOfAListAndTheGlobalRecord) {
  const Scene scene;
  for (const char* options :
       {"DEBUG=qk_ifree,QK_IMALLOC", "DEBUG='qk_ifree qk_imalloc'",
        "DEBUG=\", qk_imalloc ,, qk_ifree,\"", "debug=Qk_iMalloc,qk_ifree,qk_ifree"}) {
    EXPECT_EQ(configure(options), kSuccess) << options;
    EXPECT_EQ(switches(),
              "global: on debug trace\n"
              "qk_imalloc: on debug trace\n"
              "qk_ifree: on debug trace\n")
        << options;
  }
}

TEST(DebugConfig, TakesASeparateListForEachKeyword) {
  const Scene scene;
  configure("EXCEPTIONS=qk_ifree SUMMARY=global DEBUG=qk_imalloc,qk_ifree CTRLBLKS=qk_istrdup");
  EXPECT_EQ(switches(),
            "global: on ctrlblks debug exceptions summary trace\n"
            "qk_imalloc: on debug trace\n"
            "qk_ifree: on debug exceptions trace\n"
            "qk_istrdup: on ctrlblks summary trace\n");
}

TEST(DebugConfig, AcceptsTheNameOfEveryRoutine) {
  const Scene scene;
  configure("DEBUG");
  for (int i = 1; i < 20; ++i) {
    const std::string name = Qk_mem_debug[i].routine;
    EXPECT_EQ(configure(("EXCEPTIONS=" + name).c_str()), kSuccess);
    EXPECT_EQ(switches(), "global: on exceptions trace\n" + name + ": on exceptions trace\n");
  }
}

TEST(DebugConfig, TakesAListAfterNotAsExclusions) {
  const Scene scene;
  for (const char* options : {"DEBUG=not,qk_ifree", "DEBUG='not qk_ifree'", "DEBUG=NOT,QK_IFREE",
                              "DEBUG=' , Not,qk_ifree'"}) {
    EXPECT_EQ(configure(options), kSuccess) << options;
    EXPECT_EQ(switches_of_free_and_others(), "qk_ifree:, others: on debug trace") << options;
  }
}

TEST(DebugConfig, ExcludesNothingByNotAlone) {
  const Scene scene;
  EXPECT_EQ(configure("CTRLBLKS=not"), kSuccess);
  EXPECT_EQ(switches(), "all: on ctrlblks summary trace");
}

TEST(DebugConfig, CanExcludeTheGlobalRecord) {
  const Scene scene;
  configure("EXCEPTIONS=not,global");
  EXPECT_EQ(switches_of(Qk_mem_debug[0]), "");
  for (int i = 1; i < 20; ++i) EXPECT_EQ(switches_of(Qk_mem_debug[i]), " on exceptions trace");
}

// An exclusion clears `on` and `trace` although another keyword set them.
TEST(DebugConfig, ClearsOnAndTraceOfEarlierKeywordsByExclusion) {
  const Scene scene;
  const struct {
    const char* options;
    const char* switches;
  } cases[] = {
      {"DEBUG TRACE=not,qk_ifree", "qk_ifree: debug, others: on debug trace"},
      {"TRACE=not,qk_ifree DEBUG", "qk_ifree: debug, others: on debug trace"},
      {"DEBUG EXCEPTIONS=not,qk_ifree", "qk_ifree: debug, others: on debug exceptions trace"},
      {"CTRLBLKS SUMMARY=not,qk_ifree", "qk_ifree: ctrlblks, others: on ctrlblks summary trace"},
      {"SUMMARY CTRLBLKS=not,qk_ifree",
       "qk_ifree: on summary trace, others: on ctrlblks summary trace"},
      {"DEBUG CTRLBLKS=not,qk_ifree",
       "qk_ifree: on debug trace, others: on ctrlblks debug summary trace"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(configure(c.options), kSuccess) << c.options;
    EXPECT_EQ(switches_of_free_and_others(), c.switches) << c.options;
  }
}

TEST(DebugConfig, UsesTheLastOfARepeatedKeyword) {
  const Scene scene;
  configure("DEBUG=qk_ifree DEBUG=qk_imalloc");
  EXPECT_EQ(switches(), "global: on debug trace\nqk_imalloc: on debug trace\n");
}

TEST(DebugConfig, ReplacesThePreviousConfiguration) {
  const Scene scene;
  configure("DEBUG CTRLBLKS SUMMARY");
  configure("EXCEPTIONS=qk_ifree");
  EXPECT_EQ(switches(), "global: on exceptions trace\nqk_ifree: on exceptions trace\n");
}

TEST(DebugConfig, ClearsAllSwitchesIfNoneIsGiven) {
  const Scene scene;
  for (const char* options : {"LOG=other.log", "APPEND", "FLUSH", "OFF", "off,append"}) {
    configure("DEBUG");
    EXPECT_EQ(configure(options), kSuccess) << options;
    EXPECT_EQ(switches(), "") << options;
  }
}

TEST(DebugConfig, ChangesNothingWithoutAKeyword) {
  const Scene scene;
  configure("DEBUG");
  for (const char* options : {"", " ", ", \t,"}) {
    EXPECT_EQ(configure(options), kSuccess) << options;
    EXPECT_EQ(switches(), "all: on debug trace") << options;
  }
}

TEST(DebugConfig, RefusesOffWithAnotherSwitchAndTurnsAllOff) {
  const Scene scene;
  for (const char* options : {"OFF CTRLBLKS", "DEBUG OFF", "OFF,EXCEPTIONS=qk_ifree",
                              "SUMMARY=not OFF", "OFF TRACE LOG=other.log"}) {
    configure("DEBUG");
    EXPECT_EQ(configure(options),
              "11104 details 0 0 numbers 0 0 subject [] arguments [OFF] [any activating option] "
              "at qkmem.cpp(qk_mem_debug_config):# on this host")
        << options;
    EXPECT_EQ(switches(), "") << options;
  }
}

TEST(DebugConfig, AcceptsAStringOf256Characters) {
  const Scene scene;
  EXPECT_EQ(configure(("DEBUG" + std::string(251, ' ')).c_str()), kSuccess);
  EXPECT_EQ(switches(), "all: on debug trace");
}

TEST(DebugConfig, RefusesAStringOf257CharactersWithoutAChange) {
  const Scene scene;
  configure("TRACE");
  EXPECT_EQ(configure(("DEBUG" + std::string(252, ' ')).c_str()),
            "10037 details 0 0 numbers 257 256 subject [] arguments [options] [] "
            "at qkmem.cpp(qk_mem_debug_config):# on this host");
  EXPECT_EQ(switches(), "all: on trace");
}

TEST(DebugConfig, NamesAnInvalidWordAndChangesNothing) {
  const Scene scene;
  const struct {
    const char* options;
    const char* code;
    const char* word;
  } cases[] = {
      {"DEBUG NOISE", "10041", "NOISE"},
      {"CTRLBLK", "10041", "CTRLBLK"},
      {"DEBU", "10041", "DEBU"},
      {"EXCEPTION", "10041", "EXCEPTION"},
      {"SUMMAR", "10041", "SUMMAR"},
      {"TRAC", "10041", "TRAC"},
      {"OF", "10041", "OF"},
      {"LO=a.log", "10041", "LO"},
      {"APPEN", "10041", "APPEN"},
      {"FLUS", "10041", "FLUS"},
      {"OFF=1", "10042", "OFF"},
      {"APPEND=a.log", "10042", "APPEND"},
      {"FLUSH=1", "10042", "FLUSH"},
      {"DEBUG LOG", "10043", "LOG"},
      {"LOG= DEBUG", "10043", "LOG"},
      {"DEBUG='qk_ifree", "10044", "DEBUG"},
  };
  configure("EXCEPTIONS");
  for (const auto& c : cases) {
    EXPECT_EQ(configure(c.options), std::string(c.code) +
                                        " details 0 0 numbers 0 0 subject [] arguments [" + c.word +
                                        "] [] at qkmem.cpp(qk_mem_debug_config):# on this host");
    EXPECT_EQ(switches(), "all: on exceptions trace") << c.options;
  }
}

TEST(DebugConfig, StopsAtAnUnknownRoutineAndNamesIt) {
  const Scene scene;
  EXPECT_EQ(configure("EXCEPTIONS=qk_mem_info DEBUG=qk_ifree,Malloc,qk_imalloc SUMMARY"),
            "10040 details 0 0 numbers 0 0 subject [malloc] arguments [] [] "
            "at qkmem.cpp(qk_mem_debug_config):# on this host");
  EXPECT_EQ(switches(),
            "global: on debug trace\n"
            "qk_ifree: on debug trace\n");
  EXPECT_EQ(configure("SUMMARY=not,qk_ifre"),
            "10040 details 0 0 numbers 0 0 subject [qk_ifre] arguments [] [] "
            "at qkmem.cpp(qk_mem_debug_config):# on this host");
  EXPECT_EQ(switches(), "all: on summary trace");
}

TEST(DebugConfig, StopsAtANotAfterARoutinesName) {
  const Scene scene;
  EXPECT_EQ(configure("DEBUG=qk_ifree,NOT,qk_imalloc"),
            "10048 details 0 0 numbers 0 0 subject [not] arguments [] [] "
            "at qkmem.cpp(qk_mem_debug_config):# on this host");
  EXPECT_EQ(switches(), "global: on debug trace\nqk_ifree: on debug trace\n");
  EXPECT_EQ(configure("DEBUG=not,qk_ifree,not"),
            "10048 details 0 0 numbers 0 0 subject [not] arguments [] [] "
            "at qkmem.cpp(qk_mem_debug_config):# on this host");
  EXPECT_EQ(switches_of_free_and_others(), "qk_ifree:, others: on debug trace");
}

TEST(DebugConfig, DoesNothingWithoutAStatus) {
  const Scene scene;
  EXPECT_EQ(qk_mem_debug_config("DEBUG", nullptr), 10047);
  EXPECT_EQ(switches(), "");
  EXPECT_EQ(Qk_mem_debug_initialized, 0);
}

TEST(DebugConfig, ReadsTheEnvironmentFirstAndThenReplacesIt) {
  const Scene scene("DEBUG LOG=environment.log");
  configure("EXCEPTIONS=qk_ifree");
  EXPECT_EQ(switches(), "global: on exceptions trace\nqk_ifree: on exceptions trace\n");
  EXPECT_EQ(scene.log(), "QK_MEM_DEBUG:  initializing options [DEBUG LOG=environment.log]\n");
  EXPECT_EQ(contents("qkmem.log"), "");
}

TEST(DebugConfig, AppliesToTheStartUpWithoutCausingIt) {
  const Scene scene;
  configure("TRACE");
  EXPECT_EQ(Qk_mem_initialized, 0);
  EXPECT_EQ(Qk_mem_handles, nullptr);
  qk_mem_init();
  EXPECT_EQ(switches(), "all: on trace");
  EXPECT_EQ(kit::handle_of(QK_MEM_DATA_HANDLE).track, 1);
}

}  // namespace

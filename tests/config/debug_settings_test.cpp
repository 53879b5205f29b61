#include <gtest/gtest.h>

#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/scene.h"
#include "tests/kit/status.h"

namespace {

using kit::Scene;

std::string settings() {
  char text[QK_MEM_SETTINGS_SIZE] = "old";
  qk::Status status = kit::used_status();
  EXPECT_EQ(qk_mem_debug_settings(text, &status), 0);
  EXPECT_EQ(kit::text_of(status), "0 details 0 0 numbers 0 0 subject [] arguments [] []");
  return text;
}

void configure(const std::string& options) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(options.c_str(), &status), 0) << options;
}

struct Case {
  const char* options;
  const char* settings;
};

TEST(DebugSettings, AreEmptyWithoutAConfiguration) {
  const Scene scene;
  EXPECT_EQ(settings(), "");
}

TEST(DebugSettings, NameEachSwitchThatIsSetForAllRoutines) {
  const Scene scene;
  const Case cases[] = {
      {"CTRLBLKS LOG=NONE", "CTRLBLKS SUMMARY TRACE "},
      {"DEBUG", "DEBUG TRACE  LOG=qkmem.log"},
      {"EXCEPTIONS LOG=STDERR", "EXCEPTIONS TRACE  LOG=stderr"},
      {"SUMMARY LOG=STDOUT", "SUMMARY TRACE  LOG=stdout"},
      {"TRACE SUMMARY EXCEPTIONS DEBUG CTRLBLKS LOG=NONE",
       "CTRLBLKS DEBUG EXCEPTIONS SUMMARY TRACE "},
  };
  for (const Case& c : cases) {
    configure(c.options);
    EXPECT_EQ(settings(), c.settings) << c.options;
  }
}

TEST(DebugSettings, NameTheRoutinesOfAShortList) {
  const Scene scene;
  const Case cases[] = {
      {"DEBUG=qk_ifree,qk_imalloc LOG=NONE",
       "DEBUG='qk_imalloc,qk_ifree' TRACE='qk_imalloc,qk_ifree' "},
      {"CTRLBLKS=qk_mallinfo EXCEPTIONS=qk_mem_inew_handle LOG=NONE",
       "CTRLBLKS='qk_mallinfo' EXCEPTIONS='qk_mem_inew_handle' SUMMARY='qk_mallinfo' "
       "TRACE='qk_mem_inew_handle,qk_mallinfo' "},
  };
  for (const Case& c : cases) {
    configure(c.options);
    EXPECT_EQ(settings(), c.settings) << c.options;
  }
}

TEST(DebugSettings, NameTheExclusionsOfALongList) {
  const Scene scene;
  configure("DEBUG=not,qk_ifree");
  EXPECT_EQ(settings(), "DEBUG='not qk_ifree' TRACE='not qk_ifree'  LOG=qkmem.log");
}

TEST(DebugSettings, NameExclusionsIfTenOrMoreRoutinesAreSet) {
  const Scene scene;
  const std::string nine =
      "qk_mem_inew_handle,qk_mem_idel_handle,qk_mem_iclear_handle,qk_imalloc,qk_icalloc,"
      "qk_irealloc,qk_ifree,qk_istrdup,qk_iregister";
  configure("TRACE=" + nine);
  EXPECT_EQ(settings(), "TRACE='" + nine + "' ");
  configure("TRACE=" + nine + ",qk_ideregister");
  EXPECT_EQ(settings(),
            "TRACE='not qk_imarralloc,qk_iarrfree,qk_mem_new_block,qk_mem_block_mgmt,"
            "qk_mem_ptr_mgmt,qk_mem_info,qk_mem_baseline,qk_heapsize,qk_mallinfo' ");
}

TEST(DebugSettings, IgnoreTheGlobalRecord) {
  const Scene scene;
  configure("DEBUG=global LOG=NONE");
  EXPECT_EQ(settings(), "");
  configure("DEBUG=not,global LOG=NONE");
  EXPECT_EQ(settings(), "DEBUG TRACE ");
}

TEST(DebugSettings, ShowASwitchThatAnExclusionKept) {
  const Scene scene;
  configure("DEBUG TRACE=not,qk_ifree LOG=NONE");
  EXPECT_EQ(settings(), "DEBUG TRACE='not qk_ifree' ");
}

TEST(DebugSettings, NameTheLog) {
  const Scene scene;
  const Case cases[] = {
      {"DEBUG LOG=events.txt", "DEBUG TRACE  LOG=events.txt"},
      {"DEBUG", "DEBUG TRACE  LOG=events.txt"},
      {"DEBUG LOG=stderr", "DEBUG TRACE  LOG=stderr"},
      {"TRACE", "TRACE  LOG=stderr"},
      {"DEBUG LOG=StdOut APPEND FLUSH", "DEBUG TRACE  LOG=stdout"},
      {"OFF", " LOG=stdout"},
      {"DEBUG LOG=none", "DEBUG TRACE "},
      {"DEBUG APPEND FLUSH", "DEBUG TRACE  LOG=qkmem.log"},
      {"OFF", ""},
      {"DEBUG", "DEBUG TRACE "},
  };
  for (const Case& c : cases) {
    configure(c.options);
    EXPECT_EQ(settings(), c.settings) << c.options;
  }
}

TEST(DebugSettings, ReproduceTheirConfiguration) {
  const Scene scene;
  configure("DEBUG='not qk_ifree' EXCEPTIONS=qk_imalloc,qk_ifree SUMMARY LOG=events.txt");
  const std::string before = settings();
  EXPECT_EQ(before,
            "DEBUG='not qk_ifree' EXCEPTIONS='qk_imalloc,qk_ifree' SUMMARY TRACE "
            " LOG=events.txt");
  configure("OFF");
  configure(before);
  EXPECT_EQ(settings(), before);
}

TEST(DebugSettings, FitTheBufferAtTheirLongest) {
  const Scene scene;
  const std::string log(240, 'x');
  configure("DEBUG LOG=" + log);
  for (int i = 1; i < 20; ++i) {
    qk_mem_debug& record = Qk_mem_debug[i];
    const int even = i % 2 == 0 ? 1 : 0;
    record.ctrlblks = record.debug = record.exceptions = record.summary = record.trace = even;
  }
  const std::string list =
      "='qk_mem_idel_handle,qk_imalloc,qk_irealloc,qk_istrdup,qk_ideregister,qk_iarrfree,"
      "qk_mem_block_mgmt,qk_mem_info,qk_heapsize' ";
  EXPECT_EQ(settings(), "CTRLBLKS" + list + "DEBUG" + list + "EXCEPTIONS" + list + "SUMMARY" +
                            list + "TRACE" + list + " LOG=" + log);
}

TEST(DebugSettings, ReadTheEnvironmentWithoutStartingTheLibrary) {
  const Scene scene("EXCEPTIONS=qk_ifree");
  EXPECT_EQ(settings(), "EXCEPTIONS='qk_ifree' TRACE='qk_ifree'  LOG=qkmem.log");
  EXPECT_EQ(scene.log(), "QK_MEM_DEBUG:  initializing options [EXCEPTIONS=qk_ifree]\n");
  EXPECT_EQ(Qk_mem_initialized, 0);
}

TEST(DebugSettings, NeedAStatus) {
  const Scene scene;
  char text[QK_MEM_SETTINGS_SIZE];
  EXPECT_EQ(qk_mem_debug_settings(text, nullptr), 10047);
}

TEST(DebugOn, ReturnsWhetherTheGlobalRecordIsOn) {
  const Scene scene;
  EXPECT_EQ(qk_mem_debug_on(), 0);
  const struct {
    const char* options;
    int on;
  } cases[] = {{"TRACE", 1},
               {"OFF", 0},
               {"DEBUG=qk_ifree", 1},
               {"DEBUG=not,global", 0},
               {"EXCEPTIONS=not,qk_ifree", 1}};
  for (const auto& c : cases) {
    configure(c.options);
    EXPECT_EQ(qk_mem_debug_on(), c.on) << c.options;
  }
}

TEST(DebugOn, StartsTheLibraryUp) {
  const Scene scene("TRACE");
  EXPECT_EQ(qk_mem_debug_on(), 1);
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

}  // namespace

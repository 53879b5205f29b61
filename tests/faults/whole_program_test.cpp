#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/failing_runs.h"
#include "tests/kit/live_memory.h"
#include "tests/kit/program.h"
#include "tests/kit/scene.h"

namespace {

using kit::Program;
using kit::require;
using kit::Scene;

/** The thread sanitizer starts a thread in every process. */
#ifdef __SANITIZE_THREAD__
constexpr bool kHasThreads = true;
#else
constexpr bool kHasThreads = false;
#endif

// ---- The start and the end

void start_and_use() {
  qk_mem_init();
  require(kit::has_handle(1) && kit::has_handle(2) ? true : qk_mem_error() == 5012,
          "the start-up failed without a code");
  Program program;
  program.malloc(QK_MEM_DATA_HANDLE, 100);
  program.strdup(QK_MEM_DATA_HANDLE, "text");
  const int hid = program.create_handle("MULTITHREADED", "AB");
  program.malloc(hid, 10);
  program.expect_nothing_lost();
}

TEST(StartUpUnderFailures, LetsTheProgramRunToItsEnd) {
  const Scene scene;
  kit::expect_no_harm(8, start_and_use);
}

TEST(StartUpUnderFailures, DoesNoHarmWithAReportAfterEachEvent) {
  const Scene scene;
  kit::expect_no_harm({"SUMMARY CTRLBLKS LOG=STDOUT", "", "OPTIONS=HANDLES,MGMT"}, 8,
                      start_and_use);
}

TEST(StartUpUnderFailures, DoesNoHarmWithLogAndTraceFile) {
  const Scene scene;
  kit::expect_no_harm({"DEBUG SUMMARY LOG=all.log APPEND FLUSH", "DB=rows.tdf FLUSH",
                       "OPTIONS=COMPARISON,GROWTH,TERSE"},
                      8, start_and_use);
}

// ---- Autofree handles at the end

constexpr int kPieces = 24;
void* left[kPieces];
bool recorded[kPieces];

void expect_recorded_memory_freed() {
  for (int i = 0; i < kPieces; ++i) {
    if (left[i] == nullptr) continue;
    require(kit::is_live(left[i]) != recorded[i],
            "recorded autofree memory is left, or other memory was freed");
  }
}

void leave_memory_on_autofree_handles() {
  Program program;
  const int plain = program.create_handle("AUTOFREE");
  const int shared = program.create_handle("AUTOFREE MULTITHREADED OVERHEAD");
  for (int i = 0; i < kPieces; ++i) {
    const int hid = i % 2 == 0 ? plain : shared;
    left[i] = qk_mem_imalloc(hid, 50, 16, "src/app.c", 20);
    // If the start-up failed, one of them has the data handle's number and isn't deleted.
    recorded[i] =
        hid != QK_MEM_DATA_HANDLE && qk_mem_is_recorded(hid, left[i], "src/app.c", 21) != 0;
  }
  // Memory that other threads may be using isn't freed at the end.
  if (!kHasThreads) kit::check_at_end(expect_recorded_memory_freed);
}

TEST(AutofreeHandlesUnderFailures, FreeAtTheEndWhatTheyRecorded) {
  const Scene scene;
  kit::expect_no_harm(20, leave_memory_on_autofree_handles);
}

// ---- The table of handles

void make_handles() {
  for (int i = 3; i <= 510; ++i) qk_mem_inew_handle("", "", "src/app.c", 1);
}

void outgrow_table() {
  Program program;
  program.malloc(7, 100);
  for (int i = 0; i < 5; ++i)
    program.malloc(program.create_handle(i % 2 == 0 ? "" : "MULTITHREADED"), 8);
  program.malloc(8, 100);
  program.delete_handle(7);
  // Tables that other threads may be reading aren't freed.
  if (!kHasThreads) program.expect_nothing_lost();
}

TEST(HandleTableUnderFailures, KeepsItsHandles) {
  const Scene scene;
  kit::expect_no_harm(10, outgrow_table, make_handles);
}

void* do_nothing(void* /*argument*/) { return nullptr; }

void start_thread_and_make_handles() {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, do_nothing, nullptr) == 0) pthread_join(thread, nullptr);
  make_handles();
}

TEST(HandleTableUnderFailures, KeepsItsHandlesInThreadedPrograms) {
  const Scene scene;
  kit::expect_no_harm(
      11,
      [] {
        Program program;
        program.malloc(7, 100);
        for (int i = 0; i < 5; ++i) program.malloc(program.create_handle(""), 8);
        program.delete_handle(7);
        program.check();
      },
      start_thread_and_make_handles);
}

// ---- Tags, refused handles

void use_up_tags() {
  Program program;
  char tag[] = "A!";
  for (int i = 0; i < 33; ++i, ++tag[1]) {
    const int hid = qk_mem_inew_handle("MULTITHREADED BLOCKMGMT", tag, "src/app.c", 1);
    if (hid == 0) {
      require(i >= 32 || kit::has_failed(), "a tag is refused too early");
      continue;
    }
    program.malloc(hid, 100);
    program.delete_handle(hid);
    require(hid == 2 || qk_mem_tag_size(tag) == 0, "a tag holds more than its handles");
  }
  for (const char* options : {"BAD", "BLOCKSIZE=", "BLOCKSIZE=-1 BLOCKMGMT", "DATA OVERHEAD X"}) {
    require(qk_mem_inew_handle(options, "AA", "src/app.c", 1) == 0, "bad options are taken");
  }
  require(qk_mem_inew_handle("", "ABC", "src/app.c", 1) == 0, "a long tag is taken");
  program.expect_nothing_lost();
}

TEST(TagsUnderFailures, LoseNothing) {
  const Scene scene;
  for (const kit::Failing failing : {kit::Failing::kOne, kit::Failing::kAllFrom}) {
    const kit::FailingRuns runs =
        kit::run_with_failures({"EXCEPTIONS", "", ""}, failing, use_up_tags);
    EXPECT_EQ(runs.error, "");
    EXPECT_GE(runs.failures, 100);
  }
}

// ---- Reports, baselines, queries

constexpr const char* kQueries[] = {
    "INITIAL_HEAP",
    "BASELINE_HEAP",
    "CURRENT_HEAP",
    "UNTRACKED",
    "HEAP_CHG_SINCE_BASELINE",
    "HEAP_PCT_SINCE_INITIAL",
    "CURRENT_ALLOC",
    "CURRENT_PTRS",
    "BASELINE_ALLOC",
    "CHG_SINCE_BASELINE",
    "PCT_SINCE_BASELINE",
};

void report_everything() {
  FILE* out = std::fopen("/dev/null", "w");
  for (const char* filter : {"", "TYPE=DATA", "TAG=AB AND NEW_PTRS=TRUE", "NEW_HANDLE=TRUE"}) {
    for (unsigned options = 0; options <= 0x1ff; options += 37) qk_mem_dump(out, filter, options);
    for (const char* query : kQueries) {
      long answer = 0;
      (void)qk_mem_info(query, filter, &answer);
    }
    (void)qk_mem_baseline(filter);
  }
  std::fclose(out);
}

void use_and_report() {
  Program program;
  const int hid = program.create_handle("", "AB");
  const int blocks = program.create_handle("BLOCKMGMT BLOCKFREE MULTITHREADED", "CD");
  program.malloc(hid, 10);
  program.malloc(blocks, 10);
  report_everything();
  program.malloc(hid, 20);
  program.malloc(blocks, 5000);
  program.malloc(QK_MEM_DATA_HANDLE, 30);
  report_everything();
  program.delete_handle(hid);
  report_everything();
  program.expect_nothing_lost();
}

TEST(ReportsUnderFailures, LoseNothing) {
  const Scene scene;
  kit::expect_no_harm(10, use_and_report);
}

TEST(ReportsUnderFailures, LoseNothingAfterEachEvent) {
  const Scene scene;
  kit::expect_no_harm({"DEBUG CTRLBLKS", "DB", "OPTIONS=SUMMARY,MGMT,POINTERS,GROWTH"}, 10,
                      use_and_report);
}

// ---- Configuration by call

void configure_in_every_way() {
  Program program;
  qk::Status status;
  for (const char* debug :
       {"EXCEPTIONS", "DEBUG LOG=a.log", "DEBUG='not qk_ifree' LOG=a.log APPEND FLUSH", "BAD",
        "DEBUG LOG=/no/such/folder/a.log", "LOG=STDERR SUMMARY", "OFF", "OFF DEBUG",
        "EXCEPTIONS LOG=qkmem.log APPEND"}) {
    (void)qk_mem_debug_config(debug, &status);
    program.malloc(QK_MEM_DATA_HANDLE, 16);
    const int hid = program.create_handle("");
    program.malloc(hid, 16);
    QK_CLEAR_STATUS(&status);
    (void)qk_mem_options("HEAPSIZE DB=a.tdf FLUSH", &status);
    (void)qk_mem_dump_config("OPTIONS=HANDLES,POINTERS", &status);
    char text[QK_MEM_SETTINGS_SIZE];
    (void)qk_mem_debug_settings(text, &status);
    program.delete_handle(hid);
  }
  program.expect_nothing_lost();
}

TEST(ConfigurationUnderFailures, CanChangeWhileMemoryIsInUse) {
  const Scene scene;
  for (const kit::Failing failing : {kit::Failing::kOne, kit::Failing::kAllFrom}) {
    const kit::FailingRuns runs =
        kit::run_with_failures({"", "", ""}, failing, configure_in_every_way);
    EXPECT_EQ(runs.error, "");
    EXPECT_GE(runs.failures, 30);
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "core/switches.h"
#include "table/pointer_table.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::handle_of;
using kit::overhead_of;
using kit::Pool;
using kit::Scene;

const std::string kHandleSize = std::to_string(sizeof(qk_mem_handle));
const std::string kMutexSize = std::to_string(sizeof(qk::Mtx));

int create(const char* options, const char* tag = "") {
  return qk_mem_inew_handle(options, tag, "src/app.c", 5);
}

/** Starts the library, and skips what log and trace file hold by then. */
void start(Scene& scene) {
  qk_mem_init();
  scene.skip_log();
  scene.skip_trace();
}

TEST(NewHandle, GetsTheLowestFreeNumber) {
  Scene scene("");
  for (int hid = 3; hid <= 6; ++hid) EXPECT_EQ(create(""), hid);
  qk_mem_idel_handle(5, "src/app.c", 6);
  EXPECT_EQ(create(""), 5);
  EXPECT_EQ(create(""), 7);
  qk_mem_idel_handle(6, "src/app.c", 6);
  qk_mem_idel_handle(3, "src/app.c", 6);
  EXPECT_EQ(create(""), 3);
  EXPECT_EQ(create(""), 6);
  EXPECT_EQ(create(""), 8);
}

TEST(NewHandle, RaisesTheNumberOfHandles) {
  Scene scene("");
  qk_mem_init();
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(Qk_mem_avail_handles, 512);
  Pool pool;
  EXPECT_EQ(Qk_mem_num_handles, 3);
}

TEST(NewHandle, IsAPlainDataHandleWithoutOptions) {
  Scene scene("");
  qk_mem_init();
  for (const char* options : {"", " ", static_cast<const char*>(nullptr)}) {
    Qk_mem_seq = 41;
    const int hid = qk_mem_inew_handle(options, nullptr, "src/app.c", 70000);
    const qk_mem_handle& handle = handle_of(hid);
    EXPECT_EQ(handle.id, hid);
    EXPECT_EQ(handle.seq, 42U);
    EXPECT_EQ(handle.type, 'D');
    EXPECT_EQ(handle.autofree, '\0');
    EXPECT_EQ(handle.blockmgmt, '\0');
    EXPECT_EQ(handle.blocksize, 2048U);
    EXPECT_EQ(handle.blockfree, 0);
    EXPECT_EQ(handle.blocks, nullptr);
    EXPECT_EQ(handle.track, 1);
    EXPECT_EQ(handle.track_blocks, 0);
    EXPECT_EQ(handle.registered, 0);
    EXPECT_EQ(handle.baselined, 0);
    EXPECT_EQ(handle.tag, &Qk_mem_global_tag);
    EXPECT_EQ(handle.mtx, nullptr);
    EXPECT_STREQ(handle.file, "app.c");
    EXPECT_EQ(handle.line, 70000);
    EXPECT_EQ(kit::data_of(hid), "0 for 0");
  }
}

TEST(NewHandle, AppliesItsOptions) {
  Scene scene("");
  struct {
    const char* options;
    const char* result;
  } const rows[] = {
      {"DATA", "D"},
      {"OVERHEAD", "O"},
      {"OVERHEAD DATA", "O"},
      {"DATA OVERHEAD", "O"},
      {"AUTOFREE", "D autofree"},
      {"MULTITHREADED", "D multithreaded"},
      {"BLOCKFREE", "D blockfree"},
      {"BLOCKSIZE=4096", "D blocksize=4096"},
      {"BLOCKSIZE=12k", "D blocksize=12"},
      {"BLOCKINITIAL=3", "D"},
      {"overhead autofree multithreaded", "O autofree multithreaded"},
      {"Data,Autofree", "D autofree"},
      {"O A", "O autofree"},
      {"D MULTITHREAD", "D multithreaded"},
      {"OVER AUTO", "O autofree"},
      {"BLOCKINIT=2", "D"},
      {"AUTOFREE AUTOFREE", "D autofree"},
  };
  for (const auto& row : rows) {
    const qk_mem_handle& handle = handle_of(create(row.options));
    std::string result(1, handle.type);
    if (handle.autofree == 'a') result += " autofree";
    if (handle.mtx != nullptr) result += " multithreaded";
    if (handle.blockfree == 1) result += " blockfree";
    if (handle.blocksize != 2048) result += " blocksize=" + std::to_string(handle.blocksize);
    EXPECT_EQ(result, row.result) << row.options;
    EXPECT_EQ(handle.blockmgmt, '\0');
  }
}

TEST(NewHandle, AcceptsOptionsOf256Characters) {
  Scene scene("");
  const std::string options = std::string(248, ' ') + "OVERHEAD";
  EXPECT_EQ(handle_of(create(options.c_str())).type, 'O');
}

TEST(NewHandle, RecordsItsOwnMemoryOnItself) {
  Scene scene("");
  Pool pool;
  EXPECT_EQ(overhead_of(pool), "2 for " + std::to_string(768 + sizeof(qk_mem_handle)));
  const qk_mem_ptr* record = qk_mem_get_ptr(&pool.record(), &pool.record());
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, 'H');
  EXPECT_EQ(record->count, 1U);
  EXPECT_EQ(record->size, sizeof(qk_mem_handle));
  EXPECT_STREQ(record->file, "pool.c");
  EXPECT_EQ(record->line, 7);
}

TEST(NewHandle, RecordsItsMutexOnItself) {
  Scene scene("");
  Pool pool("MULTITHREADED");
  const qk_mem_ptr* record = qk_mem_get_ptr(&pool.record(), pool.record().mtx);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, 'H');
  EXPECT_EQ(record->size, sizeof(qk::Mtx));
  EXPECT_FALSE(pool.record().mtx->held());
}

/**
 * The track and track_blocks flags of handles 1, 2 and an ordinary one, created under a
 * configuration.
 */
std::string tracking_under(const char* debug) {
  return kit::run({debug, "", ""},
                  [] {
                    Pool pool;
                    for (const int hid : {1, 2, int{pool}}) {
                      const qk_mem_handle& handle = handle_of(hid);
                      std::printf("%d%d ", handle.track, handle.track_blocks);
                    }
                    std::fflush(stdout);
                    std::_Exit(0);
                  })
      .out;
}

TEST(NewHandle, RecordsAccordingToTheGlobalSwitches) {
  Scene scene("");
  EXPECT_EQ(tracking_under(""), "10 00 10 ") << "the data handle records nothing by itself";
  EXPECT_EQ(tracking_under("TRACE"), "10 10 10 ");
  EXPECT_EQ(tracking_under("EXCEPTIONS"), "10 10 10 ");
  EXPECT_EQ(tracking_under("SUMMARY=qk_ifree LOG=NONE"), "10 10 10 ");
  EXPECT_EQ(tracking_under("DEBUG LOG=NONE"), "11 11 11 ");
  EXPECT_EQ(tracking_under("DEBUG=qk_ifree LOG=NONE"), "11 11 11 ");
  EXPECT_EQ(tracking_under("DEBUG=not,global LOG=NONE"), "10 00 10 ");
}

TEST(NewHandle, IsTracedUnderDebug) {
  Scene scene(Environment{"DEBUG", "HEAPSIZE DB", ""});
  start(scene);
  create("", "AB");
  create("DATA AUTOFREE");
  create("OVERHEAD AUTOFREE");
  qk_mem_inew_handle("OVERHEAD", "", "src/app.c", 70000);
  EXPECT_EQ(scene.log("qk_mem_inew_handle"),
            "   qk_mem_inew_handle:    3 N D  app.c:5 (heap change)\n"
            "   qk_mem_inew_handle:    4 N D A  app.c:5 (heap change)\n"
            "   qk_mem_inew_handle:    5 N O A  app.c:5 (heap change)\n"
            "   qk_mem_inew_handle:    6 N O  app.c:70000 (heap change)\n");
  EXPECT_EQ(scene.trace("N"),
            "3 N [p0] 0 0 app.c 5 0\n"
            "4 N [p0] 0 0 app.c 5 0\n"
            "5 N [p0] 0 0 app.c 5 0\n"
            "6 N [p0] 0 0 app.c 70000 0\n");
}

TEST(NewHandle, TracesItselfThenItsMemory) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  start(scene);
  create("");
  EXPECT_EQ(scene.log(),
            "   qk_mem_inew_handle:    3 N D  app.c:5\n"
            "   qk_mem_new_ptr:        3 [p1] P 16/48 app.c:5\n"
            "   qk_mem_handle_memory:        3 [p2] H " +
                kHandleSize + " app.c:5\n");
  EXPECT_EQ(scene.trace(),
            "3 N [p0] 0 0 app.c 5 0\n"
            "3 P [p1] 16 48 app.c 5 768\n"
            "3 H [p2] 1 " +
                kHandleSize + " app.c 5 " + kHandleSize + "\n");
}

TEST(NewHandle, TracesItsMutexAfterItsRecord) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  start(scene);
  create("MULTITHREADED");
  EXPECT_EQ(scene.log("qk_mem_handle_memory"), "   qk_mem_handle_memory:        3 [p1] H " +
                                                   kHandleSize +
                                                   " app.c:5\n"
                                                   "   qk_mem_handle_memory:        3 [p2] H " +
                                                   kMutexSize + " app.c:5\n");
  EXPECT_EQ(scene.trace("H"), "3 H [p1] 1 " + kHandleSize + " app.c 5 " + kHandleSize +
                                  "\n"
                                  "3 H [p2] 1 " +
                                  kMutexSize + " app.c 5 " + kMutexSize + "\n");
}

TEST(NewHandle, IsNotTracedUnderOtherSwitches) {
  for (const char* debug : {"EXCEPTIONS", "SUMMARY", "DEBUG=not,global,qk_mem_inew_handle"}) {
    Scene scene(debug);
    const std::string log = kit::run({debug, "", ""}, [] {
                              create("MULTITHREADED");
                              std::fflush(nullptr);
                              std::_Exit(0);
                            }).log;
    EXPECT_EQ(log.find("   "), std::string::npos) << log;
  }
}

TEST(NewHandle, CountsEventsForItselfItsArrayAndItsMemory) {
  Scene scene("");
  qk_mem_init();
  Qk_mem_seq = 41;
  Pool pool;
  EXPECT_EQ(pool.record().seq, 42U);
  EXPECT_EQ(qk_mem_get_ptr(&pool.record(), &pool.record())->seq, 44U);
  EXPECT_EQ(Qk_mem_seq, 44U);
}

TEST(NewHandle, IsFollowedByTheReportUnderCtrlblks) {
  Scene scene("CTRLBLKS=qk_mem_inew_handle");
  kit::set_heap(4096);
  start(scene);
  create("");
  EXPECT_NE(scene.log(), "");
  EXPECT_EQ(scene.log(), kit::normalized(kit::dump("", 0)));
}

TEST(NewHandle, TakesItsLocationFromTheMacro) {
  Scene scene("");
  const int hid = qk_mem_new_handle("AUTOFREE", "");
  const int line = __LINE__ - 1;
  EXPECT_STREQ(handle_of(hid).file, "create_test.cpp");
  EXPECT_EQ(handle_of(hid).line, line);
  EXPECT_EQ(handle_of(hid).autofree, 'a');
}

TEST(NewHandle, GetsAUniqueNumberInEachThread) {
  Scene scene("");
  std::vector<int> numbers(800);
  std::vector<std::thread> threads;
  for (std::size_t first = 0; first < numbers.size(); first += 200) {
    threads.emplace_back([&numbers, first] {
      for (std::size_t i = first; i < first + 200; ++i) numbers[i] = create("");
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::sort(numbers.begin(), numbers.end());
  for (std::size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], static_cast<int>(i) + 3);
}

}  // namespace

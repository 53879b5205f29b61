#include "diag/trace_file.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "core/registry.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"
#include "tests/kit/text.h"
#include "tests/kit/trace.h"

namespace {

using kit::contents;
using kit::Ended;
using kit::Scene;
using kit::set_heap;
using kit::Trace;
using qk::mem::TraceRow;

constexpr char kHeadings[] =
    "Sequence\tHandle\tType\tAddress\tNum\tSize\tHandle Size\tFile\tLine\tCurrent\tHeap\tUnknown\tChange\tGrowth\tDifference\n";

std::string with_plain_lines(const std::string& text) {
  return kit::replaced(text, "qkmem\\.cpp\t[1-9][0-9]*\t", "qkmem.cpp\t#\t");
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines(1);
  for (const char c : text) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += c;
    }
  }
  lines.pop_back();
  return lines;
}

/**
 * A library with an open trace file. The heap has 1000 bytes when it is opened, so that the running
 * total starts at 1000.
 */
class TraceFile : public ::testing::Test {
 protected:
  TraceFile() {
    set_heap(1000);
    qk_mem_init();
    qk::Status status;
    qk_mem_options("DB FLUSH", &status);
    seen_ = contents("qkmem.tdf").size();
  }

  /** The rows since the last call, or since the file was opened. */
  std::string rows() {
    std::fflush(Qk_mem_db);
    const std::string text = contents("qkmem.tdf").substr(seen_);
    seen_ += text.size();
    return text;
  }

  /** The same, parsed by the reader, which must find no fault. */
  Trace read_rows() {
    Trace trace(kHeadings + rows());
    EXPECT_EQ(trace.faults, std::vector<std::string>{});
    return trace;
  }

  Scene scene_{"TRACE"};
  std::size_t seen_ = 0;
};

TEST(NewTraceFile, BeginsWithHeadingsAndTheHeapAtStart) {
  const Scene scene({"TRACE", "DB", ""});
  set_heap(135168);
  qk_mem_init();
  std::fflush(Qk_mem_db);
  const std::vector<std::string> lines = lines_of(with_plain_lines(contents("qkmem.tdf")));
  ASSERT_GT(lines.size(), 2U);
  EXPECT_EQ(lines[0] + "\n", kHeadings);
  EXPECT_EQ(
      lines[1],
      "1\t0\tI\t0000000000000000\t1\t135168\t0\tqkmem.cpp\t#\t135168\t135168\t0\t135168\t135168\t0");
  EXPECT_EQ(lines[2],
            "2\t1\tN\t0000000000000000\t0\t0\t0\tqkmem.cpp\t#\t135168\t135168\t0\t0\t0\t0");
}

TEST(NewTraceFile, ComparesTheHeapWithStartUpIfOpenedLater) {
  const Scene scene("TRACE");
  set_heap(1000);
  qk_mem_init();
  const std::uint32_t seq = Qk_mem_seq;
  set_heap(1700);
  qk::Status status;
  qk_mem_options("DB=late.tdf FLUSH", &status);
  EXPECT_EQ(
      with_plain_lines(contents("late.tdf")),
      kHeadings + std::to_string(seq + 1) +
          "\t0\tI\t0000000000000000\t1\t1000\t0\tqkmem.cpp\t#\t1000\t1700\t700\t1000\t1700\t700\n");
  EXPECT_EQ(Qk_mem_seq, seq + 1);
}

TEST(NewTraceFile, ShowsNoSizeForAHeapBelowZero) {
  const Scene scene("TRACE");
  set_heap(-16);
  qk_mem_init();
  qk::Status status;
  qk_mem_options("DB=late.tdf FLUSH", &status);
  const Trace trace(contents("late.tdf"));
  const TraceRow& opened = trace.rows.at(0);
  EXPECT_EQ(opened.size, 0U);
  EXPECT_EQ(opened.current, -16);
  EXPECT_EQ(opened.change, -16);
}

TEST_F(TraceFile, HasFifteenColumns) {
  kit::handle_of(QK_MEM_DATA_HANDLE).amount = 4321;
  Qk_mem_seq = 77;
  set_heap(3000);
  EXPECT_EQ(qk_mem_write_db(2, 'C', reinterpret_cast<void*>(0x1a2b), 5, 100, "src/app.c", 42, 500),
            0);
  EXPECT_EQ(
      rows(),
      "77\t2\tC\t0000000000001a2b\t5\t100\t4321\tapp.c\t42\t1500\t3000\t1500\t500\t2000\t1500\n");
}

TEST_F(TraceFile, SumsTheChangesAndShowsTheHeapsGrowthPerRow) {
  Qk_mem_seq = 9;
  const struct {
    int heap;
    long change;
    const char* row;  // from Current on
  } steps[] = {
      {1000, 300, "1300\t1000\t-300\t300\t0\t-300"},
      {5000, 200, "1500\t5000\t3500\t200\t4000\t3800"},
      {5000, 0, "1500\t5000\t3500\t0\t0\t0"},
      {4000, -700, "800\t4000\t3200\t-700\t-1000\t-300"},
      {4000, -900, "-100\t4000\t4100\t-900\t0\t900"},
      {-1, 100, "0\t-1\t-1\t100\t-4001\t-4101"},
      {0, 5000000000, "5000000000\t0\t-5000000000\t5000000000\t1\t-4999999999"},
  };
  for (const auto& step : steps) {
    set_heap(step.heap);
    qk_mem_write_db(0, 'M', nullptr, 1, 2, "a.c", 3, step.change);
    EXPECT_EQ(rows(),
              "9\t0\tM\t0000000000000000\t1\t2\t0\ta.c\t3\t" + std::string(step.row) + "\n");
  }
}

TEST_F(TraceFile, ShowsHandleSizeZeroWithoutAHandle) {
  const kit::Pool pool;
  qk_mem_imalloc(pool, 64, 16, "app.c", 1);
  rows();
  for (const auto& [hid, size] : {std::pair{pool + 0, 64U}, {pool + 1, 0U}, {512, 0U}}) {
    qk_mem_write_db(hid, 'M', nullptr, 0, 0, "a.c", 1, 0);
    EXPECT_EQ(read_rows().rows.at(0).handle_size, size) << hid;
  }
}

TEST_F(TraceFile, ShowsAsManyAddressDigitsAsConfigured) {
  Qk_mem_ptr_display_size = 12;
  Qk_mem_seq = 5;
  qk_mem_write_db(0, 'M', reinterpret_cast<void*>(0x1a2b), 0, 0, "a.c", 1, 0);
  EXPECT_EQ(rows(), "5\t0\tM\t000000001a2b\t0\t0\t0\ta.c\t1\t1000\t1000\t0\t0\t0\t0\n");
}

TEST_F(TraceFile, ShowsTheWholeRangeOfItsNumbers) {
  Qk_mem_seq = 4294967295;
  qk_mem_write_db(0, 'M', reinterpret_cast<void*>(UINTPTR_MAX), 18446744073709551615U,
                  18446744073709551615U, "a.c", -2147483647, -1);
  EXPECT_EQ(
      rows(),
      "4294967295\t0\tM\tffffffffffffffff\t18446744073709551615\t18446744073709551615\t0\ta.c\t-2147483647\t"
      "999\t1000\t1\t-1\t0\t1\n");
}

TEST_F(TraceFile, ShowsTheTypeAsItsByte) {
  for (const int type : {0, 1, 2, 9, 10, 255}) {
    qk_mem_write_db(0, static_cast<unsigned char>(type), nullptr, 0, 0, "a.c", 1, 0);
    EXPECT_EQ(read_rows().rows.at(0).type, type);
  }
}

TEST_F(TraceFile, ShowsTheFileWithoutItsFolders) {
  qk_mem_write_db(0, 'M', nullptr, 0, 0, "/home/me/src/app.c", 1, 0);
  EXPECT_EQ(read_rows().rows.at(0).file, "app.c");
}

TEST_F(TraceFile, CutsALongRowAndKeepsItsNewline) {
  const std::string file(2000, 'f');
  qk_mem_write_db(0, 'M', nullptr, 0, 0, file.c_str(), 1, 0);
  const std::string row = rows();
  EXPECT_EQ(row.size(), 1023U);
  EXPECT_EQ(row.substr(1020), "ff\n");
}

TEST_F(TraceFile, SamplesTheHeapOncePerRow) {
  set_heap(1000);
  qk_mem_write_db(0, 'M', nullptr, 0, 0, "a.c", 1, 0);
  EXPECT_EQ(kit::heap_probes(), 1);
}

TEST_F(TraceFile, RestoresTheTotalAfterMallocAndFree) {
  const kit::Pool pool;
  qk_mem_imalloc(pool, 8, 16, "app.c", 1);
  void* memory = qk_mem_imalloc(pool, 100, 16, "app.c", 2);
  qk_mem_ifree(pool, memory, "app.c", 3);
  const Trace trace = read_rows();
  ASSERT_GE(trace.rows.size(), 2U);
  const TraceRow& allocated = *(trace.rows.end() - 2);
  EXPECT_EQ(allocated.type, 'M');
  EXPECT_EQ(allocated.change, 100);
  EXPECT_EQ(allocated.handle_size, 108U);
  const TraceRow& freed = trace.rows.back();
  EXPECT_EQ(freed.type, 'F');
  EXPECT_EQ(freed.change, -100);
  EXPECT_EQ(freed.current + 100, allocated.current);
}

TEST_F(TraceFile, IsNotWrittenWhileDebuggingIsOff) {
  qk::Status status;
  qk_mem_debug_config("OFF", &status);
  set_heap(9000);
  EXPECT_EQ(qk_mem_write_db(0, 'M', nullptr, 0, 0, "a.c", 1, 500), -1);
  EXPECT_EQ(rows(), "");
  qk_mem_debug_config("TRACE", &status);
  set_heap(1000);
  EXPECT_EQ(qk_mem_write_db(0, 'M', nullptr, 0, 0, "a.c", 1, 1), 0);
  const Trace trace = read_rows();
  EXPECT_EQ(trace.rows.at(0).current, 1001) << "the 500 weren't summed";
  EXPECT_EQ(trace.rows.at(0).growth, 0) << "the heap of 9000 wasn't seen";
}

TEST(TraceFileRow, IsNotWrittenWithoutAFile) {
  const Scene scene("TRACE");
  qk_mem_init();
  EXPECT_EQ(qk_mem_write_db(0, 'M', nullptr, 0, 0, "a.c", 1, 500), -1);
  set_heap(1000);
  EXPECT_EQ(qk_mem_write_db(0, 'M', nullptr, 0, 0, "a.c", 1, 500), -1);
  EXPECT_EQ(kit::heap_probes(), 0);
}

TEST(TraceFileRow, ContinuesTheTotalOfThePreviousFile) {
  const Scene scene("TRACE");
  set_heap(1000);
  qk_mem_init();
  qk::Status status;
  qk_mem_options("DB=first.tdf", &status);
  qk::mem::close_trace_file();
  qk_mem_options("DB=second.tdf FLUSH", &status);
  const Trace trace(contents("second.tdf"));
  EXPECT_EQ(trace.rows.at(0).current, 2000);
  EXPECT_EQ(trace.rows.at(0).growth, 0);
}

TEST_F(TraceFile, KeepsRowsOfSeveralThreadsWholeAndInOrder) {
  std::vector<std::thread> threads;
  for (int i = 1; i <= 4; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < 200; ++n) qk_mem_write_db(0, 'M', nullptr, 1, 1, "a.c", n, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const Trace trace = read_rows();
  EXPECT_EQ(trace.rows.size(), 800U);
  std::int64_t total = 1000;
  for (const TraceRow& row : trace.rows) {
    total += row.change;
    ASSERT_EQ(row.current, total) << row.line;
  }
  EXPECT_EQ(total, 3000);
}

TEST(TraceFileOfARun, EndsWithTheHandlesThatWereDeletedAtExit) {
  const Scene scene;
  const Ended ended = kit::run({"TRACE", "DB", ""}, [] {
    const kit::Pool pool("AUTOFREE");
    qk_mem_imalloc(pool, 100, 16, "app.c", 5);
  });
  const Trace trace(ended.trace);
  EXPECT_EQ(trace.faults, std::vector<std::string>{});
  std::string types;
  for (const TraceRow& row : trace.rows) {
    if (row.type != 'N' && row.type != 'M' && row.type != 'D') continue;
    types += std::to_string(row.handle) + static_cast<char>(row.type) + " ";
  }
  EXPECT_EQ(types, "1N 2N 3N 3M 3D 1D ");
}

}  // namespace

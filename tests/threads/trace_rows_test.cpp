#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/trace_file.h"
#include "tests/kit/scene.h"
#include "tests/kit/trace.h"

namespace {

using kit::Pool;
using kit::Scene;
using qk::mem::TraceRow;

constexpr int kThreads = 4;
constexpr int kRounds = 500;
constexpr int kEventsPerRound = 5;

/** The handle that the threads share, and the trace that they wrote. */
class ThreadsThatTrace : public ::testing::Test {
 protected:
  ThreadsThatTrace() {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back([this, i] { work(i); });
    for (std::thread& thread : threads) thread.join();
    std::fflush(Qk_mem_db);
    trace_ = kit::Trace(kit::contents("qkmem.tdf"));
  }

  Scene scene_{{"TRACE", "DB", ""}};
  Pool pool_{"MULTITHREADED", "TR"};
  kit::Trace trace_{""};
  const std::vector<TraceRow>& rows_ = trace_.rows;

 private:
  /** Each thread names a file of its own, with lines in increasing order. */
  void work(int number) {
    static constexpr const char* kFiles[kThreads] = {"a.c", "b.c", "c.c", "d.c"};
    const char* file = kFiles[number];
    int line = 1;
    for (int round = 0; round < kRounds; ++round) {
      const auto size = static_cast<std::size_t>(round % 97 + 1);
      void* memory = qk_mem_imalloc(pool_, size, 16, file, line++);
      char* text = qk_mem_istrdup(pool_, "text", file, line++);
      qk_mem_ifree(pool_, memory, file, line++);
      memory = qk_mem_icalloc(pool_, 3, size, 16, file, line++);
      if (round % 10 != 0) qk_mem_ifree(pool_, memory, file, line);
      ++line;
      if (round % 10 != 0) qk_mem_ifree(pool_, text, file, line);
      ++line;
    }
  }
};

TEST_F(ThreadsThatTrace, WriteRowsOfFifteenColumns) {
  EXPECT_EQ(trace_.faults, std::vector<std::string>{});
  EXPECT_GT(rows_.size(), static_cast<std::size_t>(kThreads * kRounds * kEventsPerRound));
}

TEST_F(ThreadsThatTrace, LoseNoEventAndInventNone) {
  std::map<char, int> events;
  for (const TraceRow& row : rows_) {
    if (row.handle == pool_) ++events[static_cast<char>(row.type)];
  }
  EXPECT_EQ(events['M'], kThreads * kRounds);
  EXPECT_EQ(events['S'], kThreads * kRounds);
  EXPECT_EQ(events['C'], kThreads * kRounds);
  EXPECT_EQ(events['F'], kThreads * (kRounds + 2 * kRounds * 9 / 10));
  EXPECT_EQ(events['N'], 1);
}

TEST_F(ThreadsThatTrace, KeepEachThreadsRowsInItsOwnOrder) {
  std::map<std::string_view, int> last;
  for (const TraceRow& row : rows_) {
    if (row.file.size() != 3) continue;
    EXPECT_GE(row.line, last[row.file]) << row.file;
    last[row.file] = row.line;
  }
  EXPECT_EQ(last.size(), static_cast<std::size_t>(kThreads));
}

TEST_F(ThreadsThatTrace, WriteSequencesThatNeverDecrease) {
  std::uint32_t last = 0;
  for (const TraceRow& row : rows_) {
    EXPECT_GE(row.sequence, last);
    last = row.sequence;
  }
  EXPECT_EQ(last, Qk_mem_seq);
}

TEST_F(ThreadsThatTrace, WriteTheRunningSumOfTheChanges) {
  std::int64_t sum = 0;
  for (const TraceRow& row : rows_) {
    sum += row.change;
    ASSERT_EQ(row.current, sum) << row.sequence;
  }
}

TEST_F(ThreadsThatTrace, WriteTheHeapsGrowthFromRowToRow) {
  std::int64_t heap = 0;
  for (const TraceRow& row : rows_) {
    ASSERT_EQ(row.growth, row.heap - heap) << row.sequence;
    ASSERT_EQ(row.difference, row.growth - row.change) << row.sequence;
    ASSERT_EQ(row.unknown, row.heap - row.current) << row.sequence;
    heap = row.heap;
  }
}

TEST_F(ThreadsThatTrace, EndWithWhatTheHandlesHold) {
  const qk::mem::RegistryLock lock;
  std::uint64_t held = 0;
  qk::mem::for_each_handle(
      [&held](const qk_mem_handle& handle) { held += handle.amount + handle.overhead_amount; });
  ASSERT_EQ(rows_.front().type, 'I');
  EXPECT_EQ(rows_.back().current, rows_.front().change + static_cast<std::int64_t>(held));
}

TEST_F(ThreadsThatTrace, WriteTheBytesOfEachRecordAsTheChange) {
  for (const TraceRow& row : rows_) {
    if (row.handle != pool_ || row.type == 'N' || row.type == 'P') continue;
    const auto bytes = static_cast<std::int64_t>(row.num * row.size);
    ASSERT_EQ(row.change, row.type == 'F' ? -bytes : bytes) << row.sequence;
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/handle_array.h"
#include "core/registry.h"
#include "diag/trace_file.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Scene;

constexpr int kThreads = 4;
constexpr int kRounds = 500;
constexpr int kEventsPerRound = 5;

/** One row; the numbers are those of the columns of that name. */
struct Row {
  long sequence, handle;
  std::string type, address;
  long num, size, handle_size;
  std::string file;
  long line, current, heap, unknown, change, growth, difference;
};

std::vector<std::string> columns_of(const std::string& line) {
  std::vector<std::string> columns(1);
  for (const char c : line) {
    if (c == '\t') {
      columns.emplace_back();
    } else {
      columns.back() += c;
    }
  }
  return columns;
}

Row row_of(const std::vector<std::string>& columns) {
  const auto number = [&columns](std::size_t i) { return std::stol(columns[i]); };
  return {number(0),  number(1),  columns[2], columns[3], number(4),
          number(5),  number(6),  columns[7], number(8),  number(9),
          number(10), number(11), number(12), number(13), number(14)};
}

/** What the threads share, and what they wrote. */
class ThreadsThatTrace : public ::testing::Test {
 protected:
  ThreadsThatTrace() {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back([this, i] { work(i); });
    for (std::thread& thread : threads) thread.join();
    read();
  }

  Scene scene_{{"TRACE", "DB", ""}};
  Pool pool_{"MULTITHREADED", "TR"};
  std::vector<Row> rows_;
  int broken_lines_ = 0;

 private:
  /** Each thread has a file of its own, in which lines only go up. */
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

  void read() {
    std::fflush(Qk_mem_db);
    std::istringstream lines(kit::contents("qkmem.tdf"));
    std::string line;
    std::getline(lines, line);  // the headings
    while (std::getline(lines, line)) {
      const std::vector<std::string> columns = columns_of(line);
      if (columns.size() == 15) {
        rows_.push_back(row_of(columns));
      } else {
        ++broken_lines_;
      }
    }
  }
};

TEST_F(ThreadsThatTrace, LeaveRowsOfFifteenColumns) {
  EXPECT_EQ(broken_lines_, 0);
  EXPECT_GT(rows_.size(), static_cast<std::size_t>(kThreads * kRounds * kEventsPerRound));
}

TEST_F(ThreadsThatTrace, LoseNoEventAndInventNone) {
  std::map<std::string, int> events;
  for (const Row& row : rows_) {
    if (row.handle == pool_) ++events[row.type];
  }
  EXPECT_EQ(events["M"], kThreads * kRounds);
  EXPECT_EQ(events["S"], kThreads * kRounds);
  EXPECT_EQ(events["C"], kThreads * kRounds);
  EXPECT_EQ(events["F"], kThreads * (kRounds + 2 * kRounds * 9 / 10));
  EXPECT_EQ(events["N"], 1);
}

TEST_F(ThreadsThatTrace, LeaveEachThreadsRowsInItsOwnOrder) {
  std::map<std::string, long> last;
  for (const Row& row : rows_) {
    if (row.file.size() != 3) continue;
    EXPECT_GE(row.line, last[row.file]) << row.file;
    last[row.file] = row.line;
  }
  EXPECT_EQ(last.size(), static_cast<std::size_t>(kThreads));
}

TEST_F(ThreadsThatTrace, LeaveSequencesThatNeverDecrease) {
  long last = 0;
  for (const Row& row : rows_) {
    EXPECT_GE(row.sequence, last);
    last = row.sequence;
  }
  EXPECT_EQ(last, static_cast<long>(Qk_mem_seq));
}

TEST_F(ThreadsThatTrace, LeaveTheRunningSumOfTheChanges) {
  long sum = 0;
  for (const Row& row : rows_) {
    sum += row.change;
    ASSERT_EQ(row.current, sum) << row.sequence;
  }
}

TEST_F(ThreadsThatTrace, LeaveTheGrowthOfTheHeapFromRowToRow) {
  long heap = 0;
  for (const Row& row : rows_) {
    ASSERT_EQ(row.growth, row.heap - heap) << row.sequence;
    ASSERT_EQ(row.difference, row.growth - row.change) << row.sequence;
    ASSERT_EQ(row.unknown, row.heap - row.current) << row.sequence;
    heap = row.heap;
  }
}

TEST_F(ThreadsThatTrace, EndWithWhatTheHandlesHold) {
  std::uint64_t held = 0;
  qk::mem::for_each_handle(
      [&held](const qk_mem_handle& handle) { held += handle.amount + handle.overhead_amount; });
  ASSERT_EQ(rows_.front().type, "I");
  EXPECT_EQ(rows_.back().current, rows_.front().change + static_cast<long>(held));
}

TEST_F(ThreadsThatTrace, LeaveRowsWhoseChangeIsThatOfTheRecord) {
  for (const Row& row : rows_) {
    if (row.handle != pool_ || row.type == "N" || row.type == "P") continue;
    const long bytes = row.num * row.size;
    ASSERT_EQ(row.change, row.type == "F" ? -bytes : bytes) << row.sequence;
  }
}

}  // namespace

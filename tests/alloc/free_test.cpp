#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <string>

#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

void release(int hid, void* memory) { qk_mem_ifree(hid, memory, "lib/other.c", 80); }

/** Memory from the system's allocator, recorded on the handle with this kind. */
void* hold_memory(const Ledger& ledger, char kind, std::uint64_t count, std::uint64_t size) {
  void* memory = std::malloc(count * size);
  kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(memory), kind, count, size,
            "made.c", 9);
  return memory;
}

TEST(Free, RemovesTheRecordAndLowersTheTotals) {
  Ledger ledger("");
  qk_mem_imalloc(ledger.pool, 7, 16, "src/app.c", 11);
  void* memory = qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12);
  EXPECT_EQ(ledger.sums(), "handle 2 for 107, tag 2 for 107, events 2");
  release(ledger.pool, memory);
  EXPECT_EQ(ledger.record(memory), "none");
  EXPECT_EQ(ledger.sums(), "handle 1 for 7, tag 1 for 7, events 3");
}

TEST(Free, IsLoggedAndTracedWithTheRecord) {
  Ledger ledger(Environment{"DEBUG=qk_ifree", "DB", ""});
  struct {
    void* memory;
    const char* log;
    const char* trace;
  } const rows[] = {
      {qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] F other.c:80; M 100 app.c:12\n",
       "3 F [p1] 1 100 other.c 80 -100\n"},
      {qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] F other.c:80; C 10/8 app.c:12\n",
       "3 F [p1] 10 8 other.c 80 -80\n"},
      {qk_mem_irealloc(ledger.pool, nullptr, 60, 16, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] F other.c:80; R 60 app.c:12\n",
       "3 F [p1] 1 60 other.c 80 -60\n"},
      {qk_mem_istrdup(ledger.pool, "hello", "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] F other.c:80; S 6 app.c:12\n",
       "3 F [p1] 1 6 other.c 80 -6\n"},
      {qk_mem_imalloc(ledger.pool, 0, 16, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] F other.c:80; M 0 app.c:12\n",
       "3 F [p1] 1 0 other.c 80 0\n"},
      {hold_memory(ledger, 'X', 3, 8),
       "   qk_mem_ifree:          3 [p1] F other.c:80; X 8 made.c:9\n",
       "3 F [p1] 3 8 other.c 80 -24\n"},
  };
  EXPECT_EQ(kit::data_of(ledger.pool), "6 for 270");
  for (const auto& row : rows) {
    ledger.skip_all();
    release(ledger.pool, row.memory);
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.trace(), row.trace);
  }
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 1");
}

TEST(Free, LogsTheHeapChangeUnderHeapsize) {
  Ledger ledger(Environment{"DEBUG=qk_ifree", "HEAPSIZE", ""});
  release(ledger.pool, qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12));
  release(ledger.pool, qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12));
  const std::string log = ledger.log();
  EXPECT_EQ(log.substr(0, log.find('\n') + 1),
            "   qk_mem_ifree:          3 [p1] F other.c:80; M 100 app.c:12 (heap change)\n");
  EXPECT_NE(log.find("C 10/8 app.c:12 (heap change)\n"), std::string::npos);
}

TEST(Free, IsTracedEvenIfNothingIsLogged) {
  Ledger ledger(Environment{"EXCEPTIONS=qk_imalloc", "DB", ""});
  void* memory = qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12);
  ledger.skip_all();
  release(ledger.pool, memory);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(ledger.trace(), "3 F [p1] 10 8 other.c 80 -80\n");
}

TEST(Free, ReleasesAnUnknownPointerAndWarnsTwice) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  release(ledger.pool, std::malloc(8));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Free, WarnsOfAnUnknownPointerAsConfigured) {
  struct {
    const char* debug;
    const char* log;
  } const rows[] = {
      {"EXCEPTIONS",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG=qk_ifree",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"EXCEPTIONS=QK_IFREE,qk_imalloc",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG TRACE=not,qk_ifree",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"EXCEPTIONS TRACE=not,qk_ifree",
       "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG=not,qk_ifree", ""},
      {"DEBUG=qk_imalloc", ""},
      {"CTRLBLKS", ""},
      {"SUMMARY TRACE", ""},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    release(ledger.pool, std::malloc(8));
    EXPECT_EQ(ledger.log(), row.log) << row.debug;
  }
}

TEST(Free, KeepsTheRecordOfAnotherHandlesPointer) {
  Ledger ledger("EXCEPTIONS");
  kit::Pool other;
  void* memory = qk_mem_imalloc(other, 8, 16, "src/app.c", 12);
  release(ledger.pool, memory);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at other.c:80\n");
  EXPECT_EQ(kit::data_of(other), "1 for 8");
}

TEST(Free, WarnsOfNullAndDoesNothingElse) {
  Ledger ledger(Environment{"DEBUG CTRLBLKS", "DB", ""});
  release(ledger.pool, nullptr);
  EXPECT_EQ(ledger.log(), "   qk_mem_ifree: WARNING: free of NULL pointer at other.c:80\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Free, DoesNotWarnOfNullIfItsRoutineIsOff) {
  Ledger ledger("DEBUG TRACE=not,qk_ifree");
  release(ledger.pool, nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(Free, WarnsOfMemoryFromNewAndFreesIt) {
  struct {
    char kind;
    const char* log;
  } const rows[] = {
      {'W',
       "   qk_mem_ifree: WARNING: free of new at other.c:80 (allocated at made.c:9)\n"
       "   qk_mem_ifree:          3 [p1] F other.c:80; W 8 made.c:9\n"},
      {'J',
       "   qk_mem_ifree: WARNING: free of new at other.c:80 (allocated at made.c:9)\n"
       "   qk_mem_ifree:          3 [p1] F other.c:80; J 8 made.c:9\n"},
  };
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  for (const auto& row : rows) {
    void* memory = hold_memory(ledger, row.kind, 3, 8);
    ledger.skip_all();
    release(ledger.pool, memory);
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.trace(), "3 F [p1] 3 8 other.c 80 -24\n");
    EXPECT_EQ(ledger.record(memory), "none");
    EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 1");
  }
}

TEST(Free, FreesExternalMemoryWithoutAWarning) {
  Ledger ledger("EXCEPTIONS");
  release(ledger.pool, hold_memory(ledger, 'X', 1, 8));
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(kit::data_of(ledger.pool), "0 for 0");
}

TEST(Free, LeavesAnOldErrorCodeAlone) {
  Ledger ledger("");
  EXPECT_EQ(qk_mem_isize(0, "src/app.c", 12), static_cast<std::size_t>(-1));
  release(ledger.pool, std::malloc(8));
  release(ledger.pool, nullptr);
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(Free, IsFollowedByTheReportUnderCtrlblks) {
  Ledger ledger(Environment{"CTRLBLKS=qk_ifree DEBUG=qk_ifree", "", "OPTIONS=POINTERS"});
  qk_mem_imalloc(ledger.pool, 7, 16, "src/app.c", 11);
  release(ledger.pool, qk_mem_imalloc(ledger.pool, 100, 16, "src/app.c", 12));
  EXPECT_EQ(kit::sections_of(ledger.log(), QK_MEM_DUMP_POINTERS),
            "   qk_mem_ifree:          3 [p1] F other.c:80; M 100 app.c:12\n"
            "Data handle pointers\n"
            "   +   3 AB p2               M     1        7        7     101 app.c:11\n");
}

/** Large allocations, which the system's allocator counts. Sanitizers' allocators don't. */
class FreeOfLargeMemory : public ::testing::Test {
 protected:
  static constexpr std::size_t kLarge = 1 << 20;

  void SetUp() override {
    mallopt(M_MMAP_THRESHOLD, 1 << 16);
    memory_ = std::malloc(kLarge);
    if (pieces() == 0) {
      std::free(memory_);
      GTEST_SKIP() << "the allocator doesn't count large allocations";
    }
  }

  [[nodiscard]] static int pieces() { return static_cast<int>(mallinfo2().hblks); }

  Ledger ledger_{"EXCEPTIONS"};
  void* memory_ = nullptr;
};

TEST_F(FreeOfLargeMemory, ReturnsItToTheSystemEvenIfUnknown) {
  ASSERT_EQ(pieces(), 1);
  release(ledger_.pool, memory_);
  EXPECT_EQ(pieces(), 0);
  for (const char kind : {'M', 'X', 'W', 'J'}) {
    void* memory = hold_memory(ledger_, kind, 1, kLarge);
    ASSERT_EQ(pieces(), 1);
    release(ledger_.pool, memory);
    EXPECT_EQ(pieces(), 0) << kind;
  }
}

TEST_F(FreeOfLargeMemory, LeavesItAllocatedIfTheHandleIsInvalid) {
  release(4, memory_);
  EXPECT_EQ(pieces(), 1);
  std::free(memory_);
}

}  // namespace

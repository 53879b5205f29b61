#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::blocks_of;
using kit::Environment;
using kit::Ledger;

constexpr const char* kPlain = "BLOCKMGMT BLOCKSIZE=64";
constexpr const char* kFreeing = "BLOCKMGMT BLOCKFREE BLOCKSIZE=64";

/** The events of pieces, on either kind of block-managed handle. */
class EventsOfPieces : public ::testing::TestWithParam<const char*> {
 protected:
  EventsOfPieces() : ledger_(Environment{"DEBUG", "DB", ""}, GetParam()) { ledger_.skip_all(); }

  Ledger ledger_;
};

INSTANTIATE_TEST_SUITE_P(OnHandle, EventsOfPieces, ::testing::Values(kPlain, kFreeing),
                         [](const auto& row) { return row.index == 0 ? "Plain" : "Blockfree"; });

TEST_P(EventsOfPieces, AreLoggedAndTracedForMalloc) {
  void* piece = qk_mem_imalloc(ledger_.pool, 10, 8, "src/app.c", 70000);
  EXPECT_EQ(ledger_.log(), "   qk_mem_imalloc:        3 [p1] m 10 app.c:4464\n");
  EXPECT_EQ(ledger_.trace(), "3 m [p1] 1 10 app.c 4464 0\n");
  EXPECT_EQ(ledger_.record(piece), "m 1/10 app.c:4464 event 1");
  EXPECT_EQ(ledger_.sums(), "handle 2 for 96, tag 2 for 96, events 1") << "one is the block";
}

TEST_P(EventsOfPieces, AreLoggedAndTracedForCalloc) {
  std::memset(qk_mem_imalloc(ledger_.pool, 64, 8, "src/app.c", 11), 'x', 64);
  qk_mem_iclear_handle(ledger_.pool, "src/app.c", 11);
  ledger_.skip_all();
  void* piece = qk_mem_icalloc(ledger_.pool, 3, 7, 8, "src/app.c", 12);
  EXPECT_EQ(ledger_.log(), "   qk_mem_icalloc:        3 [p1] c 3/7 app.c:12\n");
  EXPECT_EQ(ledger_.trace(), "3 c [p1] 3 7 app.c 12 0\n");
  EXPECT_EQ(ledger_.record(piece), "c 3/7 app.c:12 event 1");
  EXPECT_EQ(std::string(static_cast<char*>(piece), 22), std::string(21, '\0') + "x");
  EXPECT_EQ(blocks_of(ledger_.pool), "64:0-21");
}

TEST_P(EventsOfPieces, AreLoggedAndTracedForStrdup) {
  qk_mem_imalloc(ledger_.pool, 3, 8, "src/app.c", 11);
  ledger_.skip_all();
  char* piece = qk_mem_istrdup(ledger_.pool, "hello", "src/app.c", 12);
  EXPECT_STREQ(piece, "hello");
  EXPECT_EQ(ledger_.log(), "   qk_mem_istrdup:        3 [p1] s 6 app.c:12\n");
  EXPECT_EQ(ledger_.trace(), "3 s [p1] 1 6 app.c 12 0\n");
  EXPECT_EQ(ledger_.record(piece), "s 1/6 app.c:12 event 1");
  EXPECT_EQ(kit::position_of(ledger_.pool, piece), "block 1 at 3") << "strings need no alignment";
}

TEST_P(EventsOfPieces, FollowTheEventOfTheirNewBlock) {
  qk_mem_imalloc(ledger_.pool, 100, 8, "src/app.c", 12);
  EXPECT_EQ(ledger_.log(),
            "   qk_mem_new_block:      3 [p1] B 132 app.c:12\n"
            "   qk_mem_imalloc:        3 [p2] m 100 app.c:12\n");
  EXPECT_EQ(ledger_.trace(),
            "3 B [p1] 1 132 app.c 12 132\n"
            "3 m [p2] 1 100 app.c 12 0\n");
  EXPECT_EQ(ledger_.sums(), "handle 3 for 228, tag 3 for 228, events 2");
}

TEST(EventsOfFrees, ShowTheRecordAndChangeNoBytes) {
  Ledger ledger(Environment{"DEBUG", "HEAPSIZE DB", ""}, kFreeing);
  struct {
    void* piece;
    const char* log;
    const char* trace;
  } const rows[] = {
      {qk_mem_imalloc(ledger.pool, 10, 8, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] f other.c:80000; m 10 app.c:12 (heap change)\n",
       "3 f [p1] 1 10 other.c 80000 0\n"},
      {qk_mem_icalloc(ledger.pool, 3, 7, 8, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] f other.c:80000; c 3/7 app.c:12 (heap change)\n",
       "3 f [p1] 3 7 other.c 80000 0\n"},
      {qk_mem_irealloc(ledger.pool, nullptr, 20, 8, "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] f other.c:80000; r 20 app.c:12 (heap change)\n",
       "3 f [p1] 1 20 other.c 80000 0\n"},
      {qk_mem_istrdup(ledger.pool, "hello", "src/app.c", 12),
       "   qk_mem_ifree:          3 [p1] f other.c:80000; s 6 app.c:12 (heap change)\n",
       "3 f [p1] 1 6 other.c 80000 0\n"},
  };
  for (const auto& row : rows) {
    ledger.skip_all();
    qk_mem_ifree(ledger.pool, row.piece, "lib/other.c", 80000);
    EXPECT_EQ(ledger.log(), row.log);
    EXPECT_EQ(ledger.trace(), row.trace);
    EXPECT_EQ(Qk_mem_seq, 101U);
  }
  EXPECT_EQ(kit::data_of(ledger.pool), "2 for 192") << "two blocks";
}

TEST(EventsOfPiecesUnderCtrlblks, AreFollowedByTheReport) {
  Ledger ledger(Environment{"CTRLBLKS=qk_imalloc,qk_irealloc,qk_ifree", "", "OPTIONS=POINTERS"},
                kFreeing);
  void* piece = nullptr;
  const std::function<void()> steps[] = {
      [&] { piece = qk_mem_imalloc(ledger.pool, 10, 8, "src/app.c", 12); },
      [&] { piece = qk_mem_irealloc(ledger.pool, piece, 20, 8, "src/app.c", 13); },
      [&] { qk_mem_ifree(ledger.pool, piece, "src/app.c", 14); },
  };
  for (const auto& step : steps) {
    ledger.skip_all();
    step();
    EXPECT_NE(ledger.log(), "");
    EXPECT_EQ(ledger.log(), kit::normalized(kit::dump("", 0)));
  }
}

TEST(AllocatingAPiece, RecordsNothingWithoutAnyConfiguration) {
  Ledger ledger(Environment{"", "DB", ""}, kPlain);
  for (int i = 0; i < 10; ++i) qk_mem_imalloc(ledger.pool, 40, 8, "src/app.c", 12);
  EXPECT_EQ(ledger.sums(), "handle 0 for 960, tag 0 for 960, events 0");
}

TEST(AllocatingAPiece, SucceedsWithAWarningOfOddSizesAndAlignments) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kPlain);
  const int hid = ledger.pool;
  EXPECT_NE(qk_mem_imalloc(hid, 0, 16, "src/app.c", 12), nullptr);
  EXPECT_NE(qk_mem_imalloc(hid, 10, 3, "src/app.c", 13), nullptr);
  EXPECT_NE(qk_mem_imalloc(hid, 10, 32, "src/app.c", 14), nullptr);
  EXPECT_NE(qk_mem_icalloc(hid, 0, 8, 8, "src/app.c", 15), nullptr);
  EXPECT_NE(qk_mem_icalloc(hid, 1, 0, 5, "src/app.c", 16), nullptr);
  EXPECT_NE(qk_mem_irealloc(hid, nullptr, 0, 64, "src/app.c", 17), nullptr);
  EXPECT_EQ(qk_mem_istrdup(hid, nullptr, "src/app.c", 18), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc: WARNING: malloc of 0 at app.c:12\n"
            "   qk_mem_imalloc: WARNING: malloc of 10 at app.c:13 has alignment of 3\n"
            "   qk_mem_imalloc: WARNING: malloc of 10 at app.c:14 has alignment of 32\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:15\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 at app.c:16\n"
            "   qk_mem_icalloc: WARNING: calloc of 1/0 at app.c:16 has alignment of 5\n"
            "   qk_mem_irealloc: WARNING: realloc of 0 at app.c:17\n"
            "   qk_mem_irealloc: WARNING: realloc of 0 at app.c:17 has alignment of 64\n"
            "   qk_mem_istrdup: WARNING: strdup of NULL pointer at app.c:18\n");
  ledger.configure("EXCEPTIONS TRACE=not,qk_imalloc,qk_icalloc");
  EXPECT_NE(qk_mem_imalloc(hid, 0, 3, "src/app.c", 12), nullptr);
  EXPECT_NE(qk_mem_icalloc(hid, 0, 0, 3, "src/app.c", 12), nullptr);
  EXPECT_EQ(ledger.log(), "");
}

TEST(AllocatingAPiece, AcceptsTheSupportedAlignmentsSilently) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, kPlain);
  for (const int alignment : {1, 2, 4, 8, 16}) {
    qk_mem_imalloc(ledger.pool, 1, alignment, "src/app.c", 12);
    qk_mem_icalloc(ledger.pool, 1, 1, alignment, "src/app.c", 12);
    qk_mem_irealloc(ledger.pool, nullptr, 1, alignment, "src/app.c", 12);
  }
  EXPECT_EQ(ledger.log(), "");
}

TEST(AllocatingAPiece, FailsWithoutAPositiveAlignment) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  const int hid = ledger.pool;
  const std::string before = ledger.sums();
  for (const int alignment : {0, -1, INT_MIN}) {
    Qk_mem_error = 0;
    EXPECT_EQ(qk_mem_imalloc(hid, 10, alignment, "src/app.c", 12), nullptr);
    EXPECT_EQ(qk_mem_error(), 5022);
    Qk_mem_error = 0;
    EXPECT_EQ(qk_mem_icalloc(hid, 2, 5, alignment, "src/app.c", 13), nullptr);
    EXPECT_EQ(qk_mem_error(), 5022);
    Qk_mem_error = 0;
    EXPECT_EQ(qk_mem_irealloc(hid, nullptr, 10, alignment, "src/app.c", 14), nullptr);
    EXPECT_EQ(qk_mem_error(), 5022);
  }
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_imalloc: WARNING: malloc of 10 at app.c:12 has alignment of 0\n"
      "   qk_mem_icalloc: WARNING: calloc of 2/5 at app.c:13 has alignment of 0\n"
      "   qk_mem_irealloc: WARNING: realloc of 10 at app.c:14 has alignment of 0\n"
      "   qk_mem_imalloc: WARNING: malloc of 10 at app.c:12 has alignment of -1\n"
      "   qk_mem_icalloc: WARNING: calloc of 2/5 at app.c:13 has alignment of -1\n"
      "   qk_mem_irealloc: WARNING: realloc of 10 at app.c:14 has alignment of -1\n"
      "   qk_mem_imalloc: WARNING: malloc of 10 at app.c:12 has alignment of -2147483648\n"
      "   qk_mem_icalloc: WARNING: calloc of 2/5 at app.c:13 has alignment of -2147483648\n"
      "   qk_mem_irealloc: WARNING: realloc of 10 at app.c:14 has alignment of -2147483648\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), before);
  EXPECT_EQ(blocks_of(hid), "64:0-0");
}

TEST(AllocatingAPiece, LogsOnlyTheFailureOfTheBlock) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  const int hid = ledger.pool;
  const std::string before = ledger.sums();
  const std::string text(99, 'x');
  const std::function<void*()> calls[] = {
      [&] { return qk_mem_imalloc(hid, 100, 8, "src/app.c", 12); },
      [&] { return qk_mem_icalloc(hid, 10, 10, 8, "src/app.c", 12); },
      [&] { return qk_mem_irealloc(hid, nullptr, 100, 8, "src/app.c", 12); },
      [&] { return qk_mem_irecalloc(hid, nullptr, 10, 10, 0, 8, "src/app.c", 12); },
      [&] { return qk_mem_istrdup(hid, text.c_str(), "src/app.c", 12); },
  };
  for (const auto& call : calls) {
    ledger.skip_log();
    Qk_mem_error = 0;
    kit::fail_request(1);
    EXPECT_EQ(call(), nullptr);
    EXPECT_EQ(qk_mem_error(), 5012);
    EXPECT_EQ(
        ledger.log(),
        "   qk_mem_new_block: ERROR: malloc of 132 at app.c:12 for block failed: 12 Cannot allocate memory\n");
  }
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), before);
  EXPECT_EQ(blocks_of(hid), "64:0-0");
}

TEST(AllocatingAPiece, FailsForLackOfMemoryIfTheSizeOverflows) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, kFreeing);
  const int hid = ledger.pool;
  qk_mem_imalloc(hid, 5, 1, "src/app.c", 12);
  const std::string before = ledger.sums();
  const std::function<void*()> calls[] = {
      [&] { return qk_mem_imalloc(hid, SIZE_MAX, 16, "src/app.c", 12); },
      [&] { return qk_mem_imalloc(hid, SIZE_MAX - 4, 16, "src/app.c", 12); },
      [&] { return qk_mem_icalloc(hid, SIZE_MAX, SIZE_MAX, 16, "src/app.c", 12); },
      [&] { return qk_mem_icalloc(hid, SIZE_MAX / 2 + 1, 2, 16, "src/app.c", 12); },
      [&] { return qk_mem_icalloc(hid, SIZE_MAX / 16 + 2, 16, 16, "src/app.c", 12); },
      [&] { return qk_mem_irealloc(hid, nullptr, SIZE_MAX, 16, "src/app.c", 12); },
      [&] { return qk_mem_irecalloc(hid, nullptr, SIZE_MAX / 8 + 2, 8, 0, 8, "src/app.c", 12); },
  };
  for (const auto& call : calls) {
    Qk_mem_error = 0;
    EXPECT_EQ(call(), nullptr);
    EXPECT_EQ(qk_mem_error(), 5012);
  }
  EXPECT_EQ(ledger.trace("mcr"), "3 m [p1] 1 5 app.c 12 0\n");
  EXPECT_EQ(ledger.sums(), before);
  EXPECT_EQ(blocks_of(hid), "64:0-5");
  EXPECT_EQ(ledger.pool.record().block_used, 5U);
}

}  // namespace

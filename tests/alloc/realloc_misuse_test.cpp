#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "accounting/kept_calls.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"
#include "tests/kit/standalone_handle.h"

namespace {

using kit::Environment;
using kit::Ledger;

void* resize(int hid, void* memory, std::size_t size) {
  return qk_mem_irealloc(hid, memory, size, 16, "lib/other.c", 80);
}

void* allocate(int hid, std::size_t size) { return qk_mem_imalloc(hid, size, 16, "src/app.c", 12); }

/** Memory from the system's allocator, recorded on the handle with this kind. */
void* hold_memory(const Ledger& ledger, char kind, std::uint64_t count, std::uint64_t size) {
  void* memory = std::malloc(count * size);
  kit::hold(ledger.pool.record(), reinterpret_cast<std::uintptr_t>(memory), kind, count, size,
            "made.c", 9);
  return memory;
}

TEST(Realloc, ResizesUnknownMemoryUnrecordedAndWarnsTwice) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  auto* memory = static_cast<char*>(std::malloc(6));
  std::strcpy(memory, "hello");
  memory = static_cast<char*>(resize(ledger.pool, memory, 4000));
  EXPECT_STREQ(memory, "hello");
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.record(memory), "none");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  std::free(memory);
}

TEST(Realloc, WarnsOfUnknownMemoryAsConfigured) {
  struct {
    const char* debug;
    const char* log;
  } const rows[] = {
      {"EXCEPTIONS",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG=qk_irealloc",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG TRACE=not,qk_irealloc",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"EXCEPTIONS TRACE=not,qk_irealloc",
       "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"},
      {"DEBUG=not,qk_irealloc", ""},
      {"EXCEPTIONS=qk_imalloc", ""},
      {"CTRLBLKS", ""},
      {"SUMMARY TRACE", ""},
  };
  Ledger ledger("EXCEPTIONS");
  for (const auto& row : rows) {
    ledger.configure(row.debug);
    void* memory = resize(ledger.pool, std::malloc(6), 20);
    EXPECT_NE(memory, nullptr) << row.debug;
    EXPECT_EQ(ledger.log(), row.log) << row.debug;
    std::free(memory);
  }
}

TEST(Realloc, KeepsTheRecordOfAnotherHandlesMemory) {
  Ledger ledger("EXCEPTIONS");
  kit::Pool other;
  ledger.skip_all();
  void* memory = allocate(ledger.pool, 1 << 20);
  void* now = resize(other, memory, 10);
  EXPECT_EQ(ledger.record(memory), "M 1/1048576 app.c:12 event 1");
  EXPECT_EQ(kit::data_of(other), "0 for 0");
  std::free(now);
}

TEST(Realloc, WarnsOfRegisteredMemoryAndResizesIt) {
  struct {
    char kind;
    const char* warning;
    const char* old;
  } const rows[] = {
      {'X',
       "   qk_mem_irealloc: WARNING: realloc of external at other.c:80 (allocated at made.c:9)\n",
       "X 8 made.c:9\n"},
      {'W', "   qk_mem_irealloc: WARNING: realloc of new at other.c:80 (allocated at made.c:9)\n",
       "W 8 made.c:9\n"},
      {'J', "   qk_mem_irealloc: WARNING: realloc of new[] at other.c:80 (allocated at made.c:9)\n",
       "J 8 made.c:9\n"},
  };
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  for (const auto& row : rows) {
    void* before = hold_memory(ledger, row.kind, 3, 8);
    ledger.skip_all();
    void* now = resize(ledger.pool, before, 100);
    EXPECT_EQ(ledger.log(), std::string(row.warning) +
                                "   qk_mem_irealloc:       3 [p1] R 100 other.c:80; [" +
                                (now == before ? "p1" : "p2") + "] " + row.old);
    EXPECT_EQ(ledger.trace(), "3 R [p1] 1 100 other.c 80 76\n");
    EXPECT_EQ(ledger.record(now), "R 1/100 other.c:80 event 1");
    EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
    qk_mem_ifree(ledger.pool, now, "src/app.c", 13);
  }
}

TEST(Realloc, ReturnsNullWithTheSystemsCodeOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, nullptr, 100), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: ERROR: realloc of 100 at other.c:80 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Realloc, KeepsMemoryAndRecordOnFailure) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  auto* memory = static_cast<char*>(allocate(ledger.pool, 6));
  std::strcpy(memory, "hello");
  ledger.skip_all();
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, memory, 1 << 20), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_STREQ(memory, "hello");
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: ERROR: realloc of 1048576 at other.c:80 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(ledger.sums(), "handle 1 for 6, tag 1 for 6, events 0");

  ledger.skip_all();
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.log(), "   qk_mem_ifree:          3 [p1] F app.c:13; M 6 app.c:12\n");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 1");
}

TEST(Realloc, KeepsTheRecordUnchangedInItsSlotOnFailure) {
  Ledger ledger("");
  void* memory = std::malloc(24);
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  // A lower slot of the same array, which is free by the time of the call.
  kit::hold(ledger.pool.record(), 0x5000 + (address & 0x70), 'M', 1, 1);
  qk_mem_ptr& slot = kit::hold(ledger.pool.record(), address, 'J', 3, 8, "made.c", 9);
  qk_mem_free_ptr(&ledger.pool.record(),
                  qk_mem_get_ptr(&ledger.pool.record(), kit::at(0x5000 + (address & 0x70))));
  qk::MemTracker* const tracker = reinterpret_cast<qk::MemTracker*>(&slot);
  slot.tracker = tracker;
  slot.baselined = 1;
  const qk_mem_ptr before = slot;

  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, memory, 1 << 20), nullptr);
  EXPECT_EQ(qk_mem_get_ptr(&ledger.pool.record(), memory), &slot);
  EXPECT_EQ(std::memcmp(&slot, &before, sizeof slot), 0);
  slot.tracker = nullptr;
}

TEST(Realloc, WarnsOfUnknownMemoryOnceOnFailure) {
  Ledger ledger("EXCEPTIONS");
  void* memory = std::malloc(6);
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, memory, 100), nullptr);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
      "   qk_mem_irealloc: ERROR: realloc of 100 at other.c:80 failed: 12 Cannot allocate memory\n");
  std::free(memory);
}

TEST(Realloc, PrintsNoReportOnFailureOrForUnknownMemory) {
  Ledger ledger("CTRLBLKS");
  void* memory = std::malloc(6);
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, nullptr, 100), nullptr);
  void* now = resize(ledger.pool, memory, 100);
  EXPECT_NE(now, nullptr) << "nor is one that isn't recorded";
  EXPECT_EQ(ledger.log(), "");
  std::free(now);
}

TEST(Realloc, ReleasesMemoryAndRecordIfTheSizeIsZero) {
  Ledger ledger("DEBUG");
  void* memory = allocate(ledger.pool, 100);
  ledger.skip_all();
  errno = 0;
  EXPECT_EQ(resize(ledger.pool, memory, 0), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc: ERROR: realloc of 0 at other.c:80 failed: 0 Success\n");
  EXPECT_EQ(ledger.record(memory), "none");
  EXPECT_EQ(kit::data_of(ledger.pool), "0 for 0");
  EXPECT_EQ(kit::tag_of("AB"), "0 for 0");
}

TEST(Realloc, RemovesEveryKindOfRecordIfTheSizeIsZero) {
  for (const char kind : {'M', 'C', 'R', 'S', 'X', 'W', 'J'}) {
    Ledger ledger("EXCEPTIONS");
    void* memory = hold_memory(ledger, kind, 3, 8);
    EXPECT_EQ(resize(ledger.pool, memory, 0), nullptr);
    EXPECT_EQ(ledger.record(memory), "none") << kind;
    EXPECT_EQ(kit::data_of(ledger.pool), "0 for 0") << kind;
    EXPECT_EQ(kit::tag_of("AB"), "0 for 0") << kind;
  }
}

TEST(Realloc, WarnsOfSizeZeroBeforeItWarnsOfRegisteredMemory) {
  Ledger ledger("EXCEPTIONS");
  void* memory = hold_memory(ledger, 'J', 3, 8);
  errno = 0;
  EXPECT_EQ(resize(ledger.pool, memory, 0), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc: WARNING: realloc of new[] at other.c:80 (allocated at made.c:9)\n"
            "   qk_mem_irealloc: ERROR: realloc of 0 at other.c:80 failed: 0 Success\n");
}

TEST(Realloc, ReleasesUnknownMemoryIfTheSizeIsZero) {
  Ledger ledger("EXCEPTIONS");
  errno = 0;
  EXPECT_EQ(resize(ledger.pool, std::malloc(6), 0), nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_irealloc: ERROR: realloc of 0 at other.c:80 failed: 0 Success\n");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Realloc, AllocatesZeroBytesIfThePointerIsNull) {
  Ledger ledger("DEBUG");
  void* memory = resize(ledger.pool, nullptr, 0);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING: realloc of 0 at other.c:80\n"
            "   qk_mem_irealloc:       3 [p1] R 0 other.c:80; newly created\n");
  EXPECT_EQ(ledger.record(memory), "R 1/0 other.c:80 event 1");
}

TEST(Realloc, GrowsAnAllocationOfZeroBytes) {
  Ledger ledger("EXCEPTIONS");
  void* memory = resize(ledger.pool, allocate(ledger.pool, 0), 100);
  EXPECT_EQ(ledger.record(memory), "R 1/100 other.c:80 event 2");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 2");
}

}  // namespace

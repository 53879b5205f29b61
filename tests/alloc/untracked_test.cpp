#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

/** The data handle while nothing is configured: the system's allocator and nothing else. */
namespace {

using kit::data_of;
using kit::Environment;
using kit::Ledger;
using kit::overhead_of;
using kit::Scene;

constexpr int kData = QK_MEM_DATA_HANDLE;

void* allocate(std::size_t size, int hid = kData) {
  return qk_mem_imalloc(hid, size, 16, "src/app.c", 12);
}

void* allocate_zeroed(std::size_t num, std::size_t size, int hid = kData) {
  return qk_mem_icalloc(hid, num, size, 16, "src/app.c", 12);
}

void* resize(void* memory, std::size_t size, int hid = kData) {
  return qk_mem_irealloc(hid, memory, size, 16, "src/app.c", 12);
}

char* duplicate(const char* text, int hid = kData) {
  return qk_mem_istrdup(hid, text, "src/app.c", 12);
}

void release(void* memory, int hid = kData) { qk_mem_ifree(hid, memory, "src/app.c", 13); }

std::string bytes(const void* memory, std::size_t size) {
  return {static_cast<const char*>(memory), size};
}

/** All accounting of the data handle that a call could change. */
std::string accounting() {
  return "data " + data_of(kData) + ", overhead " + overhead_of(kData) + ", tag " +
         kit::tag_of("") + ", events " + std::to_string(Qk_mem_seq);
}

TEST(UntrackedDataHandle, ReturnsMemoryAndRecordsNothing) {
  Scene scene("");
  qk_mem_init();
  const std::string before = accounting();
  void* memory = std::memset(allocate(100), 'x', 100);
  memory = resize(memory, 200);
  EXPECT_EQ(bytes(memory, 100), std::string(100, 'x'));
  void* zeroed = allocate_zeroed(10, 8);
  EXPECT_EQ(bytes(zeroed, 80), std::string(80, '\0'));
  char* text = duplicate("hello");
  EXPECT_STREQ(text, "hello");
  void* fresh = resize(nullptr, 10);
  EXPECT_NE(fresh, nullptr);
  EXPECT_EQ(accounting(), before);
  EXPECT_EQ(qk_mem_isize(kData, "src/app.c", 12), 0U);
  for (void* each : {memory, zeroed, static_cast<void*>(text), fresh}) release(each);
  EXPECT_EQ(accounting(), before);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST(UntrackedDataHandle, ReturnsMemoryOfTheSystemsAllocator) {
  Scene scene("");
  std::free(allocate(100));
  std::free(allocate_zeroed(10, 8));
  std::free(duplicate("hello"));
  release(resize(std::malloc(10), 100));
}

TEST(UntrackedDataHandle, ZeroesWhatRecallocAdds) {
  Scene scene("");
  void* memory = std::memset(allocate(80), 'x', 80);
  memory = qk_mem_irecalloc(kData, memory, 25, 8, 10, 16, "src/app.c", 12);
  EXPECT_EQ(bytes(memory, 200), std::string(80, 'x') + std::string(120, '\0'));
  release(memory);
}

TEST(UntrackedDataHandle, IgnoresMisuse) {
  Scene scene("");
  qk_mem_init();
  const std::string before = accounting();
  release(nullptr);
  release(allocate(0));
  release(allocate_zeroed(0, 0));
  release(resize(nullptr, 0));
  release(std::malloc(10));
  errno = ENOMEM;  // Left over from an earlier call; the next one must not report it.
  EXPECT_EQ(duplicate(nullptr), nullptr);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(accounting(), before);
  EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST(UntrackedDataHandle, SetsOnlyTheErrorCodeOnFailure) {
  void* (*const calls[])() = {
      [] { return allocate(100); },
      [] { return allocate_zeroed(10, 8); },
      [] { return resize(nullptr, 100); },
      [] { return static_cast<void*>(duplicate("hello")); },
      [] { return qk_mem_irecalloc(kData, nullptr, 10, 8, 0, 16, "src/app.c", 12); },
  };
  Scene scene("");
  qk_mem_init();
  const std::string before = accounting();
  for (const auto& call : calls) {
    Qk_mem_error.set(0);
    kit::fail_request(1);
    EXPECT_EQ(call(), nullptr);
    EXPECT_TRUE(kit::has_failed());
    EXPECT_EQ(qk_mem_error(), 5012);
  }
  EXPECT_EQ(accounting(), before);
  EXPECT_TRUE(std::filesystem::is_empty("."));
}

TEST(UntrackedDataHandle, KeepsMemoryThatCannotBeResized) {
  Scene scene("");
  void* memory = std::memset(allocate(80), 'x', 80);
  kit::fail_request(1);
  EXPECT_EQ(resize(memory, 1 << 20), nullptr);
  kit::fail_request(1);
  EXPECT_EQ(qk_mem_irecalloc(kData, memory, 25, 8, 4, 16, "src/app.c", 12), nullptr);
  EXPECT_EQ(bytes(memory, 80), std::string(80, 'x'));
  release(memory);
}

TEST(UntrackedDataHandle, FollowsTheGlobalSwitchesAlone) {
  Scene scene(Environment{"DEBUG=not,global", "", ""});
  qk_mem_init();
  scene.skip_log();
  const std::string before = accounting();
  release(allocate(0));
  release(allocate_zeroed(0, 0));
  release(resize(std::malloc(10), 100));
  release(nullptr);
  EXPECT_EQ(duplicate(nullptr), nullptr);
  kit::fail_request(1);
  EXPECT_EQ(allocate(100), nullptr);
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(accounting(), before);
}

TEST(UntrackedDataHandle, LeavesOtherHandlesTracked) {
  Ledger ledger("");
  void* memory = allocate(100, ledger.pool);
  EXPECT_EQ(ledger.record(memory), "M 1/100 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 100, tag 1 for 100, events 1");
}

TEST(UntrackedDataHandle, KeepsEarlierRecordsOfFreedMemory) {
  Ledger ledger("EXCEPTIONS");
  kit::make_arrays(kData);
  void* memory = allocate(100);
  EXPECT_EQ(data_of(kData), "1 for 100");
  ledger.configure("OFF");
  release(memory);
  EXPECT_EQ(data_of(kData), "1 for 100");
}

/** A data handle that was created while nothing was configured never has records. */
class UnrecordedDataHandle : public ::testing::Test {
 protected:
  UnrecordedDataHandle() { ledger_.configure("DEBUG"); }

  Ledger ledger_{""};
};

TEST_F(UnrecordedDataHandle, RecordsNothingEvenUnderDebug) {
  const std::string before = accounting();
  void* memory = resize(allocate(100), 200);
  EXPECT_NE(memory, nullptr);
  release(duplicate("hello"));
  release(allocate_zeroed(10, 8));
  release(resize(nullptr, 10));
  release(memory);
  EXPECT_EQ(accounting(), before);
}

TEST_F(UnrecordedDataHandle, ReportsMisuse) {
  void* empty = allocate(0);
  void* zeroed = allocate_zeroed(0, 1);
  release(empty);
  release(zeroed);
  EXPECT_EQ(duplicate(nullptr), nullptr);
  release(nullptr);
  EXPECT_EQ(ledger_.log(),
            "   qk_mem_imalloc: WARNING: malloc of 0 at app.c:12\n"
            "   qk_mem_icalloc: WARNING: calloc of 0 num at app.c:12\n"
            "   qk_mem_ifree: WARNING:   2 [p1] ptr not found at app.c:13\n"
            "   qk_mem_ifree: WARNING:   2 [p2] ptr not found at app.c:13\n"
            "   qk_mem_istrdup: WARNING: strdup of NULL pointer at app.c:12\n"
            "   qk_mem_ifree: WARNING: free of NULL pointer at app.c:13\n");
}

TEST_F(UnrecordedDataHandle, WarnsOfEveryPointerOnce) {
  void* memory = resize(std::malloc(10), 20);
  EXPECT_EQ(ledger_.log(), "   qk_mem_irealloc: WARNING:   2 [p1] ptr not found at app.c:12\n");
  ledger_.skip_all();
  release(memory);
  EXPECT_EQ(ledger_.log(), "   qk_mem_ifree: WARNING:   2 [p1] ptr not found at app.c:13\n");
}

TEST_F(UnrecordedDataHandle, ReportsFailures) {
  kit::fail_request(1);
  EXPECT_EQ(allocate(100), nullptr);
  EXPECT_EQ(
      ledger_.log(),
      "   qk_mem_imalloc: ERROR: malloc of 100 at app.c:12 failed: 12 Cannot allocate memory\n");
}

}  // namespace

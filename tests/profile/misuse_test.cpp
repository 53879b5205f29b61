#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

/**
 * Pieces of blocks go back to no allocator, which would end the program at a double free. So do
 * addresses that are deregistered.
 */
namespace {

using kit::Pool;

constexpr char kPieces[] = "BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE";

class MisuseInWords : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES")); }

  kit::Scene scene_;
};

char* take(int hid, std::size_t size, int line) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

/** What is written at once when an address is freed at a line. */
std::string freed_at(int line, int hid, void* address) {
  testing::internal::CaptureStderr();
  qk_mem_ifree(hid, address, "src/b.c", line);
  return testing::internal::GetCapturedStderr();
}

std::string deregistered_at(int line, int hid, void* address) {
  testing::internal::CaptureStderr();
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, address, "src/b.c", line);
  return testing::internal::GetCapturedStderr();
}

std::string resized_at(int line, int hid, void* address) {
  testing::internal::CaptureStderr();
  qk_mem_irealloc(hid, address, 20, 16, "src/b.c", line);
  return testing::internal::GetCapturedStderr();
}

TEST_F(MisuseInWords, NamesBothFreesAndTheAllocation) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  EXPECT_EQ("", freed_at(12, pool, piece));
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 2): already freed at b.c:12, was allocated at a.c:7\n",
      freed_at(20, pool, piece));
}

TEST_F(MisuseInWords, NamesTheBlockAroundAnInnerPointer) {
  const Pool pool(kPieces, "SE");
  char* const piece = take(pool, 40, 7);
  EXPECT_EQ(
      "qkmem: free of an inner pointer at b.c:20 (event 1): 3 bytes inside a block of 40 on "
      "handle 3 SE, allocated at a.c:7\n",
      freed_at(20, pool, piece + 3));
  EXPECT_EQ(
      "qkmem: free of an inner pointer at b.c:21 (event 1): 1 byte inside a block of 40 on "
      "handle 3 SE, allocated at a.c:7\n",
      freed_at(21, pool, piece + 1));
}

TEST_F(MisuseInWords, NamesTheFreeOfTheBlockAroundAnAddress) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  EXPECT_EQ(
      "qkmem: free of freed memory at b.c:20 (event 2): 39 bytes inside a block of 40, already freed "
      "at b.c:12, was allocated at a.c:7\n",
      freed_at(20, pool, piece + 39));
}

TEST_F(MisuseInWords, DoesNotTakeTheEndOfABlockForItsInside) {
  const Pool pool;
  const Pool other(kPieces);
  char* const memory = take(pool, 40, 7);
  EXPECT_EQ(
      "qkmem: free of an unknown pointer at b.c:20 (event 1): on no handle: memory of the C "
      "library or an address that never was one\n",
      freed_at(20, other, memory + 40));
}

TEST_F(MisuseInWords, NamesTheHandleThatTheMemoryBelongsTo) {
  const Pool other(kPieces);
  const Pool owner("", "SE");
  EXPECT_EQ(
      "qkmem: free on the wrong handle at b.c:20 (event 1): belongs to handle 4 SE, allocated at "
      "a.c:7\n",
      freed_at(20, other, take(owner, 40, 7)));
}

TEST_F(MisuseInWords, FindsMemoryOfTheDataHandle) {
  const Pool pool(kPieces);
  char* const memory = take(QK_MEM_DATA_HANDLE, 40, 7);
  EXPECT_EQ(
      "qkmem: free on the wrong handle at b.c:20 (event 1): belongs to handle 2, allocated at "
      "a.c:7\n",
      freed_at(20, pool, memory));
  EXPECT_EQ(
      "qkmem: free of an inner pointer at b.c:21 (event 1): 39 bytes inside a block of 40 on "
      "handle 2, allocated at a.c:7\n",
      freed_at(21, pool, memory + 39));
}

TEST_F(MisuseInWords, SaysThatAnAddressWasNeverAllocated) {
  const Pool pool(kPieces);
  int local = 0;
  EXPECT_EQ(
      "qkmem: free of an unknown pointer at b.c:20 (event 0): on no handle: memory of the C "
      "library or an address that never was one\n",
      freed_at(20, pool, &local));
}

TEST_F(MisuseInWords, SaysThatTheMemoryWentWithItsHandle) {
  const Pool other(kPieces);
  char* memory = nullptr;
  {
    const int hid = qk_mem_new_handle("", "SE");
    memory = take(hid, 40, 7);
    qk_mem_del_handle(hid);
  }
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 2): already gone with handle 4 SE, was allocated at "
      "a.c:7\n",
      freed_at(20, other, memory));
}

TEST_F(MisuseInWords, SaysThatTheAddressIsInUseAgain) {
  const Pool pool(kPieces);
  const Pool other("", "SE");
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  qk_mem_iregister(other, QK_MEM_EXTERNAL, piece, nullptr, 40, "src/c.c", 9);
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 3): already freed at b.c:12, was allocated at a.c:7; "
      "now a block of handle 4 SE, allocated at c.c:9\n",
      freed_at(20, pool, piece));
  qk_mem_ideregister(other, QK_MEM_EXTERNAL, piece, "src/c.c", 10);
}

TEST_F(MisuseInWords, TellsARealloc) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 10, 7);
  char* const neighbour = take(pool, 10, 8);
  qk_mem_irealloc(pool, piece, 1000, 16, "src/b.c", 12);
  EXPECT_EQ(
      "qkmem: realloc of freed memory at b.c:20 (event 3): already resized at b.c:12, was "
      "allocated at a.c:7\n",
      resized_at(20, pool, piece));
  EXPECT_EQ(
      "qkmem: realloc of an inner pointer at b.c:21 (event 3): 2 bytes inside a block of 10 on "
      "handle 3, allocated at a.c:8\n",
      resized_at(21, pool, neighbour + 2));
}

TEST_F(MisuseInWords, TellsADeregistration) {
  const Pool pool;
  int own = 0;
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, &own, nullptr, 4, "src/a.c", 7);
  EXPECT_EQ("", deregistered_at(12, pool, &own));
  EXPECT_EQ(
      "qkmem: deregister of freed memory at b.c:20 (event 2): already deregistered at b.c:12, "
      "was allocated at a.c:7\n",
      deregistered_at(20, pool, &own));
}

/** Memory of ten bytes as an object. Its tracker notes when it is destroyed. */
void register_object(int hid, void* object, std::string& destroyed) {
  qk_mem_iregister(hid, QK_MEM_OBJECT, new kit::LoggingTracker("object", object, destroyed),
                   nullptr, 10, "src/a.c", 7);
}

TEST_F(MisuseInWords, TellsADeregistrationAsAnotherType) {
  std::string destroyed;
  void* const object = std::malloc(10);
  const Pool pool;
  register_object(pool, object, destroyed);
  EXPECT_EQ(
      "qkmem: deregister as another type at b.c:12 (event 2): an object, an array and external "
      "memory are three types, recorded at a.c:7\n",
      deregistered_at(12, pool, object));
  std::free(object);
}

TEST_F(MisuseInWords, TellsAFreeOfAnObject) {
  std::string destroyed;
  void* const object = std::malloc(10);
  const Pool pool;
  register_object(pool, object, destroyed);
  EXPECT_EQ(
      "qkmem: free of an object at b.c:12 (event 2): made by new and not by malloc, recorded at "
      "a.c:7\n",
      freed_at(12, pool, object));
}

TEST(SecondRegistrations, AreToldWhereTheLogWarnsOfThem) {
  kit::Scene scene("DEBUG");
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  const Pool pool;
  int own = 0;
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, &own, nullptr, 4, "src/a.c", 7);
  testing::internal::CaptureStderr();
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, &own, nullptr, 4, "src/b.c", 12);
  EXPECT_EQ(
      "qkmem: second registration at b.c:12 (event 1): the handle has a record of it already, "
      "recorded at a.c:7\n",
      testing::internal::GetCapturedStderr());
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, &own, "src/b.c", 13);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, &own, "src/b.c", 14);
}

TEST_F(MisuseInWords, TellsAReallocOfRegisteredMemory) {
  const Pool pool;
  void* const memory = std::malloc(10);
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, memory, nullptr, 10, "src/a.c", 7);
  testing::internal::CaptureStderr();
  void* const resized = qk_mem_irealloc(pool, memory, 20, 16, "src/b.c", 12);
  EXPECT_EQ(
      "qkmem: realloc of registered memory at b.c:12 (event 1): only what the library has "
      "allocated can be resized, recorded at a.c:7\n",
      testing::internal::GetCapturedStderr());
  qk_mem_free(pool, resized);
}

TEST_F(MisuseInWords, ComesOnceForEachLine) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  EXPECT_NE("", freed_at(20, pool, piece));
  EXPECT_EQ("", freed_at(20, pool, piece));
  EXPECT_EQ("", freed_at(20, pool, piece + 1));
  EXPECT_NE("", freed_at(21, pool, piece));
}

TEST_F(MisuseInWords, IsCountedInTheReportWhoseVerdictHasTheFirst) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  testing::internal::CaptureStderr();
  for (int i = 0; i < 1000; ++i) qk_mem_ifree(pool, piece, "src/b.c", 20);
  qk_mem_ifree(pool, &scene_, "src/b.c", 21);
  for (int i = 0; i < 2500; ++i) qk_mem_ifree(pool, nullptr, "src/b.c", 22);
  for (int i = 0; i < 2500; ++i) qk_mem_ifree(QK_MEM_DATA_HANDLE, nullptr, "src/b.c", 23);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(
      "qkmem: nothing is held; 1 allocation of 40 B was watched; peak 40 B at T s (event 1)\n"
      "qkmem: first misuse: double free at b.c:20 (event 2)\n"
      "qkmem: misuse, beside 5,000 frees of null\n"
      "  times  what\n"
      "  1,000  double free at b.c:20: already freed at b.c:12, was allocated at a.c:7\n"
      "      1  free of an unknown pointer at b.c:21: on no handle: memory of the C library or an "
      "address that never was one\n"
      "qkmem: the profile took M of its own\n",
      kit::text_report("SITES"));
}

TEST_F(MisuseInWords, IsNotMadeOfFreesOfNull) {
  const Pool pool;
  const Pool pieces(kPieces);
  EXPECT_EQ("", freed_at(20, pool, nullptr));
  EXPECT_EQ("", freed_at(21, pieces, nullptr));
  EXPECT_EQ("qkmem: nothing is held; 0 allocations of 0 B were watched\n",
            kit::text_report("SITES"));
}

TEST_F(MisuseInWords, GoesToStandardErrorIfTheReportIsForPrograms) {
  ASSERT_EQ(0, qk_mem_profile_config("FORMAT=JSON REPORT=/dev/null"));
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  EXPECT_NE("", freed_at(20, pool, piece));
  const std::string report = kit::requested("FORMAT=JSON").text;
  EXPECT_NE(
      std::string::npos,
      report.find("{\"text\":\"double free at b.c:20: already freed at b.c:12, was allocated at "
                  "a.c:7\",\"file\":\"b.c\",\"line\":20,\"handle\":3,\"event\":2,\"times\":1}"))
      << report;
}

TEST_F(MisuseInWords, IsSilentWhileTheProfileIsOff) {
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  ASSERT_EQ(0, qk_mem_profile_config(nullptr));
  EXPECT_EQ("", freed_at(20, pool, piece));
}

TEST(WarningsOfTheLog, ComeEachTimeBesideTheWords) {
  kit::Scene scene("DEBUG");
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  scene.skip_log();
  EXPECT_NE("", freed_at(20, pool, piece));
  EXPECT_EQ("", freed_at(20, pool, piece));
  EXPECT_EQ(
      "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at b.c:20\n"
      "   qk_mem_block_free: WARNING:   3 [p1] ptr not found at b.c:20\n",
      scene.log("qk_mem_block_free"));
}

TEST_F(MisuseInWords, ForgetsBlocksBeyondTheHistory) {
  ASSERT_EQ(0, qk_mem_profile_config("HISTORY=0"));
  const Pool pool(kPieces);
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  EXPECT_EQ(
      "qkmem: free of an unknown pointer at b.c:20 (event 2): on no handle: memory of the C "
      "library or an address that never was one\n",
      freed_at(20, pool, piece));
}

TEST_F(MisuseInWords, IsToldOnceByManyThreads) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE MULTITHREADED");
  char* const piece = take(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) qk_mem_ifree(pool, piece, "src/b.c", 20);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(
      "qkmem: double free at b.c:20 (event 2): already freed at b.c:12, was allocated at a.c:7\n",
      testing::internal::GetCapturedStderr());
  EXPECT_NE(std::string::npos, kit::text_report("SITES").find("    400  double free at b.c:20"));
}

}  // namespace

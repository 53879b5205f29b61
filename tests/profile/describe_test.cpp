#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "core/registry.h"
#include "profile/events.h"
#include "profile/pool.h"
#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "tests/kit/logging_tracker.h"
#include "tests/kit/scene.h"

extern "C" {
char qkmem_test_table[64] = {1};
void qkmem_test_function() {}
}

/** A registered address needs no memory, so that a test knows what lies around it. */
namespace {

using kit::Pool;

constexpr char kPieces[] = "BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE";

#ifdef __SANITIZE_ADDRESS__
constexpr bool kHasOwnAllocator = true;
#elif defined(__SANITIZE_THREAD__)
constexpr bool kHasOwnAllocator = true;
#else
constexpr bool kHasOwnAllocator = false;
#endif

class DescribedAddress : public testing::Test {
 protected:
  const int profile_is_off_ = unsetenv("QK_MEM_PROFILE");  // which knows the events of blocks
  kit::Scene scene_;
};

class DescribedAddressWithProfile : public DescribedAddress {
 protected:
  void SetUp() override { ASSERT_EQ(0, qk_mem_profile_config("SITES")); }
};

std::string described(const void* address) {
  char text[1024];
  const std::size_t length = qk_mem_describe(address, text, sizeof text);
  EXPECT_EQ(length, std::strlen(text));
  return text;
}

char* allocate(int hid, std::size_t size, int line) {
  return static_cast<char*>(qk_mem_imalloc(hid, size, 16, "src/a.c", line));
}

/** An address far from all memory: what is mapped later comes to lie above it. */
char* nowhere() {
  static char* const address = [] {
    constexpr std::size_t kBytes = std::size_t{1} << 30;
    void* const pages =
        mmap(nullptr, kBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    munmap(pages, kBytes);
    return static_cast<char*>(pages) + kBytes / 2;
  }();
  return address;
}

char* registered(int hid, std::size_t size, int line) {
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, nowhere(), nullptr, size, "src/a.c", line);
  return nowhere();
}

/** The name of the test program, which contains the library. */
std::string program() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string text(path, static_cast<std::size_t>(length));
  return text.substr(text.rfind('/') + 1);
}

TEST_F(DescribedAddressWithProfile, IsTheStartOfABlockOrInsideOne) {
  const Pool pool("", "SE");
  char* const block = allocate(pool, 40, 7);
  EXPECT_EQ("the start of a block of 40 on handle 3 SE, allocated at a.c:7 (event 1)",
            described(block));
  EXPECT_EQ("24 bytes inside a block of 40 on handle 3 SE, allocated at a.c:7 (event 1)",
            described(block + 24));
  EXPECT_EQ("1 byte inside a block of 40 on handle 3 SE, allocated at a.c:7 (event 1)",
            described(block + 1));
  qk_mem_free(pool, block);
}

TEST_F(DescribedAddressWithProfile, HasEventsThatAreMoreThanAMarkHasBitsFor) {
  const Pool pool;
  qk::mem::profile::event_counter.last = (std::uint64_t{1} << 32) - 2;
  char* const before = allocate(pool, 40, 7);
  char* const after = allocate(pool, 40, 8);
  EXPECT_EQ("the start of a block of 40 on handle 3, allocated at a.c:7 (event 4,294,967,295)",
            described(before));
  EXPECT_EQ("the start of a block of 40 on handle 3, allocated at a.c:8 (event 4,294,967,296)",
            described(after));
}

TEST_F(DescribedAddress, NeedsNoProfileForTheBlocksOfHandles) {
  const Pool pool;
  char* const block = allocate(pool, 4000, 7);
  EXPECT_EQ("3,999 bytes inside a block of 4,000 on handle 3, allocated at a.c:7",
            described(block + 3999));
  qk_mem_free(pool, block);
}

TEST_F(DescribedAddressWithProfile, IsKnownOnTheDataHandleWithoutRecords) {
  char* const block = allocate(QK_MEM_DATA_HANDLE, 40, 7);
  EXPECT_EQ("3 bytes inside a block of 40 on handle 2, allocated at a.c:7 (event 1)",
            described(block + 3));
  qk_mem_free(QK_MEM_DATA_HANDLE, block);
}

TEST_F(DescribedAddress, IsKnownForABlockThatIsOlderThanTheProfile) {
  const Pool pool;
  char* const block = allocate(pool, 40, 7);
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  EXPECT_EQ("the start of a block of 40 on handle 3, allocated at a.c:7", described(block));
  qk_mem_free(pool, block);
}

TEST_F(DescribedAddress, IsPastTheEndOfABlockOrInFrontOfOne) {
  const Pool pool("", "SE");
  char* const block = registered(pool, 24, 7);
  EXPECT_EQ("just past the end of a block of 24 on handle 3 SE, allocated at a.c:7",
            described(block + 24));
  EXPECT_EQ("3 bytes past the end of a block of 24 on handle 3 SE, allocated at a.c:7",
            described(block + 27));
  EXPECT_EQ("8 bytes in front of a block of 24 on handle 3 SE, allocated at a.c:7",
            described(block - 8));
}

TEST_F(DescribedAddress, IsNearABlockUpTo4095BytesAway) {
  const Pool pool;
  char* const block = registered(pool, 24, 7);
  EXPECT_EQ("4,095 bytes past the end of a block of 24 on handle 3, allocated at a.c:7",
            described(block + 24 + 4095));
  EXPECT_EQ("unknown: not mapped, no memory at all", described(block + 24 + 4096));
  EXPECT_EQ("4,095 bytes in front of a block of 24 on handle 3, allocated at a.c:7",
            described(block - 4095));
  EXPECT_EQ("unknown: not mapped, no memory at all", described(block - 4096));
}

TEST_F(DescribedAddress, IsToldByTheNearestBlock) {
  const Pool pool;
  char* const block = registered(pool, 24, 7);
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, block + 100, nullptr, 10, "src/b.c", 9);
  EXPECT_EQ("30 bytes past the end of a block of 24 on handle 3, allocated at a.c:7",
            described(block + 54));
  EXPECT_EQ("30 bytes in front of a block of 10 on handle 3, allocated at b.c:9",
            described(block + 70));
}

TEST_F(DescribedAddressWithProfile, IsABlockThatWasFreed) {
  const Pool pool(kPieces, "SE");
  char* const piece = allocate(pool, 64, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 9);
  EXPECT_EQ("the start of a block of 64 that was freed at b.c:9, was allocated at a.c:7",
            described(piece));
  EXPECT_EQ("63 bytes inside a block of 64 that was freed at b.c:9, was allocated at a.c:7",
            described(piece + 63));
}

TEST_F(DescribedAddressWithProfile, IsNearABlockThatWasFreed) {
  const Pool pool;
  char* const block = registered(pool, 24, 7);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, block, "src/b.c", 9);
  EXPECT_EQ(
      "3 bytes past the end of a block of 24 that was deregistered at b.c:9, was allocated at a.c:7",
      described(block + 27));
  EXPECT_EQ("unknown: not mapped, no memory at all", described(block + 24 + 4096));
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, block + 1000, nullptr, 10, "src/c.c", 5);
  EXPECT_EQ("973 bytes in front of a block of 10 on handle 3, allocated at c.c:5 (event 3)",
            described(block + 27))
      << "a live one counts first";
}

TEST_F(DescribedAddressWithProfile, TellsHowElseABlockEnded) {
  const Pool pool(kPieces);
  char* const registered_block = registered(pool, 24, 7);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, registered_block, "src/b.c", 9);
  EXPECT_EQ("3 bytes inside a block of 24 that was deregistered at b.c:9, was allocated at a.c:7",
            described(registered_block + 3));
  char* const piece = allocate(pool, 64, 8);
  static_cast<void>(allocate(pool, 64, 8));
  static_cast<void>(qk_mem_irealloc(pool, piece, 640, 16, "src/b.c", 10));
  EXPECT_EQ("3 bytes inside a block of 64 that was resized at b.c:10, was allocated at a.c:8",
            described(piece + 3));
  const int gone = qk_mem_new_handle(kPieces, "GO");
  char* const last = allocate(gone, 64, 5);
  qk_mem_idel_handle(gone, "src/b.c", 11);
  EXPECT_EQ("3 bytes inside a block of 64 that went with handle 4 GO, was allocated at a.c:5",
            described(last + 3));
}

TEST_F(DescribedAddressWithProfile, IsALiveBlockOnceItsMemoryIsInUseAgain) {
  const Pool pool(kPieces);
  const Pool other("", "SE");
  char* const piece = allocate(pool, 40, 7);
  qk_mem_ifree(pool, piece, "src/b.c", 12);
  qk_mem_iregister(other, QK_MEM_EXTERNAL, piece, nullptr, 40, "src/c.c", 9);
  EXPECT_EQ("3 bytes inside a block of 40 on handle 4 SE, allocated at c.c:9 (event 3)",
            described(piece + 3));
}

TEST_F(DescribedAddress, IsInAPartOfABlockOfPieces) {
  const Pool pool(kPieces, "SE");
  char* const first = allocate(pool, 64, 7);
  char* const second = allocate(pool, 64, 8);
  char* const third = allocate(pool, 64, 9);
  EXPECT_EQ("the start of a block of 64 on handle 3 SE, allocated at a.c:8", described(second));
  EXPECT_EQ(
      "in the free part of a block of 4,096 on handle 3 SE, 3 bytes past the end of a piece of 64, "
      "allocated at a.c:9",
      described(third + 67));
  EXPECT_EQ(
      "in the header of a block of 4,096 on handle 3 SE, 8 bytes in front of a piece of 64, "
      "allocated at a.c:7",
      described(first - 8));
  qk_mem_ifree(pool, second, "src/b.c", 12);
  EXPECT_EQ(
      "in a hole between the pieces of a block of 4,096 on handle 3 SE, 10 bytes past the end of a "
      "piece of 64, allocated at a.c:7",
      described(second + 10));
}

TEST_F(DescribedAddress, IsAmongPiecesThatAreInNoRecord) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096", "SE");
  char* const piece = allocate(pool, 64, 7);
  EXPECT_EQ("among the pieces, which are in no record, of a block of 4,096 on handle 3 SE",
            described(piece + 3));
  EXPECT_EQ("in the free part of a block of 4,096 on handle 3 SE", described(piece + 64));
}

TEST_F(DescribedAddress, IsFoundInTheLastOfManyBlocks) {
  const Pool pool("BLOCKMGMT BLOCKSIZE=4096", "SE");
  char* piece = nullptr;
  for (int i = 0; i < 100; ++i) piece = allocate(pool, 4000, 7);
  EXPECT_EQ("in the free part of a block of 4,096 on handle 3 SE", described(piece + 4050));
  EXPECT_EQ(nullptr, pool.record().block_index) << "a question makes no index";
}

TEST_F(DescribedAddress, IsMemoryOfTheLibrary) {
  const Pool pool("MULTITHREADED", "SE");
  qk_mem_free(pool, allocate(pool, 10, 7));
  const qk_mem_handle& handle = pool.record();
  EXPECT_EQ("memory of the library itself: handle 3 SE", described(&handle.amount));
  EXPECT_EQ("memory of the library itself: the lock of handle 3 SE", described(handle.mtx));
  const qk_mem_ptr* records = nullptr;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    if (array.ptrs != nullptr) records = array.ptrs;
  }
  EXPECT_EQ("memory of the library itself: records of handle 3 SE", described(&records[15].line));
  EXPECT_EQ("memory of the library itself: the table of handles", described(Qk_mem_handles));
  EXPECT_EQ("memory of the library itself: the table of tags", described(&Qk_mem_tags[31]));
}

TEST_F(DescribedAddressWithProfile, IsATableOfTheProfile) {
  const Pool pool(kPieces);
  qk_mem_free(pool, allocate(pool, 10, 7));
  EXPECT_EQ("memory of the library itself: a table of the profile",
            described(pool.record().profile_pool));
  const void* history = nullptr;
  qk::mem::profile::freed_blocks.for_each_chunk([&](const auto& chunk) { history = &chunk; });
  EXPECT_EQ("memory of the library itself: a table of the profile", described(history));
}

TEST_F(DescribedAddress, IsTheTrackerOfAnObject) {
  const Pool pool("", "SE");
  std::string log;
  int object = 5;
  kit::LoggingTracker tracker("T", &object, log);
  qk_mem_debug switches = {};
  qk_mem_tracker(&pool.record(), &tracker, 'W', "src/a.c", 7, &switches);
  EXPECT_EQ("memory of the library itself: the tracker of an object on handle 3 SE",
            described(&tracker));
  qk_mem_tracker(&pool.record(), &tracker, 'E', "src/a.c", 8, &switches);
}

TEST_F(DescribedAddress, IsOnTheStackOfAThread) {
  char local = 0;
  EXPECT_EQ("on the stack of the calling thread", described(&local));
  std::string from_thread;
  std::string of_thread;
  std::thread([&] {
    const char its_own = 0;
    from_thread = described(&local);
    of_thread = described(&its_own);
  }).join();
  EXPECT_EQ("on the stack of another thread", from_thread);
  EXPECT_EQ("on the stack of the calling thread", of_thread);
}

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
TEST_F(DescribedAddress, IsOnTheStackOfAThreadThatWasStarted) {
  std::string text;
  std::thread([&text] {
    const char local = 0;
    std::thread([&] { text = described(&local); }).join();
  }).join();
  EXPECT_EQ("on the stack of another thread", text);
}
#endif

TEST_F(DescribedAddress, IsAVariableOrAFunctionOfAModule) {
  EXPECT_EQ("in static data of " + program() + ": qkmem_test_table", described(qkmem_test_table));
  EXPECT_EQ("in static data of " + program() + ": qkmem_test_table+8",
            described(qkmem_test_table + 8));
  EXPECT_EQ("in code of " + program() + ": qkmem_test_function",
            described(reinterpret_cast<const void*>(qkmem_test_function)));
}

TEST_F(DescribedAddress, IsInALibraryThatTheProgramUses) {
  const std::string text = described(&environ);
  EXPECT_TRUE(text.starts_with("in static data of ")) << text;
}

TEST_F(DescribedAddress, IsInStaticDataNearABlock) {
  const Pool pool;
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, qkmem_test_table, nullptr, 16, "src/a.c", 7);
  EXPECT_EQ(
      "in static data of " + program() +
          ": qkmem_test_table+20, 4 bytes past the end of a block of 16 on handle 3, allocated "
          "at a.c:7",
      described(qkmem_test_table + 20));
}

TEST_F(DescribedAddress, IsInTheMappingOfAFile) {
  std::FILE* const file = std::fopen("mapped.bin", "w");
  ASSERT_NE(nullptr, file);
  std::fputs("text", file);
  std::fclose(file);
  const int descriptor = open("mapped.bin", O_RDONLY | O_CLOEXEC);
  void* const pages = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, descriptor, 0);
  ASSERT_NE(MAP_FAILED, pages);
  EXPECT_EQ("in the mapping of mapped.bin", described(static_cast<char*>(pages) + 100));
  munmap(pages, 4096);
  close(descriptor);
}

TEST_F(DescribedAddress, IsInTheHeap) {
  if (kHasOwnAllocator) GTEST_SKIP() << "a sanitizer's allocator uses no brk()";
  void* const memory = std::calloc(1, 100000);
  const std::string text = described(static_cast<char*>(memory) + 50000);
  std::free(memory);
  EXPECT_EQ("unknown: in the heap, but in no record of a handle", text);
}

TEST_F(DescribedAddress, IsUnknownOrNoMemory) {
  constexpr std::size_t kBytes = 3 * 65536;
  auto* const pages = static_cast<char*>(
      mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(pages + 65536, 65536, PROT_NONE);
  EXPECT_EQ("unknown: in no record of a handle", described(pages + 10000));
  EXPECT_EQ("unknown: in memory that can't be accessed", described(pages + 65536 + 10000));
  munmap(pages, kBytes);
  EXPECT_EQ("unknown: not mapped, no memory at all", described(nowhere()));
  EXPECT_EQ("unknown: not mapped, no memory at all",
            described(reinterpret_cast<void*>(UINTPTR_MAX)));  // NOLINT
  EXPECT_EQ("unknown: not mapped, no memory at all",
            described(reinterpret_cast<void*>(std::uintptr_t{1})));  // NOLINT
  EXPECT_EQ("null", described(nullptr));
}

TEST_F(DescribedAddress, IsToldBeforeTheLibraryHasStarted) {
  EXPECT_EQ("null", described(nullptr));
  EXPECT_EQ("unknown: not mapped, no memory at all", described(nowhere()));
  EXPECT_EQ(0, Qk_mem_initialized);
}

TEST_F(DescribedAddress, IsToldAsFarAsTheBufferHasRoom) {
  EXPECT_EQ(4U, qk_mem_describe(nullptr, nullptr, 0));
  char text[8] = "xxxxxxx";
  EXPECT_EQ(4U, qk_mem_describe(nullptr, text, 0));
  EXPECT_STREQ("xxxxxxx", text);
  EXPECT_EQ(4U, qk_mem_describe(nullptr, text, 1));
  EXPECT_STREQ("", text);
  EXPECT_EQ(4U, qk_mem_describe(nullptr, text, 4));
  EXPECT_STREQ("nul", text);
  EXPECT_EQ('x', text[4]);
  EXPECT_EQ(4U, qk_mem_describe(nullptr, text, 5));
  EXPECT_STREQ("null", text);
  EXPECT_EQ('x', text[5]);
}

TEST_F(DescribedAddress, IsOneLineHoweverLongItsNames) {
  const Pool pool;
  const std::string file(3000, 'f');
  qk_mem_iregister(pool, QK_MEM_EXTERNAL, nowhere(), nullptr, 24, file.c_str(), 7);
  const std::string text = described(nowhere());
  EXPECT_EQ(1022U, text.size());
  EXPECT_EQ(std::string::npos, text.find('\n'));
}

TEST_F(DescribedAddress, LeavesErrorsAsTheyAre) {
  errno = 77;
  EXPECT_EQ(4U, qk_mem_describe(nullptr, nullptr, 0));
  static_cast<void>(qk_mem_describe(nowhere(), nullptr, 0));
  EXPECT_EQ(77, errno);
  EXPECT_EQ(0, qk_mem_error());
}

}  // namespace

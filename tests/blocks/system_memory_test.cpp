#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Scene;

constexpr std::size_t kLarge = 1 << 20;
const std::string kBlocks = "BLOCKMGMT BLOCKSIZE=" + std::to_string(kLarge);

/** Large allocations, which the system's allocator counts. Sanitizers' allocators don't. */
class LargeMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    mallopt(M_MMAP_THRESHOLD, 1 << 16);
    void* memory = std::malloc(kLarge);
    const bool counts = in_use() == 1;
    std::free(memory);
    if (!counts) GTEST_SKIP() << "the allocator doesn't count large allocations";
  }

  [[nodiscard]] static int in_use() { return static_cast<int>(mallinfo2().hblks); }

  /** Memory from the system's allocator, recorded on the handle as registered. */
  static void* hold_external(const Pool& pool) {
    void* memory = std::malloc(kLarge);
    kit::hold(pool.record(), reinterpret_cast<std::uintptr_t>(memory), 'X', 1, kLarge);
    pool.record().registered = 1;
    return memory;
  }

  Scene scene_;
};

TEST_F(LargeMemory, StaysInBlocksUntilTheHandleIsDeleted) {
  const Pool pool((kBlocks + " BLOCKFREE").c_str());
  EXPECT_EQ(in_use(), 1);
  void* piece = qk_mem_imalloc(pool, 2 * kLarge, 16, "src/app.c", 1);
  EXPECT_EQ(in_use(), 2);
  qk_mem_ifree(pool, piece, "src/app.c", 2);
  EXPECT_EQ(in_use(), 2);
  qk_mem_iclear_handle(pool, "src/app.c", 3);
  EXPECT_EQ(in_use(), 2);
  qk_mem_idel_handle(pool, "src/app.c", 4);
  EXPECT_EQ(in_use(), 0);
}

TEST_F(LargeMemory, IsFreedWithTheHandleEvenInUnrecordedBlocks) {
  const Pool pool((kBlocks + " BLOCKINITIAL=3").c_str());
  EXPECT_EQ(in_use(), 3);
  qk_mem_idel_handle(pool, "src/app.c", 4);
  EXPECT_EQ(in_use(), 0);
}

TEST_F(LargeMemory, IsFreedByFreeClearAndDeletionIfRegistered) {
  for (const char* options : {"", " BLOCKFREE"}) {
    const Pool pool(("BLOCKMGMT" + std::string(options)).c_str());
    qk_mem_ifree(pool, hold_external(pool), "src/app.c", 2);
    EXPECT_EQ(in_use(), 0);
    hold_external(pool);
    qk_mem_iclear_handle(pool, "src/app.c", 3);
    EXPECT_EQ(in_use(), 0);
    hold_external(pool);
    EXPECT_EQ(in_use(), 1);
    qk_mem_idel_handle(pool, "src/app.c", 4);
    EXPECT_EQ(in_use(), 0);
  }
}

TEST_F(LargeMemory, IsFreedWhenReallocReplacesIt) {
  const Pool pool("BLOCKMGMT BLOCKFREE");
  void* memory = hold_external(pool);
  EXPECT_EQ(qk_mem_irealloc(pool, memory, kLarge, 16, "src/app.c", 5), memory);
  EXPECT_EQ(in_use(), 1);
  std::free(memory);
  memory = hold_external(pool);
  EXPECT_NE(qk_mem_irealloc(pool, memory, kLarge + 1, 16, "src/app.c", 5), nullptr);
  EXPECT_EQ(in_use(), 1) << "the new block";
}

TEST_F(LargeMemory, HoldsOnlyTheBlocksOfAManagedArray) {
  const Pool pool("BLOCKMGMT BLOCKFREE");
  void* array = nullptr;
  qk_mem_imarralloc(pool, &array, kLarge, 1, "src/app.c", 6);
  qk_mem_imarralloc(pool, &array, kLarge, 1, "src/app.c", 6);
  qk_mem_imarralloc(pool, &array, kLarge, 1, "src/app.c", 6);
  EXPECT_EQ(in_use(), 3) << "of one, two and three elements";
}

}  // namespace

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory_resource>
#include <new>
#include <string>

#include "qkmem/qkmem.hpp"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/line_above.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::line_above;
using kit::Scene;

bool is_aligned(const void* memory, std::size_t alignment) {
  return reinterpret_cast<std::uintptr_t>(memory) % alignment == 0;
}

/** Handle 3. Its pointer arrays exist already, so that each event is logged by itself. */
class MemoryResource : public ::testing::Test {
 protected:
  MemoryResource() {
    kit::make_arrays(pool_.number());
    scene_.skip_log();
    scene_.skip_trace();
  }

  Scene scene_{Environment{"DEBUG", "DB", ""}};
  qk::Handle pool_;
};

TEST_F(MemoryResource, AllocatesAtTheLocationOfItsConstruction) {
  qk::memory_resource resource(pool_);
  const std::string made = line_above();
  EXPECT_EQ(resource.handle(), 3);
  void* const memory = resource.allocate(100);
  EXPECT_EQ(scene_.log(), "   qk_mem_imalloc:        3 [p1] M 100 " + made + "\n");
  EXPECT_EQ(pool_.size(), 100U);
  scene_.skip_log();
  resource.deallocate(memory, 100);
  EXPECT_EQ(scene_.log(), "   qk_mem_ifree:          3 [p1] F " + made + "; M 100 " + made + "\n");
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(MemoryResource, AllocatesOneByteForNone) {
  qk::memory_resource resource(pool_);
  void* const memory = resource.allocate(0);
  EXPECT_NE(memory, nullptr);
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(pool_.size(), 1U);
  resource.deallocate(memory, 0);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(MemoryResource, HonoursEveryAlignment) {
  qk::memory_resource resource(pool_);
  for (std::size_t alignment = 1; alignment <= 65536; alignment *= 2) {
    for (const std::size_t size : {1U, 7U, 100U, 5000U}) {
      void* const memory = resource.allocate(size, alignment);
      EXPECT_TRUE(is_aligned(memory, alignment)) << alignment;
      std::memset(memory, 0x55, size);
      EXPECT_EQ(pool_.size(), alignment > 16 ? size + alignment : size);
      resource.deallocate(memory, size, alignment);
      EXPECT_EQ(pool_.size(), 0U);
    }
  }
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
}

TEST_F(MemoryResource, ThrowsIfMemoryRunsOut) {
  qk::memory_resource resource(pool_);
  for (const std::size_t alignment : {8U, 64U}) {
    kit::fail_request(1);
    EXPECT_THROW(static_cast<void>(resource.allocate(100, alignment)), std::bad_alloc);
  }
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(MemoryResource, ThrowsIfTheSizeOverflows) {
  qk::memory_resource resource(pool_);
  const volatile std::size_t huge = std::numeric_limits<std::size_t>::max();
  for (const std::size_t alignment : {8U, 64U}) {
    EXPECT_THROW(static_cast<void>(resource.allocate(huge, alignment)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(resource.allocate(huge - 63, alignment)), std::bad_alloc);
  }
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(MemoryResource, ThrowsIfTheHandleIsInvalid) {
  qk::memory_resource resource(99);
  EXPECT_THROW(static_cast<void>(resource.allocate(100)), std::bad_alloc);
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST_F(MemoryResource, IsEqualToOthersOfItsHandle) {
  const qk::memory_resource one(pool_);
  const qk::memory_resource same(pool_.number());
  const qk::Handle other_pool;
  const qk::memory_resource other(other_pool);
  EXPECT_TRUE(one == one);
  EXPECT_TRUE(one == same);
  EXPECT_FALSE(one == other);
  EXPECT_FALSE(one == *std::pmr::new_delete_resource());
  EXPECT_FALSE(*std::pmr::new_delete_resource() == one);
}

TEST_F(MemoryResource, FreesMemoryOfAnEqualResource) {
  qk::memory_resource one(pool_);
  qk::memory_resource same(pool_);
  same.deallocate(one.allocate(100, 64), 100, 64);
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
  EXPECT_EQ(pool_.size(), 0U);
}

TEST_F(MemoryResource, WarnsOfMemoryThatItNeverAllocated) {
  qk::memory_resource resource(pool_);
  const std::string made = line_above();
  resource.deallocate(std::malloc(10), 10);
  const std::string warning = "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at " + made + "\n";
  EXPECT_EQ(scene_.log("qk_mem_ifree"), warning + warning);
}

TEST_F(MemoryResource, FreesNothingAfterItsHandleIsDeleted) {
  auto* const handle = new qk::Handle;
  qk::memory_resource resource(*handle);
  void* const memory = resource.allocate(100);
  void* const aligned = resource.allocate(100, 64);
  delete handle;
  resource.deallocate(memory, 100);
  resource.deallocate(aligned, 100, 64);
  EXPECT_EQ(qk_mem_error(), 5566) << "the deleted handle has freed the memory";
}

TEST_F(MemoryResource, CanBeTheDefaultAndFeedOtherResources) {
  qk::memory_resource resource(pool_);
  std::pmr::set_default_resource(&resource);
  {
    std::pmr::monotonic_buffer_resource buffer;
    std::pmr::unsynchronized_pool_resource pieces;
    static_cast<void>(buffer.allocate(1000, 64));
    pieces.deallocate(pieces.allocate(24), 24);
    EXPECT_GE(pool_.size(), 1024U);
  }
  std::pmr::set_default_resource(nullptr);
  EXPECT_EQ(pool_.size(), 0U);
  EXPECT_EQ(scene_.log().find("WARNING"), std::string::npos);
}

TEST(MemoryResourceOnTheDataHandle, RecordsNothingUnlessConfigured) {
  Scene scene("");
  qk::memory_resource resource(QK_MEM_DATA_HANDLE);
  for (const std::size_t alignment : {8U, 64U}) {
    void* const memory = resource.allocate(100, alignment);
    EXPECT_TRUE(is_aligned(memory, alignment));
    EXPECT_EQ(qk_mem_size(QK_MEM_DATA_HANDLE), 0U);
    resource.deallocate(memory, 100, alignment);
  }
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(Arena, CutsPiecesAndFreesThemWhenItIsCleared) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT BLOCKSIZE=1024");
  qk::memory_resource resource(arena);
  void* const one = resource.allocate(3, 1);
  void* const four = resource.allocate(4, 4);
  void* const sixteen = resource.allocate(5, 16);
  EXPECT_EQ(kit::position_of(arena.number(), one), "block 1 at 0");
  EXPECT_EQ(kit::position_of(arena.number(), four), "block 1 at 4");
  EXPECT_EQ(kit::position_of(arena.number(), sixteen), "block 1 at 16");
  resource.deallocate(sixteen, 5, 16);
  resource.deallocate(four, 4, 4);
  EXPECT_EQ(kit::blocks_of(arena.number()), "1024:0-21");
  EXPECT_EQ(arena.clear(), 0);
  EXPECT_EQ(kit::blocks_of(arena.number()), "1024:0-0");
  EXPECT_EQ(scene.log("qk_mem_ifree"), "") << "it isn't even called";
}

TEST(Arena, HonoursEveryAlignment) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT");
  scene.skip_log();
  qk::memory_resource resource(arena);
  for (std::size_t alignment = 1; alignment <= 4096; alignment *= 2) {
    void* const memory = resource.allocate(33, alignment);
    EXPECT_TRUE(is_aligned(memory, alignment)) << alignment;
    std::memset(memory, 0x55, 33);
    resource.deallocate(memory, 33, alignment);
  }
  EXPECT_EQ(scene.log(), "");
}

TEST(Arena, FreesPiecesUnderBlockfree) {
  Scene scene("EXCEPTIONS");
  qk::Handle arena("BLOCKMGMT BLOCKFREE BLOCKSIZE=1024");
  scene.skip_log();
  qk::memory_resource resource(arena);
  void* const first = resource.allocate(32);
  void* const second = resource.allocate(32, 64);
  EXPECT_EQ(kit::blocks_of(arena.number()), "1024:0-128") << "96 for the aligned one";
  resource.deallocate(second, 32, 64);
  EXPECT_EQ(kit::blocks_of(arena.number()), "1024:0-32");
  resource.deallocate(first, 32);
  EXPECT_EQ(kit::blocks_of(arena.number()), "1024:0-0");
  EXPECT_EQ(scene.log(), "");
}

}  // namespace

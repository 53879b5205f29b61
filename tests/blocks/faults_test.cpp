#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Scene;

/** Memory that the scenario holds, and the byte that fills it. */
struct Held {
  char* memory;
  std::size_t size;
  char mark;
};

/**
 * A program that uses a block-managed handle in every way and continues after each failure. It
 * fills all memory that it gets, so that memory handed out twice is noticed. It allocates nothing
 * elsewhere.
 */
class Scenario {
 public:
  explicit Scenario(const char* options) : options_(options) {}

  void run() {
    hid_ = qk_mem_inew_handle(options_, "AB", "src/app.c", 1);
    if (hid_ == 0) return;
    char* last = nullptr;
    for (const std::size_t size : {10, 20, 30, 100, 64, 5}) last = allocate(size);
    char* first = count_ == 0 ? nullptr : held_[0].memory;
    replace(first, 40);
    replace(last, 200);
    char* array = hold(qk_mem_icalloc(hid_, 3, 7, 8, "src/app.c", 3), 21);
    hold(qk_mem_istrdup(hid_, "hello", "src/app.c", 4), 6);
    release(array);
    replace(allocate(12), 4);
    replace(nullptr, 90);
    use_managed_array();
    expect_marks();
    qk_mem_iclear_handle(hid_, "src/app.c", 9);
    count_ = 0;
    for (const std::size_t size : {50, 50, 150}) allocate(size);
    expect_marks();
    expect_whole_list();
  }

  /** Deletes the handle, if it was created; nothing may be left. */
  void end() const {
    if (hid_ != 0) {
      EXPECT_EQ(qk_mem_idel_handle(hid_, "src/app.c", 10), 0);
    }
    EXPECT_EQ(qk_mem_tag_size("AB"), 0);
  }

 private:
  char* hold(void* memory, std::size_t size) {
    auto* bytes = static_cast<char*>(memory);
    if (bytes == nullptr) return nullptr;
    held_[count_++] = {bytes, size, ++mark_};
    std::memset(bytes, mark_, size);
    return bytes;
  }

  char* allocate(std::size_t size) {
    return hold(qk_mem_imalloc(hid_, size, 8, "src/app.c", 2), size);
  }

  void release(char* memory) {
    if (memory == nullptr) return;
    forget(memory);
    qk_mem_ifree(hid_, memory, "src/app.c", 5);
  }

  /** On failure the program keeps the old memory. */
  void replace(char* memory, std::size_t size) {
    void* moved = qk_mem_irealloc(hid_, memory, size, 8, "src/app.c", 6);
    if (moved == nullptr) return;
    forget(memory);
    hold(moved, size);
  }

  void forget(const char* memory) {
    for (int i = 0; i < count_; ++i) {
      if (held_[i].memory != memory) continue;
      held_[i] = held_[--count_];
      return;
    }
  }

  void use_managed_array() {
    void* array = nullptr;
    std::int64_t filled = 0;
    for (int i = 0; i < 20; ++i) {
      const std::int64_t index = qk_mem_imarralloc(hid_, &array, 8, 3, "src/app.c", 7);
      if (index < 0) continue;
      EXPECT_EQ(index, filled++);
      std::memcpy(static_cast<char*>(array) + 8 * index, "abcdefgh", 8);
    }
    for (std::int64_t i = 0; i < filled; ++i) {
      EXPECT_EQ(std::memcmp(static_cast<char*>(array) + 8 * i, "abcdefgh", 8), 0);
    }
    qk_mem_iarrfree(hid_, &array, "src/app.c", 8);
  }

  void expect_marks() const {
    for (int i = 0; i < count_; ++i) {
      const Held& held = held_[i];
      bool whole = true;
      for (std::size_t at = 0; at < held.size; ++at) whole &= held.memory[at] == held.mark;
      EXPECT_TRUE(whole) << held.size << " bytes";
    }
  }

  /** The handle is charged for exactly the blocks of its list. */
  void expect_whole_list() const {
    const qk_mem_handle& handle = kit::handle_of(hid_);
    std::uint64_t bytes = 0;
    std::uint32_t blocks = 0;
    for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
      bytes += Qk_mem_blocksize + block->capacity;
      ++blocks;
      EXPECT_LE(block->low_mark, block->high_mark);
      EXPECT_LE(block->high_mark, block->capacity);
    }
    EXPECT_EQ(handle.amount, bytes);
    EXPECT_EQ(handle.num_blocks, blocks);
    EXPECT_EQ(qk_mem_tag_size("AB"), static_cast<std::int64_t>(bytes));
  }

  const char* options_;
  int hid_ = 0;
  char mark_ = 0;
  Held held_[32] = {};
  int count_ = 0;
};

struct Case {
  const char* name;
  const char* debug;
  const char* options;
};

class FailureOfAnyRequest : public ::testing::TestWithParam<Case> {};

constexpr Case kCases[] = {
    {"Plain", "", "BLOCKMGMT BLOCKSIZE=64"},
    {"Blockfree", "", "BLOCKMGMT BLOCKFREE BLOCKSIZE=64 BLOCKINITIAL=2"},
    {"Shared", "", "MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=64"},
    {"Recorded", "EXCEPTIONS", "MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=64"},
    {"RecordedPlain", "DEBUG", "BLOCKMGMT BLOCKSIZE=64 BLOCKINITIAL=3"},
    {"WithoutBlocks", "DEBUG", "BLOCKMGMT BLOCKFREE BLOCKSIZE=64 BLOCKINITIAL=0"},
};

INSTANTIATE_TEST_SUITE_P(On, FailureOfAnyRequest, ::testing::ValuesIn(kCases),
                         [](const auto& row) { return row.param.name; });

TEST_P(FailureOfAnyRequest, LeavesTheProgramsMemoryIntact) {
  Scene scene(Environment{GetParam().debug, "DB", ""});
  qk_mem_init();
  int failing = 0;
  do {
    ++failing;
    Scenario scenario(GetParam().options);
    kit::fail_request(failing);
    scenario.run();
    kit::let_succeed();
    scenario.end();
    ASSERT_FALSE(HasFailure()) << "when request " << failing << " fails";
  } while (kit::has_failed());
  EXPECT_GT(failing, 5);
  Scenario last(GetParam().options);
  last.run();
  last.end();
}

}  // namespace

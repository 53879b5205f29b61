#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/blocks.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Pool;
using kit::Scene;

std::int64_t next(int hid, void** array, std::size_t size = 8, std::size_t factor = 4) {
  return qk_mem_imarralloc(hid, array, size, factor, "src/app.c", 12);
}

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

/** The header in front of an array's elements: "last 0 of 4". */
std::string header_of(const void* array) {
  std::uint64_t words[2];
  std::memcpy(words, static_cast<const char*>(array) - 16, sizeof words);
  return "last " + std::to_string(words[0]) + " of " + std::to_string(words[1]);
}

/** A full array of four elements with "abcdefgh" in each. */
void* make_full_array(int hid) {
  void* array = nullptr;
  for (int i = 0; i < 4; ++i) {
    next(hid, &array);
    std::memcpy(static_cast<char*>(array) + 8 * i, "abcdefgh", 8);
  }
  return array;
}

std::string elements_of(const void* array) { return {static_cast<const char*>(array), 32}; }

const std::string kElements = "abcdefghabcdefghabcdefghabcdefgh";

TEST(MisuseOfManagedArray, IsReportedAsConfigured) {
  struct {
    const char* debug;
    bool next_warns;
    bool free_warns;
  } const rows[] = {
      {"DEBUG", true, true},
      {"EXCEPTIONS", true, true},
      {"EXCEPTIONS=qk_imarralloc", true, false},
      {"DEBUG=qk_iarrfree", false, true},
      {"EXCEPTIONS TRACE=not,qk_imarralloc,qk_iarrfree", true, true},
      {"DEBUG=not,qk_imarralloc", false, true},
      {"TRACE SUMMARY CTRLBLKS", false, false},
  };
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  for (const auto& row : rows) {
    configure(row.debug);
    scene.skip_log();
    void* array = nullptr;
    next(2, nullptr);
    next(2, &array, 0, 4);
    next(2, &array, 8, 0);
    EXPECT_EQ(scene.log(),
              row.next_warns
                  ? "   qk_mem_imarralloc: WARNING: marralloc of NULL address at app.c:12\n"
                    "   qk_mem_imarralloc: WARNING: marralloc of element_size 0 at app.c:12\n"
                    "   qk_mem_imarralloc: WARNING: marralloc of block_factor 0 at app.c:12\n"
                  : "")
        << row.debug;
    scene.skip_log();
    qk_mem_iarrfree(2, nullptr, "lib/other.c", 80);
    EXPECT_EQ(scene.log(),
              row.free_warns
                  ? "   qk_mem_iarrfree: WARNING: arrfree of NULL address at other.c:80\n"
                  : "")
        << row.debug;
  }
}

TEST(MisuseOfManagedArray, IsDetectedOnAnExistingArrayToo) {
  Scene scene;
  Pool pool;
  void* array = make_full_array(pool);
  void* const before = array;
  EXPECT_EQ(next(pool, &array, 0, 4), -2);
  EXPECT_EQ(next(pool, &array, 8, 0), -3);
  EXPECT_EQ(array, before);
  EXPECT_EQ(header_of(array), "last 3 of 4");
}

TEST(MisuseOfManagedArray, IncludesAnInvalidHandle) {
  Scene scene("DEBUG");
  Pool pool;
  void* array = make_full_array(pool);
  void* const before = array;
  void* none = nullptr;
  scene.skip_log();
  EXPECT_EQ(next(9, &none), -2);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(next(9, &array), -2);
  EXPECT_EQ(array, before);
  EXPECT_EQ(header_of(array), "last 3 of 4");
  EXPECT_EQ(scene.log(),
            "   qk_mem_icalloc: ERROR: invalid hid 9 at app.c:12\n"
            "   qk_mem_irealloc: ERROR: invalid hid 9 at app.c:12\n");
}

class FailureOfManagedArray : public ::testing::TestWithParam<const char*> {};

std::string name_of_handle(const ::testing::TestParamInfo<const char*>& row) {
  const char* const names[] = {"Ordinary", "Blocks", "SharedBlocks"};
  return names[row.index];
}

INSTANTIATE_TEST_SUITE_P(On, FailureOfManagedArray,
                         ::testing::Values("", "BLOCKMGMT BLOCKFREE BLOCKSIZE=64",
                                           "MULTITHREADED BLOCKMGMT BLOCKFREE BLOCKSIZE=64"),
                         name_of_handle);

TEST_P(FailureOfManagedArray, LeavesThePointerNullInTheFirstCall) {
  Scene scene;
  Pool pool(GetParam());
  void* array = nullptr;
  kit::fail_request(1);
  EXPECT_EQ(next(pool, &array, 100, 4), -2);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(next(pool, &array, 100, 4), 0);
}

TEST_P(FailureOfManagedArray, LeavesTheArrayIntactWhenItGrows) {
  Ledger ledger(Environment{"", "", ""}, GetParam());
  void* array = make_full_array(ledger.pool);
  void* const before = array;
  const std::string record = ledger.record(static_cast<char*>(array) - 16);
  const std::string books = ledger.sums();
  int failing = 1;
  for (;; ++failing) {
    kit::fail_request(failing);
    const std::int64_t index = next(ledger.pool, &array, 8, 100);
    kit::let_succeed();
    if (!kit::has_failed()) {
      EXPECT_EQ(index, 4);
      break;
    }
    ASSERT_EQ(index, -2) << failing;
    EXPECT_EQ(qk_mem_error(), 5012) << failing;
    EXPECT_EQ(array, before) << failing;
    EXPECT_EQ(header_of(array), "last 3 of 4") << failing;
    EXPECT_EQ(elements_of(array), kElements) << failing;
    EXPECT_EQ(ledger.record(static_cast<char*>(array) - 16), record) << failing;
    EXPECT_EQ(ledger.sums(), books) << failing;
    Qk_mem_error = 0;
  }
  EXPECT_GT(failing, 1);
  EXPECT_EQ(header_of(array), "last 4 of 104");
  EXPECT_EQ(elements_of(array), kElements);
  qk_mem_iarrfree(ledger.pool, &array, "lib/other.c", 80);
}

TEST_P(FailureOfManagedArray, IsLoggedUnderExceptionsWhenItGrows) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, GetParam());
  void* array = make_full_array(ledger.pool);
  for (int failing = 1;; ++failing) {
    ledger.skip_all();
    kit::fail_request(failing);
    next(ledger.pool, &array, 8, 100);
    kit::let_succeed();
    if (!kit::has_failed()) break;
    EXPECT_NE(ledger.log().find("ERROR: "), std::string::npos) << failing;
    EXPECT_NE(ledger.log().find("at app.c:12"), std::string::npos) << failing;
  }
}

TEST(ManagedArrayInBlocks, ReportsThatTheCopyForItsGrowthFailed) {
  Ledger ledger(Environment{"EXCEPTIONS", "", ""}, "BLOCKMGMT BLOCKFREE BLOCKSIZE=64");
  void* array = make_full_array(ledger.pool);
  ledger.skip_all();
  kit::fail_request(1);
  EXPECT_EQ(next(ledger.pool, &array, 8, 100), -2);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imarralloc: ERROR: malloc of 48 at app.c:12 failed: 12 Cannot allocate "
            "memory\n");
}

TEST_P(FailureOfManagedArray, DoesNotHandOutTheArraysMemory) {
  Scene scene;
  Pool pool(GetParam());
  void* array = make_full_array(pool);
  for (const int failing : {1, 2}) {
    kit::fail_request(failing);
    next(pool, &array, 8, 100);
    kit::let_succeed();
    for (const std::size_t size : {16, 8, 48, 64}) {
      std::memset(qk_mem_imalloc(pool, size, 1, "src/app.c", 13), 'x', size);
    }
    EXPECT_EQ(elements_of(array), kElements);
  }
}

TEST_P(FailureOfManagedArray, SetsCode5012IfASizeOverflows) {
  Ledger ledger(Environment{"", "", ""}, GetParam());
  void* array = make_full_array(ledger.pool);
  void* const before = array;
  const std::string books = ledger.sums();
  struct {
    std::size_t size;
    std::size_t factor;
  } const rows[] = {
      {SIZE_MAX, SIZE_MAX},    {SIZE_MAX, 2},      {2, SIZE_MAX},     {SIZE_MAX / 2 + 1, 2},
      {SIZE_MAX / 16 + 1, 16}, {SIZE_MAX, 1},      {1, SIZE_MAX},     {SIZE_MAX - 15, 1},
      {1, SIZE_MAX - 14},      {1, SIZE_MAX - 16}, {SIZE_MAX / 2, 1},
  };
  for (const auto& row : rows) {
    void* none = nullptr;
    Qk_mem_error = 0;
    EXPECT_EQ(next(ledger.pool, &none, row.size, row.factor), -2) << row.size << row.factor;
    EXPECT_EQ(qk_mem_error(), 5012) << row.size << "*" << row.factor;
    EXPECT_EQ(none, nullptr);
  }
  for (const std::size_t factor :
       {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4, SIZE_MAX / 8, SIZE_MAX / 8 - 3, SIZE_MAX / 16}) {
    Qk_mem_error = 0;
    EXPECT_EQ(next(ledger.pool, &array, 8, factor), -2) << factor;
    EXPECT_EQ(qk_mem_error(), 5012) << factor;
    EXPECT_EQ(array, before) << factor;
  }
  EXPECT_EQ(header_of(array), "last 3 of 4");
  EXPECT_EQ(elements_of(array), kElements);
  EXPECT_EQ(ledger.sums(), books);
  EXPECT_EQ(next(ledger.pool, &array), 4);
}

TEST(ManagedArrayWithoutBlockfree, CannotGrowAndStaysAsItIs) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""}, "BLOCKMGMT BLOCKSIZE=256");
  void* array = make_full_array(ledger.pool);
  void* const before = array;
  ledger.skip_all();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(next(ledger.pool, &array), -2);
    EXPECT_EQ(array, before);
    EXPECT_EQ(header_of(array), "last 3 of 4");
    EXPECT_EQ(elements_of(array), kElements);
  }
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at app.c:12\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at app.c:12\n"
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at app.c:12\n"
            "   qk_mem_irealloc: WARNING: realloc on handle 3 with blockmgmt at app.c:12\n");
  EXPECT_EQ(ledger.trace(), "");
  EXPECT_EQ(kit::blocks_of(ledger.pool), "256:0-48");
}

TEST(ManagedArrayWithoutBlockfree, CannotGrowEvenIfItIsRecorded) {
  Ledger ledger(Environment{"DEBUG", "DB", ""}, "BLOCKMGMT BLOCKSIZE=256");
  void* array = make_full_array(ledger.pool);
  const std::string record = ledger.record(static_cast<char*>(array) - 16);
  EXPECT_EQ(next(ledger.pool, &array), -2);
  EXPECT_EQ(elements_of(array), kElements);
  EXPECT_EQ(ledger.record(static_cast<char*>(array) - 16), record);
  qk_mem_iarrfree(ledger.pool, &array, "lib/other.c", 80);
  EXPECT_EQ(array, nullptr) << "although the piece stays until the handle is cleared";
  EXPECT_EQ(kit::blocks_of(ledger.pool), "256:0-48");
}

}  // namespace

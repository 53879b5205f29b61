#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/registry.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;
using kit::Pool;
using kit::Scene;

constexpr char kFile[] = "src/app.c";

/** Expects the library to still work: to allocate, resize and free, and to account for that. */
void expect_usable() {
  const int hid = qk_mem_inew_handle("MULTITHREADED", "", kFile, 1);
  ASSERT_GT(hid, 2);
  void* memory = qk_mem_imalloc(hid, 10, 16, kFile, 2);
  ASSERT_NE(memory, nullptr);
  memory = qk_mem_irealloc(hid, memory, 100, 16, kFile, 3);
  EXPECT_EQ(qk_mem_isize(hid, kFile, 4), 100U);
  qk_mem_ifree(hid, memory, kFile, 5);
  EXPECT_EQ(qk_mem_isize(hid, kFile, 6), 0U);
  EXPECT_EQ(qk_mem_idel_handle(hid, kFile, 7), 0);
}

/** Calls every entry point that takes a location with this one. */
void call_everything_from(const char* file, int line) {
  const int hid = qk_mem_inew_handle("", "AB", file, line);
  const int blocks = qk_mem_inew_handle("BLOCKMGMT BLOCKFREE", "", file, line);
  for (const int id : {hid, blocks, 2, 77}) {
    void* memory = qk_mem_imalloc(id, 10, 16, file, line);
    memory = qk_mem_irealloc(id, memory, 20, 16, file, line);
    memory = qk_mem_irecalloc(id, memory, 5, 8, 2, 16, file, line);
    qk_mem_ifree(id, memory, file, line);
    qk_mem_ifree(id, nullptr, file, line);
    (void)qk_mem_icalloc(id, 2, 3, 16, file, line);
    (void)qk_mem_istrdup(id, "text", file, line);
    (void)qk_mem_isize(id, file, line);
    (void)qk_mem_is_recorded(id, memory, file, line);
    (void)qk_mem_frees_singly(id, file, line);
    void* array = nullptr;
    (void)qk_mem_imarralloc(id, &array, 8, 2, file, line);
    qk_mem_iarrfree(id, &array, file, line);
    void* external = std::malloc(5);
    qk_mem_iregister(id, QK_MEM_EXTERNAL, external, nullptr, 5, file, line);
    qk_mem_iregister(id, QK_MEM_EXTERNAL, external, nullptr, 5, file, line);
    qk_mem_ideregister(id, QK_MEM_EXTERNAL, external, file, line);
    qk_mem_ideregister(id, QK_MEM_EXTERNAL, external, file, line);
    std::free(external);
  }
  (void)qk_mem_iclear_handle(blocks, file, line);
  (void)kit::dump("", 0x3f);
  (void)qk_mem_idel_handle(hid, file, line);
  (void)qk_mem_idel_handle(blocks, file, line);
  (void)qk_mem_idel_handle(2, file, line);
}

void expect_in_lines_of_every_routine(Scene& scene, const std::string& location) {
  for (const char* routine :
       {"qk_mem_inew_handle", "qk_mem_idel_handle", "qk_mem_iclear_handle", "qk_mem_imalloc",
        "qk_mem_icalloc", "qk_mem_irealloc", "qk_mem_ifree", "qk_mem_istrdup", "qk_mem_isize",
        "qk_mem_is_recorded", "qk_mem_frees_singly", "qk_mem_iregister", "qk_mem_ideregister"}) {
    EXPECT_NE(scene.log(routine).find(location), std::string::npos) << routine << location;
  }
}

TEST(HostileLocation, IsShownAsNullWithoutAFile) {
  Scene scene(Environment{"DEBUG CTRLBLKS", "DB", "OPTIONS=HANDLES,MGMT,BLOCKS,POINTERS"});
  call_everything_from(nullptr, 5);
  expect_in_lines_of_every_routine(scene, "(null):5");
  EXPECT_NE(scene.trace().find("(null) 5"), std::string::npos);
  expect_usable();
}

TEST(HostileLocation, MayHaveAnyLineNumber) {
  Scene scene(Environment{"DEBUG", "DB", ""});
  for (const int line : {INT_MIN, -1, 0, 65535, 65536, INT_MAX}) {
    call_everything_from(kFile, line);
    expect_in_lines_of_every_routine(scene, "app.c:" + std::to_string(line));
  }
  expect_usable();
}

std::size_t longest_line(const std::string& text) {
  std::size_t longest = 0;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    longest = std::max(longest, end - begin + 1);
  }
  return longest;
}

TEST(HostileLocation, IsCutToKeepLinesWithin1023Characters) {
  static const std::string file = "folder/" + std::string(5000, 'f');
  Scene scene(Environment{"DEBUG CTRLBLKS", "DB", "OPTIONS=HANDLES,MGMT,BLOCKS,POINTERS"});
  call_everything_from(file.c_str(), 5);
  std::fflush(nullptr);
  EXPECT_EQ(longest_line(kit::contents("qkmem.log")), 1023U);
  EXPECT_LE(longest_line(kit::contents("qkmem.tdf")), 1023U);

  expect_usable();
}

TEST(HostileLocation, ShowsPercentSignsAsTheyAre) {
  Scene scene(Environment{"DEBUG CTRLBLKS", "DB", "OPTIONS=HANDLES,MGMT,BLOCKS,POINTERS"});
  call_everything_from("src/%s%n%d%1000c.c", 5);
  EXPECT_NE(scene.log().find("%s%n%d%1000c.c:5"), std::string::npos);
  EXPECT_NE(scene.trace().find("%s%n%d%1000c.c 5"), std::string::npos);
  expect_usable();
}

TEST(NullText, DoesNoHarmInAnyCall) {
  Scene scene("EXCEPTIONS");
  const int hid = qk_mem_inew_handle(nullptr, nullptr, nullptr, 0);
  EXPECT_EQ(hid, 3);
  EXPECT_EQ(qk_mem_istrdup(hid, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(qk_mem_istrdup(QK_MEM_DATA_HANDLE, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(qk_mem_tag_size(nullptr), 0);
  EXPECT_NE(kit::dump(nullptr, QK_MEM_DUMP_SUMMARY), "");
  EXPECT_EQ(qk_mem_baseline(nullptr), 0);
  long answer = -1;
  EXPECT_EQ(qk_mem_info(nullptr, nullptr, &answer), 0);
  EXPECT_EQ(answer, 0);
  EXPECT_EQ(qk_mem_info("CURRENT_ALLOC", nullptr, &answer), 0);
  qk::Status status;
  EXPECT_EQ(qk_mem_debug_config(nullptr, &status), 0);
  EXPECT_EQ(qk_mem_options(nullptr, &status), 0);
  EXPECT_EQ(qk_mem_dump_config(nullptr, &status), 10036);
  expect_usable();
}

TEST(NullAnswer, IsNotWrittenTo) {
  Scene scene("EXCEPTIONS");
  EXPECT_EQ(qk_mem_info("CURRENT_ALLOC", "", nullptr), 0);
  EXPECT_EQ(qk_mem_info("NONSENSE", "", nullptr), -1);
  qk::Status status;
  EXPECT_EQ(qk_mem_debug_settings(nullptr, &status), 0);
  expect_usable();
}

struct Number {
  const char* name;
  int hid;
};

class HostileNumber : public ::testing::TestWithParam<Number> {};

constexpr Number kNumbers[] = {
    {"Smallest", INT_MIN}, {"MinusOne", -1},        {"Zero", 0},          {"Deleted", 4},
    {"NextFree", 5},       {"BehindTheTable", 513}, {"Largest", INT_MAX}, {"LargeNegative", -4097},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileNumber, ::testing::ValuesIn(kNumbers),
                         [](const auto& row) { return row.param.name; });

TEST_P(HostileNumber, IsRefusedWithCode5566) {
  Ledger ledger("EXCEPTIONS");
  const Pool deleted;
  qk_mem_idel_handle(deleted, kFile, 1);
  void* memory = qk_mem_imalloc(ledger.pool, 10, 16, kFile, 2);
  const std::string books = ledger.sums();
  const int hid = GetParam().hid;
  const auto expect_code = [](int line) {
    EXPECT_EQ(qk_mem_error(), 5566) << "line " << line;
    Qk_mem_error = 0;
  };
  EXPECT_EQ(qk_mem_idel_handle(hid, kFile, 3), 5566);
  expect_code(__LINE__);
  EXPECT_EQ(qk_mem_iclear_handle(hid, kFile, 4), 5566);
  expect_code(__LINE__);
  EXPECT_EQ(qk_mem_is_recorded(hid, memory, kFile, 5), 0);
  expect_code(__LINE__);
  EXPECT_EQ(qk_mem_frees_singly(hid, kFile, 6), 0);
  expect_code(__LINE__);
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, memory, nullptr, 10, kFile, 7);
  expect_code(__LINE__);
  qk_mem_ideregister(hid, QK_MEM_EXTERNAL, memory, kFile, 8);
  expect_code(__LINE__);
  void* array = nullptr;
  EXPECT_EQ(qk_mem_imarralloc(hid, &array, 8, 2, kFile, 9), -2);
  expect_code(__LINE__);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(ledger.sums(), books);
  expect_usable();
}

TEST_P(HostileNumber, SelectsNothingInAFilter) {
  Scene scene("EXCEPTIONS");
  const Pool first;
  const Pool deleted;
  qk_mem_idel_handle(deleted, kFile, 1);
  const bool selects_all = GetParam().hid == 0;
  const std::string filter = "HANDLE=" + std::to_string(GetParam().hid);
  long answer = -1;
  EXPECT_EQ(qk_mem_info("CURRENT_PTRS", filter.c_str(), &answer), 0);
  EXPECT_EQ(answer, 0);
  EXPECT_EQ(kit::dump(filter.c_str(), QK_MEM_DUMP_HANDLES).find("pool.c") != std::string::npos,
            selects_all);
  EXPECT_EQ(qk_mem_baseline(filter.c_str()), 0);
  expect_usable();
}

/** Sizes for which there is never enough memory. */
constexpr std::size_t kHugeSizes[] = {SIZE_MAX,
                                      SIZE_MAX - 1,
                                      SIZE_MAX - 15,
                                      SIZE_MAX - 31,
                                      SIZE_MAX - 32,
                                      SIZE_MAX / 2 + 1,
                                      std::size_t{PTRDIFF_MAX} - 31};

struct Options {
  const char* name;
  const char* options;
};

class HostileSize : public ::testing::TestWithParam<Options> {};

constexpr Options kHandles[] = {
    {"Ordinary", ""},
    {"Shared", "MULTITHREADED"},
    {"Blocks", "BLOCKMGMT"},
    {"BlocksOfFreeablePieces", "BLOCKMGMT BLOCKFREE BLOCKINITIAL=0"},
    {"SharedBlocksForEachPiece", "BLOCKMGMT BLOCKFREE MULTITHREADED BLOCKSIZE=0"},
};

INSTANTIATE_TEST_SUITE_P(On, HostileSize, ::testing::ValuesIn(kHandles),
                         [](const auto& row) { return row.param.name; });

TEST_P(HostileSize, FailsForLackOfMemoryAtEveryAlignment) {
  Ledger ledger("EXCEPTIONS");
  const Pool pool(GetParam().options);
  void* held = qk_mem_imalloc(pool, 33, 1, kFile, 1);
  const std::string data = kit::data_of(pool);
  for (const std::size_t size : kHugeSizes) {
    for (const int alignment : {1, 16, 32, 1 << 30, INT_MAX}) {
      Qk_mem_error = 0;
      EXPECT_EQ(qk_mem_imalloc(pool, size, alignment, kFile, 2), nullptr) << size;
      EXPECT_EQ(qk_mem_error(), 5012) << size << " " << alignment;
      EXPECT_EQ(qk_mem_icalloc(pool, 1, size, alignment, kFile, 3), nullptr) << size;
      EXPECT_EQ(qk_mem_irealloc(pool, nullptr, size, alignment, kFile, 4), nullptr) << size;
      EXPECT_EQ(qk_mem_irealloc(pool, held, size, alignment, kFile, 5), nullptr) << size;
    }
  }
  EXPECT_EQ(kit::data_of(pool), data);
  expect_usable();
}

TEST_P(HostileSize, FailsForLackOfMemoryInManagedArrays) {
  Ledger ledger("EXCEPTIONS");
  const Pool pool(GetParam().options);
  for (const std::size_t size : kHugeSizes) {
    for (const std::size_t factor : {std::size_t{1}, std::size_t{2}, SIZE_MAX}) {
      void* array = nullptr;
      Qk_mem_error = 0;
      EXPECT_EQ(qk_mem_imarralloc(pool, &array, size, factor, kFile, 1), -2) << size;
      EXPECT_EQ(qk_mem_error(), 5012);
      EXPECT_EQ(array, nullptr);
      EXPECT_EQ(qk_mem_imarralloc(pool, &array, factor, size, kFile, 2), -2) << size;
    }
  }
  expect_usable();
}

TEST(HostileAlignment, IsRefusedOrYieldsAUsablePiece) {
  Scene scene("EXCEPTIONS");
  const Pool pool("BLOCKMGMT BLOCKFREE BLOCKSIZE=200");
  for (const int alignment : {INT_MIN, -16, -1, 0}) {
    Qk_mem_error = 0;
    EXPECT_EQ(qk_mem_imalloc(pool, 8, alignment, kFile, 1), nullptr) << alignment;
    EXPECT_EQ(qk_mem_error(), 5022) << alignment;
  }
  for (const int alignment : {1, 3, 5, 7, 24, 64, 199, 200, 201, 4096, 1 << 30, INT_MAX}) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{50}, std::size_t{199}}) {
      void* piece = qk_mem_imalloc(pool, size, alignment, kFile, 2);
      ASSERT_NE(piece, nullptr) << alignment;
      std::memset(piece, 'x', size);
    }
  }
  EXPECT_EQ(qk_mem_iclear_handle(pool, kFile, 3), 0);
  expect_usable();
}

TEST(HostileAlignment, IsIgnoredOnAnOrdinaryHandle) {
  Scene scene("EXCEPTIONS");
  const Pool pool;
  for (const int alignment : {INT_MIN, -1, 0, 3, 4097, INT_MAX}) {
    void* memory = qk_mem_imalloc(pool, 40, alignment, kFile, 1);
    memory = qk_mem_irealloc(pool, memory, 80, alignment, kFile, 2);
    ASSERT_NE(memory, nullptr) << alignment;
    qk_mem_ifree(pool, memory, kFile, 3);
  }
  EXPECT_EQ(scene.log(), "QK_MEM_DEBUG:  initializing options [EXCEPTIONS]\n");
}

TEST(HostileType, IsRegisteredAsExternalMemory) {
  Ledger ledger("EXCEPTIONS");
  for (const int type : {INT_MIN, -1, 3, 256, 257, INT_MAX}) {
    void* memory = std::malloc(10);
    qk_mem_iregister(ledger.pool, type, memory, nullptr, 10, kFile, 1);
    EXPECT_EQ(ledger.record(memory).substr(0, 6), "X 1/10") << type;
    qk_mem_ideregister(ledger.pool, type, memory, kFile, 2);
    EXPECT_EQ(ledger.record(memory), "none") << type;
    std::free(memory);
  }
  expect_usable();
}

TEST(HostileType, RecordsNothingWithoutAnAddress) {
  Ledger ledger("EXCEPTIONS");
  for (const int type : {0, 1, 2, 3, -1}) {
    qk_mem_iregister(ledger.pool, type, nullptr, nullptr, SIZE_MAX, kFile, 1);
    qk_mem_ideregister(ledger.pool, type, nullptr, kFile, 2);
  }
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  expect_usable();
}

TEST(HostileSections, AreIgnoredIfTheyDoNotExist) {
  Scene scene("EXCEPTIONS");
  const Pool pool;
  EXPECT_EQ(kit::dump("", 0xfffffe00U | QK_MEM_DUMP_HANDLES), kit::dump("", QK_MEM_DUMP_HANDLES));
  (void)kit::dump("", UINT_MAX);
  expect_usable();
}

TEST(OverlongOptions, AreRefusedByEveryCall) {
  Scene scene("EXCEPTIONS");
  const std::string text(100000, 'x');
  qk_mem_init();
  EXPECT_EQ(qk_mem_inew_handle(text.c_str(), "", kFile, 1), 0);
  EXPECT_EQ(qk_mem_error(), 11102);
  EXPECT_EQ(qk_mem_inew_handle("", text.c_str(), kFile, 1), 0);
  EXPECT_EQ(qk_mem_error(), 11110);
  EXPECT_EQ(qk_mem_tag_size(text.c_str()), 0);
  qk::Status status;
  EXPECT_EQ(qk_mem_debug_config(text.c_str(), &status), 10037);
  EXPECT_EQ(qk_mem_dump_config(text.c_str(), &status), 10037);
  EXPECT_EQ(qk_mem_options(text.c_str(), &status), 10037);
  long answer = 7;
  EXPECT_EQ(qk_mem_info(text.c_str(), "", &answer), -1);
  EXPECT_EQ(qk_mem_error(), 11102);
  EXPECT_EQ(qk_mem_info("CURRENT_ALLOC", text.c_str(), &answer), -1);
  EXPECT_EQ(answer, 7);
  EXPECT_EQ(qk_mem_baseline(text.c_str()), 0);
  EXPECT_NE(kit::dump(text.c_str(), QK_MEM_DUMP_SUMMARY), "");
  expect_usable();
}

}  // namespace

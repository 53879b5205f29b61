#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "core/kinds.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::handle_of;
using kit::hold;
using kit::report;
using kit::Scene;
using kit::sections;
using kit::sections_of;
using kit::set_heap;

constexpr unsigned kDetails = QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;

/**
 * Sets fixed values for what depends on where the allocator puts memory: that decides which pointer
 * arrays a handle needs, and each array is an event and counts as management.
 */
void settle(int hid) {
  qk_mem_handle& handle = handle_of(hid);
  std::uint32_t seq = static_cast<std::uint32_t>(hid) * 100;
  handle.seq = seq;
  handle.overhead_qty = 2;
  handle.overhead_amount = 1000;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    for (int i = 1; i < array.capacity; ++i) {
      qk_mem_ptr& record = array.ptrs[i];
      if (record.address != nullptr && !qk::mem::is_management(record.kind)) record.seq = ++seq;
    }
  }
}

/** A program with handles of every kind. Objects have invented addresses. */
class Program : public ::testing::Test {
 protected:
  Program() {
    set_heap(135168);
    const int config = qk_mem_inew_handle("AUTOFREE", "cf", "src/config.cpp", 10);
    (void)qk_mem_istrdup(config, "/etc/app", "src/config.cpp", 31);
    const int index = qk_mem_inew_handle("MULTITHREADED", "IX", "src/index/index_builder.cpp", 204);
    (void)qk_mem_icalloc(index, 1000, 24, 16, "src/index/index_builder.cpp", 77);
    const int objects = qk_mem_inew_handle(nullptr, "ix", "src/objects.cpp", 5);
    hold(handle_of(objects), 0x5000, 'X', 1, 128, "objects.cpp", 40);
    hold(handle_of(objects), 0x5010, 'W', 1, 72, "objects.cpp", 41);
    hold(handle_of(objects), 0x5020, 'T', 1, 16, "objects.cpp", 41);
    hold(handle_of(objects), 0x5030, 'B', 1, 2048, "objects.cpp", 42);
    const int log = qk_mem_inew_handle("OVERHEAD AUTOFREE", "L", "src/log.cpp", 3);
    (void)qk_mem_irealloc(log, nullptr, 4096, 16, "src/log.cpp", 9);
    (void)qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "src/main.cpp", 70000);
    for (int hid = 1; hid <= log; ++hid) settle(hid);
    set_heap(270336);
  }

 private:
  Scene scene_{"EXCEPTIONS"};
};

TEST_F(Program, IsReportedInTheConfiguredSections) {
  EXPECT_EQ(sections_of(report("", 0), QK_MEM_DUMP_SUMMARY | kDetails),
            "Summary\n"
            "   Current:           7      30453\n"
            "   Overhead:          1       4096\n"
            "   Data:              6      26357\n"
            "   Management:       12       6000\n"
            "   Initial:                 135168\n"
            "   Heap:                    270336\n"
            "   Untracked:                98715\n"
            "Tags\n"
            "     CF:              1          9\n"
            "     IX:              4      26248\n"
            "      L:              1       4096\n"
            "     NONE:            1        100\n"
            "Overhead handles\n"
            "   +   1                      A    0                 0     100 qkmem.cpp:#\n"
            "   +   6  L                   A    1              4096     600 log.cpp:3\n"
            "Overhead handle pointers\n"
            "   +   6  L p1               R     1     4096     4096     601 log.cpp:9\n"
            "Data handles\n"
            "   +   2                           1               100     200 qkmem.cpp:#\n"
            "   +   3 CF                   a    1                 9     300 config.cpp:10\n"
            "   +   4 IX                        1             24000     400 index_builder.cpp:204\n"
            "   +   5 IX                        3              2248     500 objects.cpp:5\n"
            "Data handle blocks\n"
            "   +   5 IX 0000000000005030 B     1     2048     2048     503 objects.cpp:42\n"
            "Data handle pointers\n"
            "   +   2    p2               M     1      100      100     201 main.cpp:4464\n"
            "   +   3 CF p3               S     1        9        9     301 config.cpp:31\n"
            "   +   4 IX p4               C  1000       24    24000     401 index_builder.cpp:77\n"
            "   +   5 IX 0000000000005000 X     1      128      128     501 objects.cpp:40\n"
            "   +   5 IX 0000000000005010 W     1       72       72     502 objects.cpp:41\n");
}

TEST_F(Program, IsComparedWithABaselineThatWasNeverTaken) {
  EXPECT_EQ(sections("", QK_MEM_DUMP_COMPARISON),
            "Totals\n"
            "  |Data handles               |    0         0|    6     26357|   n/a      n/a|\n"
            "  |Overhead handles           |    0         0|    1      4096|   n/a      n/a|\n"
            "  |Total of all handles       |    0         0|    7     30453|   n/a      n/a|\n"
            "  |Handle management          |    0         0|   12      6000|   n/a      n/a|\n"
            "  |Handles plus management    |    0         0|   19     36453|   n/a      n/a|\n"
            "  |Current heap               |              0|         270336|   n/a      n/a|\n"
            "  |Initial heap               |               |         135168|               |\n"
            "  |Untracked memory usage     |               |          98715|               |\n"
            "Tags\n"
            "  |  CF                       |    0         0|    1         9|   n/a      n/a|\n"
            "  |  IX                       |    0         0|    4     26248|   n/a      n/a|\n"
            "  |   L                       |    0         0|    1      4096|   n/a      n/a|\n"
            "  |  NONE                     |    0         0|    1       100|   n/a      n/a|\n"
            "Overhead handles\n"
            "  |   1     A qkmem.cpp:#     |    0         0|    0         0|   n/a      n/a|\n"
            "  |   6  L  A log.cpp:3       |    0         0|    1      4096|   n/a      n/a|\n"
            "Data handles\n"
            "  |   2       qkmem.cpp:#     |    0         0|    1       100|   n/a      n/a|\n"
            "  |   3 CF  A config.cpp:10   |    0         0|    1         9|   n/a      n/a|\n"
            "  |   4 IX    index_builder.cp|    0         0|    1     24000|   n/a      n/a|\n"
            "  |   5 IX    objects.cpp:5   |    0         0|    3      2248|   n/a      n/a|\n");
}

TEST_F(Program, IsReportedAsTheFilterSelects) {
  EXPECT_EQ(sections("TAG=IX AND TYPE=DATA AND AUTOFREE=FALSE", kDetails),
            "Data handles\n"
            "   +   4 IX                        1             24000     400 index_builder.cpp:204\n"
            "   +   5 IX                        3              2248     500 objects.cpp:5\n"
            "Data handle blocks\n"
            "   +   5 IX 0000000000005030 B     1     2048     2048     503 objects.cpp:42\n"
            "Data handle pointers\n"
            "   +   4 IX p1               C  1000       24    24000     401 index_builder.cpp:77\n"
            "   +   5 IX 0000000000005000 X     1      128      128     501 objects.cpp:40\n"
            "   +   5 IX 0000000000005010 W     1       72       72     502 objects.cpp:41\n");
}

/** The rows of a kind, without their addresses, sorted because they are in address order. */
std::vector<std::string> rows_of(char kind, const std::string& text) {
  std::vector<std::string> rows;
  const std::string mark = std::string(" ") + kind + "  ";
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find(mark);
    if (at != std::string::npos) rows.push_back(line.substr(at + 1));
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

void number_records(qk_mem_handle& handle, std::uint32_t seq) {
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    for (int i = 0; i < array.capacity; ++i) array.ptrs[i].seq = seq;
  }
}

TEST(Management, IncludesAHandlesRecordAndMutex) {
  Scene scene("EXCEPTIONS");
  const int hid = qk_mem_inew_handle("MULTITHREADED", "", "src/app.c", 5);
  number_records(handle_of(hid), 9);
  const std::vector<std::string> expected = {
      "H     1      mtx      mtx       9 app.c:5",
      "H     1   handle   handle       9 app.c:5",
  };
  EXPECT_EQ(rows_of('H', report("HANDLE=3", QK_MEM_DUMP_MGMT)), expected);
}

TEST(Management, IncludesTheHandleArrayOfTheOverheadHandle) {
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  number_records(handle_of(QK_MEM_OVERHEAD_HANDLE), 9);
  const std::vector<std::string> expected = {
      "H     1      mtx      mtx       9 qkmem.cpp:#",
      "H     1   handle   handle       9 qkmem.cpp:#",
      "H   512        8     4096       9 qkmem.cpp:#",
  };
  EXPECT_EQ(rows_of('H', report("HANDLE=1", QK_MEM_DUMP_MGMT)), expected);
}

}  // namespace

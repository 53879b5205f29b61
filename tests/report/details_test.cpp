#include <gtest/gtest.h>

#include "accounting/kept_calls.h"
#include "table/pointer_table.h"
#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::report;
using kit::sections;
using kit::Stage;

constexpr unsigned kEverySection =
    QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;

TEST(Details, AreBandsAndEmptyLinesWithoutHandles) {
  Stage stage;
  EXPECT_EQ(report("", kEverySection),
            "\n"
            "    Hndl Tg          Address Typ Qty     Size    Total     Seq Location\n"
            "   ----------------------------------------------------------------------------\n"
            "   - - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle blocks  - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Overhead handle pointers  - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle blocks  - - - - - - - - - - - - - - - \n"
            "\n"
            "   - - - - - - - - - - - - - Data handle pointers  - - - - - - - - - - - - - - \n"
            "\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(Details, ShowEachRecordInTheSectionOfItsKind) {
  Stage stage;
  qk_mem_handle& overhead = stage.handle(1, 'O');
  hold(overhead, 0x1010, 'H', 512, 8, "start.c", 1);
  hold(overhead, 0x1020, 'M', 1, 40, "own.c", 2);
  hold(overhead, 0x1030, 'B', 1, 2048, "own.c", 3);
  qk_mem_handle& data = stage.handle(2, 'D', "AB");
  hold(data, 0x2010, 'X', 1, 1, "app.c", 11);
  hold(data, 0x2110, 'W', 1, 72, "app.c", 12);
  hold(data, 0x2210, 'T', 1, 16, "app.c", 12);
  hold(data, 0x2310, 'J', 10, 24, "app.c", 13);
  hold(data, 0x2410, 'B', 1, 4096, "app.c", 14);
  hold(data, 0x2510, 'C', 7, 12, "app.c", 15);
  hold(data, 0x2610, 'R', 1, 99, "app.c", 16);
  hold(data, 0x2710, 'S', 1, 6, "app.c", 17);
  hold(data, 0x2810, 'm', 1, 32, "app.c", 18);
  EXPECT_EQ(sections("", kEverySection),
            "Overhead handles\n"
            "   +   1                           2              2088       1 made.c:100\n"
            "Overhead handle management\n"
            "   +   1    p1               P    16       48      768       2 start.c:1\n"
            "   +   1    0000000000001010 H   512        8     4096       3 start.c:1\n"
            "   +   1    p2               P    16       48      768       4 own.c:2\n"
            "   +   1    p3               P    16       48      768       6 own.c:3\n"
            "Overhead handle blocks\n"
            "   +   1    0000000000001030 B     1     2048     2048       7 own.c:3\n"
            "Overhead handle pointers\n"
            "   +   1    0000000000001020 M     1       40       40       5 own.c:2\n"
            "Data handles\n"
            "   +   2 AB                        8              4630       8 made.c:200\n"
            "Data handle management\n"
            "   +   2 AB p4               P    16       48      768       9 app.c:11\n"
            "   +   2 AB 0000000000002210 T     1       16       16      12 app.c:12\n"
            "Data handle blocks\n"
            "   +   2 AB 0000000000002410 B     1     4096     4096      14 app.c:14\n"
            "Data handle pointers\n"
            "   +   2 AB 0000000000002010 X     1        1        1      10 app.c:11\n"
            "   +   2 AB 0000000000002110 W     1       72       72      11 app.c:12\n"
            "   +   2 AB 0000000000002310 J    10       24      240      13 app.c:13\n"
            "   +   2 AB 0000000000002510 C     7       12       84      15 app.c:15\n"
            "   +   2 AB 0000000000002610 R     1       99       99      16 app.c:16\n"
            "   +   2 AB 0000000000002710 S     1        6        6      17 app.c:17\n"
            "   +   2 AB 0000000000002810 m     1       32       32      18 app.c:18\n");
}

TEST(Details, MarkAutofreeWithACapitalOnlyOnOverheadHandles) {
  Stage stage;
  stage.handle(1, 'O').autofree = 'a';
  stage.handle(2, 'D', "AB").autofree = 'a';
  stage.handle(3, 'O', "C").blockmgmt = 'B';
  qk_mem_handle& both = stage.handle(4);
  both.autofree = 'a';
  both.blockmgmt = 'B';
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES),
            "Overhead handles\n"
            "   +   1                      A    0                 0       1 made.c:100\n"
            "   +   3  C                  B     0                 0       3 made.c:300\n"
            "Data handles\n"
            "   +   2 AB                   a    0                 0       2 made.c:200\n"
            "   +   4                     Ba    0                 0       4 made.c:400\n");
}

TEST(Details, MarkHandlesWhoseBaselineHadNoBytes) {
  Stage stage;
  stage.handle(1).base_amount = 1;
  stage.handle(2).baselined = 1;
  stage.handle(3).base_qty = 5;
  stage.handle(4, 'O').base_amount = 1;
  stage.handle(5, 'O');
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES),
            "Overhead handles\n"
            "       4                           0                 0       4 made.c:400\n"
            "   +   5                           0                 0       5 made.c:500\n"
            "Data handles\n"
            "       1                           0                 0       1 made.c:100\n"
            "   +   2                           0                 0       2 made.c:200\n"
            "   +   3                           0                 0       3 made.c:300\n");
}

TEST(Details, MarkRecordsThatNoBaselineCovers) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  handle.baselined = 1;
  hold(handle, 0x1010, 'M', 1, 5).baselined = 1;
  hold(handle, 0x1110, 'M', 1, 5);
  handle.ptrs[1].ptrs[0].baselined = 1;
  hold(handle, 0x1020, 'B', 1, 5).baselined = 1;
  EXPECT_EQ(sections("", kEverySection),
            "Data handles\n"
            "   +   1                           3                15       1 made.c:100\n"
            "Data handle management\n"
            "       1    p1               P    16       48      768       2 app.c:1\n"
            "   +   1    p2               P    16       48      768       5 app.c:1\n"
            "Data handle blocks\n"
            "       1    0000000000001020 B     1        5        5       6 app.c:1\n"
            "Data handle pointers\n"
            "       1    0000000000001010 M     1        5        5       3 app.c:1\n"
            "   +   1    0000000000001110 M     1        5        5       4 app.c:1\n");
}

TEST(Details, HaveNoHeadingsForManagementAlone) {
  Stage stage;
  hold(stage.handle(1, 'O'), 0x1010, 'H', 3, 100);
  hold(stage.handle(2), 0x1010, 'T', 1, 16);
  EXPECT_EQ(report("", QK_MEM_DUMP_MGMT),
            "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"
            "   +   1    p1               P    16       48      768       2 app.c:1\n"
            "   +   1    0000000000001010 H     3      100      300       3 app.c:1\n"
            "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"
            "   +   2    p2               P    16       48      768       5 app.c:1\n"
            "   +   2    0000000000001010 T     1       16       16       6 app.c:1\n"
            "   ----------------------------------------------------------------------------\n");
}

TEST(Details, HaveHeadingsForManagementAmongOthers) {
  Stage stage;
  constexpr unsigned kOptions = QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS;
  EXPECT_EQ(report("", kOptions).rfind("\n    Hndl Tg ", 0), 0U);
  EXPECT_EQ(sections("", kOptions), "");
}

TEST(Details, AreOrderedByHandlesThenArraysThenSlots) {
  Stage stage;
  qk_mem_handle& last = stage.handle(9);
  hold(last, 0x9000, 'M', 1, 1);
  qk_mem_handle& first = stage.handle(2);
  hold(first, 0x1070, 'M', 1, 7);
  hold(first, 0x1000, 'M', 1, 1);
  hold(first, 0x1170, 'M', 1, 8);
  hold(first, 0x1010, 'M', 1, 3);
  hold(first, 0x1100, 'M', 1, 2);
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   2                           5                21       4 made.c:200\n"
            "   +   9                           1                 1       1 made.c:900\n"
            "Data handle pointers\n"
            "   +   2    0000000000001000 M     1        1        1       8 app.c:1\n"
            "   +   2    0000000000001100 M     1        2        2      12 app.c:1\n"
            "   +   2    0000000000001010 M     1        3        3      11 app.c:1\n"
            "   +   2    0000000000001070 M     1        7        7       6 app.c:1\n"
            "   +   2    0000000000001170 M     1        8        8       9 app.c:1\n"
            "   +   9    0000000000009000 M     1        1        1       3 app.c:1\n");
}

TEST(Details, SkipFreeSlots) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  hold(handle, 0x1000, 'M', 1, 1);
  qk_mem_ptr& gone = hold(handle, 0x1100, 'M', 1, 2);
  hold(handle, 0x1200, 'M', 1, 3);
  qk_mem_free_ptr(&handle, &gone);
  EXPECT_EQ(sections("", QK_MEM_DUMP_POINTERS),
            "Data handle pointers\n"
            "   +   1    0000000000001000 M     1        1        1       3 app.c:1\n"
            "   +   1    0000000000001200 M     1        3        3       5 app.c:1\n");
}

TEST(Details, SkipAnArrayThatLostItsSlots) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  hold(handle, 0x1010, 'M', 1, 1);
  handle.ptrs[0].capacity = 80;
  EXPECT_EQ(sections("", QK_MEM_DUMP_MGMT | QK_MEM_DUMP_POINTERS),
            "Data handle management\n"
            "   +   1    p1               P    16       48      768       2 app.c:1\n"
            "Data handle pointers\n"
            "   +   1    0000000000001010 M     1        1        1       3 app.c:1\n");
}

TEST(Details, CutLocationsAt24Characters) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  handle.file = "abcdefghijklmnopqrst.cpp";
  handle.line = 12;
  hold(handle, 0x1000, 'M', 1, 1, "abcdefghijklmnopqr.cpp", 1);
  hold(handle, 0x1010, 'M', 1, 1, "abcdefghijklmnopqr.cpp", 12);
  hold(handle, 0x1020, 'M', 1, 1, "abcdefghijklmnopqrs.cpp", 12);
  EXPECT_EQ(
      sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
      "Data handles\n"
      "   +   1                           3                 3       1 abcdefghijklmnopqrst.cpp\n"
      "Data handle pointers\n"
      "   +   1    0000000000001000 M     1        1        1       3 abcdefghijklmnopqr.cpp:1\n"
      "   +   1    0000000000001010 M     1        1        1       5 abcdefghijklmnopqr.cpp:1\n"
      "   +   1    0000000000001020 M     1        1        1       7 abcdefghijklmnopqrs.cpp:\n");
}

TEST(Details, CutFilesThatAreLongerThanAWholeLine) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  qk_mem_ptr& record = hold(handle, 0x1000, 'M', 1, 1);
  for (const std::size_t length : {25U, 800U, 823U, 824U, 1000U, 1022U, 1023U, 1024U, 5000U}) {
    const std::string file(length, 'f');
    handle.file = file.c_str();
    record.file = file.c_str();
    EXPECT_EQ(
        sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
        "Data handles\n"
        "   +   1                           1                 1       1 ffffffffffffffffffffffff\n"
        "Data handle pointers\n"
        "   +   1    0000000000001000 M     1        1        1       3 ffffffffffffffffffffffff\n")
        << length;
  }
}

TEST(Details, ShowAddressesInTheConfiguredWidth) {
  Stage stage;
  hold(stage.handle(1), 0x1a2b0, 'M', 1, 1);
  const struct {
    int digits;
    const char* handle;
    const char* address;
  } widths[] = {
      {16, "                ", "000000000001a2b0"},
      {15, "               ", "00000000001a2b0"},
      {17, "                 ", "0000000000001a2b0"},
      {20, "                    ", "0000000000000001a2b0"},
      {2, "  ", "1a2b0"},
      {0, "", "1a2b0"},
      {-16, "                ", "1a2b0"},
  };
  for (const auto& [digits, handle, address] : widths) {
    Qk_mem_ptr_display_size = digits;
    const std::string text = kit::dump("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS);
    Qk_mem_ptr_display_size = 16;
    for (const std::string& row :
         {std::string("\n   +   1    ") + handle + "       1                 1       1 ",
          std::string("\n   +   1    ") + address +
              " M     1        1        1       3 app.c:1\n"}) {
      EXPECT_NE(text.find(row), std::string::npos) << row << "\nis not in\n" << text;
    }
  }
}

TEST(Details, CutRowsThatAreLongerThanALine) {
  Stage stage;
  hold(stage.handle(1), 0x1a2b0, 'M', 1, 1);
  for (const int digits : {1100, -1100}) {
    Qk_mem_ptr_display_size = digits;
    const std::string handles = kit::dump("", QK_MEM_DUMP_HANDLES);
    const std::string records = kit::dump("", QK_MEM_DUMP_POINTERS);
    Qk_mem_ptr_display_size = 16;
    EXPECT_NE(handles.find("\n   +   1" + std::string(1014, ' ') + "\n"), std::string::npos);
    const std::string record =
        digits > 0 ? std::string(1010, '0') : "1a2b0 M     1        1        1       3 app.c:1";
    EXPECT_NE(records.find("\n   +   1    " + record + "\n"), std::string::npos);
  }
}

TEST(Details, ShowAHandlesFullLineAndARecordsLow16Bits) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  handle.line = 65537;
  hold(handle, 0x1000, 'M', 1, 1, "app.c", 65535);
  hold(handle, 0x1010, 'M', 1, 1, "app.c", 65537);
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   1                           2                 2       1 made.c:65537\n"
            "Data handle pointers\n"
            "   +   1    0000000000001000 M     1        1        1       3 app.c:65535\n"
            "   +   1    0000000000001010 M     1        1        1       5 app.c:1\n");
}

TEST(Details, ShiftColumnsForFiguresThatAreTooWide) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  handle.id = 12345;
  handle.seq = 4000000000;
  hold(handle, 0x1000, 'C', 123456, 10000000).seq = 4000000001;
  handle.qty = 4000000002;
  EXPECT_EQ(
      sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
      "Data handles\n"
      "   +12345                        4000000002          1234560000000 4000000000 made.c:100\n"
      "Data handle pointers\n"
      "   +12345    0000000000001000 C  123456 10000000 1234560000000 4000000001 app.c:1\n");
}

TEST(Details, LeaveOutHandlesOfOtherTypes) {
  Stage stage;
  hold(stage.handle(1, 'Q'), 0x1000, 'M', 1, 1);
  EXPECT_EQ(sections("", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_POINTERS), "");
}

}  // namespace

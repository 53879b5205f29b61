#include <gtest/gtest.h>

#include "tests/kit/report.h"

namespace {

using kit::hold;
using kit::sections;
using kit::Stage;

/** A handle of each type with two pointers. A baseline covers the second one. */
class FilteredDetails : public ::testing::Test {
 protected:
  FilteredDetails() {
    for (qk_mem_handle* handle : {&overhead_, &data_}) {
      hold(*handle, 0x1000, 'M', 1, 10);
      hold(*handle, 0x1010, 'M', 1, 20).baselined = 1;
    }
  }

  Stage stage_;
  qk_mem_handle& overhead_ = stage_.handle(1, 'O', "AB");
  qk_mem_handle& data_ = stage_.handle(2);
};

TEST_F(FilteredDetails, ShowHandlesThatTheFilterKeeps) {
  EXPECT_EQ(sections("TAG=NONE AND NEW_HANDLE=TRUE", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   2                           2                30       2 made.c:200\n"
            "Data handle pointers\n"
            "   +   2    0000000000001000 M     1       10       10       8 app.c:1\n"
            "       2    0000000000001010 M     1       20       20      10 app.c:1\n");
}

TEST_F(FilteredDetails, ShowMarkedHandlesIfNewPointersAreSelected) {
  data_.has_growth = 1;
  EXPECT_EQ(sections("NEW_PTRS=TRUE", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Data handles\n"
            "   +   2                           2                30       2 made.c:200\n"
            "Data handle pointers\n"
            "   +   2    0000000000001000 M     1       10       10       8 app.c:1\n");
}

TEST_F(FilteredDetails, ShowUnmarkedHandlesIfOldPointersAreSelected) {
  data_.has_growth = 1;
  EXPECT_EQ(sections("NEW_PTRS=FALSE", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS),
            "Overhead handles\n"
            "   +   1 AB                        2                30       1 made.c:100\n"
            "Overhead handle pointers\n"
            "       1 AB 0000000000001010 M     1       20       20       6 app.c:1\n");
}

}  // namespace

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "qkmem/qkmem.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

/** Uses each macro at least once, every call on a line of its own. */
// clang-format off
void use_all(int hid) {
#line 101 "src/user.c"
  void* memory = qk_mem_malloc(hid, 10);
#line 102 "src/user.c"
  void* zeroed = qk_mem_calloc(hid, 3, 8);
#line 103 "src/user.c"
  void* resized = qk_mem_realloc(hid, nullptr, 20);
#line 104 "src/user.c"
  void* array = qk_mem_recalloc(hid, nullptr, 5, 8, 0);
#line 105 "src/user.c"
  char* text = qk_mem_strdup(hid, "hello");
#line 106 "src/user.c"
  qk_mem_free(hid, memory);
#line 107 "src/user.c"
  qk_mem_free(hid, zeroed);
#line 108 "src/user.c"
  qk_mem_free(hid, array);
#line 109 "src/user.c"
  qk_mem_free(hid, text);
#line 110 "src/user.c"
  qk_mem_free(hid, resized);
}

int create_and_delete() {
#line 201 "src/user.c"
  const int hid = qk_mem_new_handle("", "");
#line 202 "src/user.c"
  return qk_mem_del_handle(hid);
}

std::size_t ask_for_a_size() {
#line 301 "src/user.c"
  return qk_mem_size(77);
}
#line 52 "macros_test.cpp"
// clang-format on

TEST(Macros, TraceTheCallersLocation) {
  Ledger ledger(Environment{"EXCEPTIONS", "DB", ""});
  use_all(ledger.pool);
  EXPECT_EQ(ledger.trace(),
            "3 M [p1] 1 10 user.c 101 10\n"
            "3 C [p2] 3 8 user.c 102 24\n"
            "3 R [p3] 1 20 user.c 103 20\n"
            "3 R [p4] 1 40 user.c 104 40\n"
            "3 S [p5] 1 6 user.c 105 6\n"
            "3 F [p1] 1 10 user.c 106 -10\n"
            "3 F [p2] 3 8 user.c 107 -24\n"
            "3 F [p4] 1 40 user.c 108 -40\n"
            "3 F [p5] 1 6 user.c 109 -6\n"
            "3 F [p3] 1 20 user.c 110 -20\n");
  EXPECT_EQ(ledger.log(), "");
}

TEST(Macros, ReportTheCallersLocationOnFailure) {
  Ledger ledger("DEBUG");
  use_all(77);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_imalloc: ERROR: invalid hid 77 at user.c:101\n"
            "   qk_mem_icalloc: ERROR: invalid hid 77 at user.c:102\n"
            "   qk_mem_irealloc: ERROR: invalid hid 77 at user.c:103\n"
            "   qk_mem_irealloc: ERROR: invalid hid 77 at user.c:104\n"
            "   qk_mem_istrdup: ERROR: invalid hid 77 at user.c:105\n"
            "   qk_mem_ifree: ERROR: invalid hid 77 at user.c:106\n"
            "   qk_mem_ifree: ERROR: invalid hid 77 at user.c:107\n"
            "   qk_mem_ifree: ERROR: invalid hid 77 at user.c:108\n"
            "   qk_mem_ifree: ERROR: invalid hid 77 at user.c:109\n"
            "   qk_mem_ifree: ERROR: invalid hid 77 at user.c:110\n");
  ledger.skip_all();
  EXPECT_EQ(ask_for_a_size(), static_cast<std::size_t>(-1));
  EXPECT_EQ(ledger.log(), "   qk_mem_isize: ERROR: invalid hid 77 at user.c:301\n");
}

TEST(Macros, PassTheLocationOfAHandlesCreationAndDeletion) {
  Ledger ledger("DEBUG");
  EXPECT_EQ(create_and_delete(), 0);
  EXPECT_EQ(ledger.log("qk_mem_inew_handle"), "   qk_mem_inew_handle:    4 N D  user.c:201\n");
  const std::string deleted = ledger.log("qk_mem_idel_handle");
  EXPECT_NE(deleted.find("   qk_mem_idel_handle:    4 D user.c:202; user.c:201\n"),
            std::string::npos)
      << deleted;
}

TEST(Macros, WorkWithoutAnyConfiguration) {
  kit::Scene scene("");
  use_all(QK_MEM_DATA_HANDLE);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(qk_mem_size(QK_MEM_DATA_HANDLE), 0U);
}

}  // namespace

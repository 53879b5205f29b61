#include "report/filters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

void append(std::string& text, const char* name, const std::string& value) {
  text += (text.empty() ? "" : " ") + std::string(name) + "=" + value;
}

void append_number(std::string& text, const char* name, int value) {
  if (value != 0) append(text, name, std::to_string(value));
}

/** The conditions that are set, in the order of the fields. */
std::string text_of(const qk_mem_filters& filters) {
  std::string text;
  append_number(text, "handle_id", filters.handle_id);
  if (filters.tag_name[0] != '\0') append(text, "tag_name", filters.tag_name);
  append_number(text, "untagged_only", filters.untagged_only);
  if (filters.handle_type != '\0') append(text, "handle_type", {filters.handle_type});
  append_number(text, "blockmgmt", filters.blockmgmt_sel);
  append_number(text, "autofree", filters.autofree_sel);
  append_number(text, "new_handle", filters.new_handle_sel);
  append_number(text, "new_ptrs", filters.new_ptrs_sel);
  return text;
}

/** The conditions that a filter string sets in a used record, or the error code. */
std::string read(const char* filter) {
  qk_mem_filters filters;
  std::memset(&filters, 0x55, sizeof filters);
  const int code = qk_mem_init_filters(filter, &filters);
  return code == 0 ? text_of(filters) : std::to_string(code);
}

struct Row {
  const char* filter;
  const char* conditions;
};

template <std::size_t kCount>
void expect_read(const Row (&rows)[kCount]) {
  for (const Row& row : rows) EXPECT_EQ(read(row.filter), row.conditions) << row.filter;
}

TEST(Filter, SelectsEverythingIfNullOrEmpty) {
  EXPECT_EQ(read(nullptr), "");
  EXPECT_EQ(read(""), "");
  EXPECT_EQ(read("   "), "");
}

TEST(Filter, SelectsAHandleByItsNumber) {
  constexpr Row kRows[] = {
      {"HANDLE=12", "handle_id=12"}, {"HANDLE=0", ""},
      {"HANDLE=twelve", ""},         {"HANDLE=-3", "handle_id=-3"},
      {"HANDLE=7th", "handle_id=7"}, {"handle=3", "handle_id=3"},
  };
  expect_read(kRows);
}

TEST(Filter, SelectsATagByItsNameInUpperCase) {
  constexpr Row kRows[] = {
      {"TAG=AB", "tag_name=AB"}, {"TAG=ab", "tag_name=AB"},       {"TAG=z", "tag_name=Z"},
      {"TAG=9{", "tag_name=9{"}, {"TAG=\xe4`", "tag_name=\xe4`"}, {"TAG='ab'", "tag_name=AB"},
  };
  expect_read(kRows);
}

TEST(Filter, SelectsUntaggedHandlesByTagNone) {
  constexpr Row kRows[] = {
      {"TAG=NONE", "untagged_only=1"},
      {"TAG=none", "untagged_only=1"},
      {"TAG=nOnE", "untagged_only=1"},
      {"TAG=NO", "tag_name=NO"},
  };
  expect_read(kRows);
}

TEST(Filter, AcceptsDataOrOverheadAndIgnoresOtherTypes) {
  constexpr Row kRows[] = {
      {"TYPE=DATA", "handle_type=D"},
      {"TYPE=data", "handle_type=D"},
      {"TYPE=OVERHEAD", "handle_type=O"},
      {"TYPE=overhead", "handle_type=O"},
      {"TYPE=xyz", ""},
      {"TYPE=D", ""},
      {"TYPE=DATABASE", ""},
  };
  expect_read(kRows);
}

TEST(Filter, AcceptsTrueOrFalseAndIgnoresOtherValues) {
  constexpr Row kRows[] = {
      {"AUTOFREE=TRUE", "autofree=1"},
      {"AUTOFREE=false", "autofree=-1"},
      {"AUTOFREE=maybe", ""},
      {"BLOCKMGMT=true", "blockmgmt=1"},
      {"BLOCKMGMT=FALSE", "blockmgmt=-1"},
      {"BLOCKMGMT=1", ""},
      {"NEW_HANDLE=TRUE", "new_handle=1"},
      {"NEW_HANDLE=False", "new_handle=-1"},
      {"NEW_HANDLE=yes", ""},
      {"NEW_PTRS=True", "new_ptrs=1"},
      {"NEW_PTRS=FALSE", "new_ptrs=-1"},
      {"NEW_PTRS=T", ""},
  };
  expect_read(kRows);
}

TEST(Filter, StoresFalseAs255) {
  qk_mem_filters filters;
  ASSERT_EQ(qk_mem_init_filters("AUTOFREE=FALSE", &filters), 0);
  EXPECT_EQ(static_cast<unsigned char>(filters.autofree_sel), 255);
}

TEST(Filter, AcceptsAndAnywhereWithoutEffect) {
  constexpr Row kRows[] = {
      {"AND", ""},
      {"HANDLE=3 AND TAG=AB", "handle_id=3 tag_name=AB"},
      {"and HANDLE=3 TAG=AB And", "handle_id=3 tag_name=AB"},
      {"AND AND TYPE=DATA AND", "handle_type=D"},
  };
  expect_read(kRows);
}

TEST(Filter, AcceptsAllConditionsTogetherInAnyOrder) {
  constexpr char kAll[] =
      "handle_id=12 tag_name=AB handle_type=O blockmgmt=-1 autofree=1 new_handle=1 new_ptrs=-1";
  EXPECT_EQ(read("HANDLE=12 TAG=ab TYPE=OVERHEAD AUTOFREE=TRUE BLOCKMGMT=FALSE NEW_HANDLE=TRUE "
                 "NEW_PTRS=FALSE"),
            kAll);
  EXPECT_EQ(read("\tNEW_PTRS=FALSE NEW_HANDLE=TRUE  BLOCKMGMT=FALSE AUTOFREE=TRUE\tTYPE=OVERHEAD "
                 "TAG=ab HANDLE=12 "),
            kAll);
}

TEST(Filter, UsesTheLastOfARepeatedKeyword) {
  EXPECT_EQ(read("HANDLE=3 HANDLE=4"), "handle_id=4");
  EXPECT_EQ(read("TAG=NONE TAG=AB"), "tag_name=AB");
  EXPECT_EQ(read("TYPE=DATA TYPE=xyz"), "");
}

TEST(Filter, IsRefusedIfItIsInvalid) {
  constexpr Row kRows[] = {
      {"SIZE=3", "11102"},          {"HANDLE", "11102"},  {"TAG=AB TYPE", "11102"},
      {"AND=TRUE", "11102"},        {"TAG='AB", "11102"}, {"HANDLE=3 or TAG=AB", "11102"},
      {"TAG=abc OTHER=1", "11102"}, {"=3", "11102"},      {"HANDLE=3 4", "11102"},
  };
  expect_read(kRows);
}

TEST(Filter, RefusesAbbreviatedKeywords) {
  constexpr Row kRows[] = {
      {"HAND=3", "11102"},   {"TA=AB", "11102"}, {"T=AB", "11102"},      {"AUTO=TRUE", "11102"},
      {"NEW=TRUE", "11102"}, {"AN", "11102"},    {"HANDLES=3", "11102"},
  };
  expect_read(kRows);
}

TEST(Filter, IsRefusedIfItsTagExceedsTwoCharacters) {
  EXPECT_EQ(read("TAG=abc"), "11103");
  EXPECT_EQ(read("TAG=NONES"), "11103");
  EXPECT_EQ(read("HANDLE=3 TAG=NON"), "11103");
}

TEST(Filter, SetsTheThreadsErrorCodeOnFailure) {
  (void)read("TAG=abc");
  EXPECT_EQ(qk_mem_error(), 11103);
  (void)read("SIZE=3");
  EXPECT_EQ(qk_mem_error(), 11102);
}

TEST(Filter, KeepsTheThreadsErrorCodeOnSuccess) {
  (void)read("TAG=abc");
  EXPECT_EQ(read("TAG=ab"), "tag_name=AB");
  EXPECT_EQ(read(""), "");
  EXPECT_EQ(qk_mem_error(), 11103);
}

TEST(Filter, MayHave256Characters) {
  const std::string filter = "TAG=ab" + std::string(250, ' ');
  EXPECT_EQ(read(filter.c_str()), "tag_name=AB");
  EXPECT_EQ(read((filter + " ").c_str()), "11102");
  EXPECT_EQ(qk_mem_error(), 11102);
}

TEST(Filter, LeavesTheCallersStringUnchanged) {
  char filter[] = "TAG='ab' and TYPE=data";
  EXPECT_EQ(read(filter), "tag_name=AB handle_type=D");
  EXPECT_STREQ(filter, "TAG='ab' and TYPE=data");
}

}  // namespace

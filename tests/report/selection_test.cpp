#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "report/filters.h"

namespace {

qk_mem_filters parsed(const char* filter) {
  qk_mem_filters filters;
  EXPECT_EQ(qk_mem_init_filters(filter, &filters), 0) << filter;
  return filters;
}

qk_mem_tag tag(const char* name) {
  qk_mem_tag tag = {};
  std::strcpy(tag.name, name);
  return tag;
}

/** The fields of a handle that filters use. */
struct Properties {
  int id = 12;
  const char* tag = "AB";
  char type = 'D';
  bool autofree = false;
  bool blockmgmt = false;
  bool baselined = false;
  bool has_growth = false;
};

std::string answer(int excluded) {
  if (excluded == 0) return "kept";
  return excluded == 1 ? "excluded" : "neither 0 nor 1";
}

std::string handle_under(const char* filter, const Properties& properties) {
  qk_mem_tag of_handle = tag(properties.tag);
  qk_mem_handle handle = {};
  handle.id = properties.id;
  handle.tag = &of_handle;
  handle.type = properties.type;
  handle.autofree = properties.autofree ? 'a' : '\0';
  handle.blockmgmt = properties.blockmgmt ? 'B' : '\0';
  handle.baselined = properties.baselined ? 1 : 0;
  handle.has_growth = properties.has_growth ? 1 : 0;
  const qk_mem_filters filters = parsed(filter);
  return answer(qk_mem_filter_handle(&handle, &filters));
}

struct HandleRow {
  const char* filter;
  Properties properties;
  const char* answer;
};

template <std::size_t kCount>
void expect_handles(const HandleRow (&rows)[kCount]) {
  for (const HandleRow& row : rows) {
    EXPECT_EQ(handle_under(row.filter, row.properties), row.answer) << row.filter;
  }
}

TEST(FilterOfHandles, KeepsAllWithoutConditions) {
  constexpr HandleRow kRows[] = {
      {"", {}, "kept"},
      {"HANDLE=0 TYPE=xyz AUTOFREE=maybe", {}, "kept"},
      {"",
       {.tag = "",
        .type = 'O',
        .autofree = true,
        .blockmgmt = true,
        .baselined = true,
        .has_growth = true},
       "kept"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, ComparesTheNumber) {
  constexpr HandleRow kRows[] = {
      {"HANDLE=12", {.id = 12}, "kept"},
      {"HANDLE=12", {.id = 1}, "excluded"},
      {"HANDLE=-12", {.id = 12}, "excluded"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, ComparesTagsAsTwoCharacters) {
  constexpr HandleRow kRows[] = {
      {"TAG=AB", {.tag = "AB"}, "kept"},     {"TAG=AB", {.tag = "AC"}, "excluded"},
      {"TAG=AB", {.tag = "CB"}, "excluded"}, {"TAG=AB", {.tag = "A"}, "excluded"},
      {"TAG=AB", {.tag = ""}, "excluded"},   {"TAG=A", {.tag = "A"}, "kept"},
      {"TAG=A", {.tag = "AB"}, "excluded"},  {"TAG=A", {.tag = ""}, "excluded"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, SelectsHandlesWithoutATag) {
  constexpr HandleRow kRows[] = {
      {"TAG=NONE", {.tag = ""}, "kept"},
      {"TAG=NONE", {.tag = "A"}, "excluded"},
      {"TAG=NONE", {.tag = "NO"}, "excluded"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, ComparesTypesEvenUnknownOnes) {
  constexpr HandleRow kRows[] = {
      {"TYPE=DATA", {.type = 'D'}, "kept"},         {"TYPE=DATA", {.type = 'O'}, "excluded"},
      {"TYPE=DATA", {.type = 'Q'}, "excluded"},     {"TYPE=OVERHEAD", {.type = 'O'}, "kept"},
      {"TYPE=OVERHEAD", {.type = 'D'}, "excluded"}, {"TYPE=OVERHEAD", {.type = 'Q'}, "excluded"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, SelectsByAPropertyOrItsAbsence) {
  constexpr HandleRow kRows[] = {
      {"AUTOFREE=TRUE", {.autofree = true}, "kept"},
      {"AUTOFREE=TRUE", {.autofree = false}, "excluded"},
      {"AUTOFREE=FALSE", {.autofree = true}, "excluded"},
      {"AUTOFREE=FALSE", {.autofree = false}, "kept"},
      {"BLOCKMGMT=TRUE", {.blockmgmt = true}, "kept"},
      {"BLOCKMGMT=TRUE", {.blockmgmt = false}, "excluded"},
      {"BLOCKMGMT=FALSE", {.blockmgmt = true}, "excluded"},
      {"BLOCKMGMT=FALSE", {.blockmgmt = false}, "kept"},
      {"NEW_HANDLE=TRUE", {.baselined = false}, "kept"},
      {"NEW_HANDLE=TRUE", {.baselined = true}, "excluded"},
      {"NEW_HANDLE=FALSE", {.baselined = false}, "excluded"},
      {"NEW_HANDLE=FALSE", {.baselined = true}, "kept"},
      {"NEW_PTRS=TRUE", {.has_growth = true}, "kept"},
      {"NEW_PTRS=TRUE", {.has_growth = false}, "excluded"},
      {"NEW_PTRS=FALSE", {.has_growth = true}, "excluded"},
      {"NEW_PTRS=FALSE", {.has_growth = false}, "kept"},
  };
  expect_handles(kRows);
}

TEST(FilterOfHandles, ExcludesIfAnyConditionFails) {
  constexpr char kAll[] =
      "HANDLE=12 TAG=AB TYPE=DATA AUTOFREE=TRUE BLOCKMGMT=TRUE NEW_HANDLE=TRUE NEW_PTRS=TRUE";
  constexpr Properties kMatching = {.autofree = true, .blockmgmt = true, .has_growth = true};
  ASSERT_EQ(handle_under(kAll, kMatching), "kept");

  Properties changed = kMatching;
  changed.id = 13;
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.tag = "AC";
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.type = 'O';
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.autofree = false;
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.blockmgmt = false;
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.baselined = true;
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
  changed = kMatching;
  changed.has_growth = false;
  EXPECT_EQ(handle_under(kAll, changed), "excluded");
}

std::string pointer_under(const char* filter, bool baselined) {
  qk_mem_ptr record = {};
  record.baselined = baselined ? 1 : 0;
  const qk_mem_filters filters = parsed(filter);
  return answer(qk_mem_filter_pointer(&record, &filters));
}

TEST(FilterOfPointers, ComparesOnlyWhetherTheyAreNew) {
  EXPECT_EQ(pointer_under("NEW_PTRS=TRUE", false), "kept");
  EXPECT_EQ(pointer_under("NEW_PTRS=TRUE", true), "excluded");
  EXPECT_EQ(pointer_under("NEW_PTRS=FALSE", false), "excluded");
  EXPECT_EQ(pointer_under("NEW_PTRS=FALSE", true), "kept");
  EXPECT_EQ(pointer_under("", false), "kept");
  EXPECT_EQ(pointer_under("", true), "kept");
}

TEST(FilterOfPointers, IgnoresEveryOtherCondition) {
  constexpr char kOthers[] =
      "HANDLE=12 TAG=AB TYPE=OVERHEAD AUTOFREE=TRUE BLOCKMGMT=TRUE NEW_HANDLE=TRUE";
  EXPECT_EQ(pointer_under(kOthers, false), "kept");
  EXPECT_EQ(pointer_under(kOthers, true), "kept");
}

std::string tag_under(const char* filter, const char* name) {
  const qk_mem_tag of_row = tag(name);
  const qk_mem_filters filters = parsed(filter);
  return answer(qk_mem_filter_tag(&of_row, &filters));
}

TEST(FilterOfTags, ComparesTwoCharacters) {
  struct {
    const char* filter;
    const char* name;
    const char* answer;
  } constexpr kRows[] = {
      {"TAG=AB", "AB", "kept"},       {"TAG=AB", "AC", "excluded"},   {"TAG=AB", "CB", "excluded"},
      {"TAG=AB", "A", "excluded"},    {"TAG=A", "A", "kept"},         {"TAG=A", "AB", "excluded"},
      {"TAG=NONE", "AB", "excluded"}, {"TAG=NONE", "NO", "excluded"}, {"", "AB", "kept"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(tag_under(row.filter, row.name), row.answer) << row.filter << " " << row.name;
  }
}

TEST(FilterOfTags, ExcludesTheGlobalTagOnlyIfATagIsNamed) {
  EXPECT_EQ(tag_under("TAG=AB", ""), "excluded");
  EXPECT_EQ(tag_under("TAG=NONE", ""), "kept");
  EXPECT_EQ(tag_under("", ""), "kept");
}

TEST(FilterOfTags, IgnoresEveryOtherCondition) {
  constexpr char kOthers[] =
      "HANDLE=12 TYPE=OVERHEAD AUTOFREE=TRUE BLOCKMGMT=TRUE NEW_HANDLE=TRUE NEW_PTRS=TRUE";
  EXPECT_EQ(tag_under(kOthers, "AB"), "kept");
  EXPECT_EQ(tag_under(kOthers, ""), "kept");
}

}  // namespace

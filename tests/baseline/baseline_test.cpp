#include <gtest/gtest.h>

#include <string>

#include "accounting/kept_calls.h"
#include "accounting/tag_calls.h"
#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::contents;
using kit::hold;
using kit::set_heap;
using kit::Stage;

std::string sum(std::uint32_t qty, std::uint64_t amount) {
  return std::to_string(qty) + " for " + std::to_string(amount);
}

/** The baseline of a handle: "2 for 150, overhead 1 for 768", or "none". */
std::string baseline_of(const qk_mem_handle& handle) {
  if (handle.baselined == 0 && handle.base_qty == 0 && handle.base_amount == 0 &&
      handle.base_overhead_qty == 0 && handle.base_overhead_amount == 0) {
    return "none";
  }
  const std::string text = sum(handle.base_qty, handle.base_amount) + ", overhead " +
                           sum(handle.base_overhead_qty, handle.base_overhead_amount);
  return handle.baselined == 1 ? text : text + ", not marked";
}

std::string baseline_of(const qk_mem_tag& tag) { return sum(tag.base_qty, tag.base_amount); }

/** The kinds of a handle's records, by array and slot; in brackets if a baseline covers them. */
std::string marks_of(const qk_mem_handle& handle) {
  std::string kinds;
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    for (int i = 0; i < array.capacity; ++i) {
      const qk_mem_ptr& record = array.ptrs[i];
      if (record.address == nullptr) continue;
      const std::string kind(1, static_cast<char>(record.kind));
      kinds += record.baselined != 0 ? "[" + kind + "]" : kind;
    }
  }
  return kinds;
}

void configure(const char* debug) {
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config(debug, &status), 0);
}

TEST(Baseline, RemembersTheTotalsOfEveryHandle) {
  Stage stage;
  qk_mem_handle& full = stage.handle(1, 'D', "AB");
  hold(full, 0x1000, 'M', 1, 100);
  hold(full, 0x1010, 'C', 5, 10);
  hold(full, 0x1000, 'H', 1, 7);
  qk_mem_handle& empty = stage.handle(3, 'O');
  EXPECT_EQ(qk_mem_baseline(""), 0);
  EXPECT_EQ(baseline_of(full), "2 for 150, overhead 3 for 1543");
  EXPECT_EQ(baseline_of(empty), "0 for 0, overhead 0 for 0");
  EXPECT_EQ(empty.baselined, 1);
}

TEST(Baseline, RemembersTheTotalsOfEveryTag) {
  Stage stage;
  hold(stage.handle(1, 'D', "AB"), 0x1000, 'M', 1, 100);
  hold(stage.handle(2, 'O', "AB"), 0x1000, 'M', 1, 20);
  stage.handle(3, 'D', "Z");
  hold(stage.handle(4), 0x1000, 'M', 1, 3);
  qk_mem_baseline("");
  EXPECT_EQ(baseline_of(Qk_mem_tags[0]), "2 for 120");
  EXPECT_EQ(baseline_of(Qk_mem_tags[1]), "0 for 0");
  EXPECT_EQ(baseline_of(Qk_mem_global_tag), "1 for 3");
}

TEST(Baseline, RemembersTheHeap) {
  Stage stage(135168);
  EXPECT_EQ(Qk_mem_base_heap, 0);
  set_heap(270336);
  qk_mem_baseline("");
  EXPECT_EQ(Qk_mem_base_heap, 270336);
  EXPECT_EQ(Qk_mem_init_heap, 135168);
  EXPECT_EQ(kit::heap_probes(), 1);
}

TEST(Baseline, RemembersTheHeapUnderAnyFilter) {
  Stage stage;
  set_heap(4096);
  qk_mem_baseline("HANDLE=9");
  EXPECT_EQ(Qk_mem_base_heap, 4096);
}

TEST(Baseline, MarksAllLiveRecordsAndTheArraysOwnOnes) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  for (const char kind : {'M', 'c', 'R', 's', 'X', 'W', 'J', 'B'}) hold(handle, 0x1000, kind, 1, 1);
  hold(handle, 0x1010, 'H', 1, 1);
  hold(handle, 0x1070, 'T', 1, 1);
  EXPECT_EQ(marks_of(handle), "PMcRsXWJBPHPT");
  qk_mem_baseline("");
  EXPECT_EQ(marks_of(handle), "[P][M][c][R][s][X][W][J][B][P][H][P][T]");
}

TEST(Baseline, MarksNoFreeSlot) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  hold(handle, 0x1000, 'M', 1, 1);
  qk_mem_baseline("");
  for (int i = 2; i < 16; ++i) EXPECT_EQ(handle.ptrs[0].ptrs[i].baselined, 0) << i;
}

TEST(Baseline, SkipsArraysThatLostTheirSlots) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1);
  handle.ptrs[3].capacity = 16;
  handle.ptrs[3].used = 1;
  hold(handle, 0x1000, 'M', 1, 1);
  EXPECT_EQ(qk_mem_baseline(""), 0);
  EXPECT_EQ(handle.ptrs[0].ptrs[1].baselined, 1);
}

TEST(Baseline, ReplacesThePreviousOne) {
  Stage stage(100);
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  hold(handle, 0x1000, 'M', 1, 100);
  qk_mem_baseline("");
  hold(handle, 0x1100, 'M', 1, 20);
  set_heap(500);
  EXPECT_EQ(baseline_of(handle), "1 for 100, overhead 1 for 768");
  EXPECT_EQ(marks_of(handle), "[P][M]M");
  qk_mem_baseline("");
  EXPECT_EQ(baseline_of(handle), "2 for 120, overhead 1 for 768");
  EXPECT_EQ(baseline_of(Qk_mem_tags[0]), "2 for 120");
  EXPECT_EQ(marks_of(handle), "[P][M][M]");
  EXPECT_EQ(Qk_mem_base_heap, 500);
}

TEST(Baseline, FollowsTotalsThatShrank) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  qk_mem_ptr& record = hold(handle, 0x1000, 'M', 1, 100);
  qk_mem_baseline("");
  qk_mem_free_ptr(&handle, &record);
  handle.amount = 0;
  handle.tag->amount = 0;
  qk_mem_baseline("");
  EXPECT_EQ(baseline_of(handle), "0 for 0, overhead 1 for 768");
  EXPECT_EQ(baseline_of(Qk_mem_tags[0]), "0 for 0");
  EXPECT_EQ(handle.baselined, 1);
}

TEST(Baseline, KeepsOlderBaselinesOfWhatIsNotSelected) {
  Stage stage;
  qk_mem_handle& one = stage.handle(1, 'D', "AB");
  qk_mem_handle& two = stage.handle(2, 'D', "CD");
  hold(one, 0x1000, 'M', 1, 1);
  hold(two, 0x1000, 'M', 1, 2);
  qk_mem_baseline("");
  hold(one, 0x1100, 'M', 1, 10);
  hold(two, 0x1100, 'M', 1, 20);
  qk_mem_baseline("TAG=AB");
  EXPECT_EQ(baseline_of(one), "2 for 11, overhead 1 for 768");
  EXPECT_EQ(baseline_of(two), "1 for 2, overhead 1 for 768");
  EXPECT_EQ(baseline_of(Qk_mem_tags[0]), "2 for 11");
  EXPECT_EQ(baseline_of(Qk_mem_tags[1]), "1 for 2");
  EXPECT_EQ(marks_of(two), "[P][M]M");
}

TEST(Baseline, CoversOnlyTheHandlesThatTheFilterKeeps) {
  const struct {
    const char* filter;
    std::string covered;  // numbers of handles
  } cases[] = {
      {"", "12345"},
      {"HANDLE=3", "3"},
      {"HANDLE=9", ""},
      {"TAG=ab", "25"},
      {"TAG=A", "4"},
      {"TAG=NONE", "13"},
      {"TYPE=OVERHEAD", "15"},
      {"TYPE=DATA", "234"},
      {"AUTOFREE=TRUE", "2"},
      {"AUTOFREE=FALSE", "1345"},
      {"BLOCKMGMT=TRUE", "3"},
      {"BLOCKMGMT=FALSE", "1245"},
      {"NEW_HANDLE=TRUE", "1235"},
      {"NEW_HANDLE=FALSE", "4"},
      {"NEW_PTRS=TRUE", "5"},
      {"NEW_PTRS=FALSE", "1234"},
      {"TYPE=DATA AND TAG=AB", "2"},
  };
  for (const auto& one : cases) {
    Stage stage;
    stage.handle(1, 'O');
    stage.handle(2, 'D', "AB").autofree = 'a';
    stage.handle(3).blockmgmt = 'B';
    stage.handle(4, 'D', "A").baselined = 1;
    stage.handle(5, 'O', "AB").has_growth = 1;
    for (int id = 1; id <= 5; ++id) {
      qk_mem_handle& handle = *Qk_mem_handles[id - 1];
      handle.amount = 100;
    }
    EXPECT_EQ(qk_mem_baseline(one.filter), 0);
    std::string covered;
    for (int id = 1; id <= 5; ++id) {
      const qk_mem_handle& handle = *Qk_mem_handles[id - 1];
      if (handle.baselined == 1 && handle.base_amount == 100) covered += std::to_string(id);
    }
    EXPECT_EQ(covered, one.covered) << one.filter;
  }
}

TEST(Baseline, MarksAllPointersOfASelectedHandle) {
  for (const char* filter : {"NEW_PTRS=TRUE", "NEW_PTRS=FALSE"}) {
    Stage stage;
    qk_mem_handle& handle = stage.handle(1);
    handle.has_growth = std::string(filter) == "NEW_PTRS=TRUE" ? 1 : 0;
    hold(handle, 0x1000, 'M', 1, 1).baselined = 1;
    hold(handle, 0x1100, 'M', 1, 1);
    qk_mem_baseline(filter);
    EXPECT_EQ(marks_of(handle), "[P][M][M]") << filter;
  }
}

TEST(Baseline, CoversTagsByNameOnly) {
  const struct {
    const char* filter;
    std::string covered;
  } cases[] = {
      {"", "AB C NONE"},
      {"TAG=AB", "AB"},
      {"TAG=C", "C"},
      {"TAG=XY", ""},
      {"TAG=NONE", "NONE"},
      {"TYPE=OVERHEAD", "AB C NONE"},
      {"HANDLE=9", "AB C NONE"},
      {"AUTOFREE=TRUE", "AB C NONE"},
      {"NEW_PTRS=TRUE", "AB C NONE"},
  };
  Stage stage;
  qk_mem_tag* const tags[] = {qk_mem_register_tag("AB"), qk_mem_register_tag("C"),
                              &Qk_mem_global_tag};
  for (const auto& one : cases) {
    for (qk_mem_tag* tag : tags) {
      tag->qty = 3;
      tag->amount = 30;
      tag->base_qty = 0;
      tag->base_amount = 0;
    }
    qk_mem_baseline(one.filter);
    std::string covered;
    for (const qk_mem_tag* tag : tags) {
      if (baseline_of(*tag) != "3 for 30") continue;
      if (!covered.empty()) covered += ' ';
      covered += tag->name[0] == '\0' ? "NONE" : tag->name;
    }
    EXPECT_EQ(covered, one.covered) << one.filter;
  }
}

TEST(Baseline, LeavesTheErrorCodeAlone) {
  Stage stage;
  (void)qk_mem_isize(99, "app.c", 1);
  qk_mem_baseline("");
  EXPECT_EQ(qk_mem_error(), 5566);
}

/** The lines that a baseline writes. */
std::string log_of(const char* filter) {
  configure("DEBUG=qk_mem_baseline LOG=baseline.log FLUSH");
  EXPECT_EQ(qk_mem_baseline(filter), 0);
  return contents("baseline.log");
}

TEST(BaselineLog, ShowsTheTotalsOfEachHandleAndTag) {
  Stage stage;
  hold(stage.handle(1, 'O'), 0x1000, 'M', 1, 3);
  hold(stage.handle(2, 'D', "AB"), 0x1000, 'C', 5, 10);
  qk_mem_handle& large = stage.handle(9, 'D', "Z");
  large.qty = 4294967295;
  large.amount = 18446744073709551615U;
  EXPECT_EQ(log_of(""),
            "   qk_mem_baseline:     Baselines will be set\n"
            "   qk_mem_baseline:       1    base_qty:       1  base_amt:          3\n"
            "   qk_mem_baseline:       2    base_qty:       1  base_amt:         50\n"
            "   qk_mem_baseline:       9    base_qty: 4294967295  base_amt: 18446744073709551615\n"
            "   qk_mem_baseline:     AB     base_qty:       1  base_amt:         50\n"
            "   qk_mem_baseline:      Z     base_qty:       0  base_amt:          0\n"
            "   qk_mem_baseline:     NONE   base_qty:       1  base_amt:          3\n");
}

TEST(BaselineLog, ShowsTheFilterAndOnlyWhatItKeeps) {
  Stage stage;
  hold(stage.handle(1, 'D', "AB"), 0x1000, 'M', 1, 3);
  hold(stage.handle(2, 'D', "C"), 0x1000, 'M', 1, 4);
  EXPECT_EQ(log_of("TAG=ab AND TYPE=DATA"),
            "   qk_mem_baseline:     Baselines will be set where TAG=ab AND TYPE=DATA\n"
            "   qk_mem_baseline:       1    base_qty:       1  base_amt:          3\n"
            "   qk_mem_baseline:     AB     base_qty:       1  base_amt:          3\n");
}

TEST(BaselineLog, IsTheSameForANullFilterAsForAnEmptyOne) {
  Stage stage;
  EXPECT_EQ(log_of(nullptr),
            "   qk_mem_baseline:     Baselines will be set\n"
            "   qk_mem_baseline:     NONE   base_qty:       0  base_amt:          0\n");
}

TEST(BaselineLog, IsWrittenOnlyUnderDebugOfThisRoutine) {
  for (const char* debug : {"EXCEPTIONS CTRLBLKS SUMMARY TRACE", "DEBUG='not qk_mem_baseline'"}) {
    Stage stage;
    configure((std::string(debug) + " LOG=other.log FLUSH").c_str());
    EXPECT_EQ(qk_mem_baseline(""), 0);
    EXPECT_EQ(contents("other.log"), "") << debug;
  }
}

}  // namespace

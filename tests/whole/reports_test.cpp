// Compares whole reports of one program with the files in expected/. A test that fails shows the
// difference. With QKMEM_FRESH_TEXTS=folder in the environment each test writes its report to a
// file in that folder, with the name of the expected file, and fails. After reading every changed
// line, copy the file to expected/:
//
//   mkdir /tmp/fresh
//   QKMEM_FRESH_TEXTS=/tmp/fresh ctest --test-dir build -R '^whole[.]'
//   diff -r tests/whole/expected /tmp/fresh
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/records.h"
#include "tests/kit/heap.h"
#include "tests/kit/placement.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::handle_of;
using kit::normalized_report;
using kit::Scene;
using kit::set_heap;

constexpr unsigned kDetails =
    QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;
constexpr unsigned kEverySection = QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HEAPSIZE | kDetails;

/** Made absolute before a test changes the current folder. */
const std::filesystem::path expected_folder =
    std::filesystem::absolute(__FILE__).parent_path() / "expected";

void expect_printed(const std::string& name, const std::string& text) {
  const std::string file = name + ".txt";
  if (const char* folder = std::getenv("QKMEM_FRESH_TEXTS")) {
    std::ofstream(std::filesystem::path(folder) / file, std::ios::binary) << text;
    ADD_FAILURE() << "written, not compared";
    return;
  }
  ASSERT_TRUE(std::filesystem::exists(expected_folder / file)) << file;
  EXPECT_EQ(text, kit::contents(expected_folder / file)) << file;
}

/**
 * Charges a handle 1000 bytes for its record and 100 for its mutex, so that the sums don't depend
 * on their real sizes. In rows, normalized_report() replaces these sizes.
 */
void set_fixed_sizes(int hid) {
  qk_mem_handle& handle = handle_of(hid);
  if (handle.track == 0) return;  // has no record of itself
  handle.overhead_amount += 1000 - sizeof(qk_mem_handle);
  if (handle.mtx != nullptr) handle.overhead_amount += 100 - sizeof(qk::Mtx);
}

int create(const char* options, const char* tag, int line) {
  const int hid = qk_mem_inew_handle(options, tag, "src/pools.cpp", line);
  set_fixed_sizes(hid);
  return hid;
}

/** A tracker of an object that is never deleted. */
class Tracker : public qk::MemTracker {
 public:
  explicit Tracker(void* object) { address = object; }
  [[nodiscard]] const std::type_info& tracked_type() const override { return typeid(double); }
  [[nodiscard]] bool same_type(const MemTracker& other) const override {
    return other.tracked_type() == tracked_type();
  }
};

/** Addresses of external memory and objects; fixed bits 4 to 6 choose their pointer arrays. */
alignas(128) char storage[512];

void register_object(int hid, int type, std::size_t offset, std::size_t size, int line) {
  auto* tracker = new Tracker(storage + offset);  // now belongs to the handle
  qk_mem_iregister(hid, type, tracker, nullptr, size, "src/objects.cpp", line);
}

/** A program with handles of every kind. A baseline can be set between its two halves. */
class Program {
 public:
  Program() {
    kit::align_requests();
    set_heap(135168);
    qk_mem_init();
    set_fixed_sizes(QK_MEM_OVERHEAD_HANDLE);
    set_fixed_sizes(QK_MEM_DATA_HANDLE);
    make_handles();
    first_half();
    set_heap(270336);
  }

  void second_half() {
    grow();
    shrink();
    replace();
    set_heap(405504);
  }

 private:
  void make_handles() {
    config_ = create("AUTOFREE", "cf", 10);
    index_ = create("MULTITHREADED", "IX", 11);
    objects_ = create(nullptr, "ix", 12);
    journal_ = create("OVERHEAD AUTOFREE", "L", 13);
    parser_ = create("BLOCKMGMT BLOCKSIZE=1024", "PS", 14);
    pieces_ = create("BLOCKMGMT BLOCKFREE BLOCKSIZE=512 MULTITHREADED AUTOFREE", "", 15);
    spare_ = create("OVERHEAD BLOCKMGMT BLOCKFREE BLOCKSIZE=256", "SP", 16);
    empty_ = create("", "", 17);
  }

  void first_half() {
    (void)qk_mem_istrdup(config_, "/etc/app.conf", "src/config.cpp", 31);
    qk_mem_imarralloc(config_, &settings_, 24, 4, "src/config.cpp", 40);
    (void)qk_mem_icalloc(index_, 1000, 24, 16, "src/index/index_builder_of_words.cpp", 77);
    words_ = qk_mem_imalloc(index_, 500, 16, "src/index/words.cpp", 5);
    qk_mem_iregister(objects_, QK_MEM_EXTERNAL, storage, nullptr, 128, "src/objects.cpp", 40);
    register_object(objects_, QK_MEM_OBJECT, 0x10, 72, 41);
    register_object(objects_, QK_MEM_ARRAY, 0xf0, 4000, 42);
    journal_page_ = qk_mem_irealloc(journal_, nullptr, 4096, 16, "src/journal.cpp", 9);
    (void)qk_mem_imalloc(parser_, 900, 16, "src/parser.cpp", 3);
    first_piece_ = qk_mem_imalloc(pieces_, 48, 16, "src/pieces.cpp", 1);
    (void)qk_mem_icalloc(pieces_, 4, 10, 8, "src/pieces.cpp", 2);
    (void)qk_mem_istrdup(pieces_, "piece", "src/pieces.cpp", 3);
    (void)qk_mem_imalloc(spare_, 64, 16, "src/spare.cpp", 1);
    (void)qk_mem_imalloc(QK_MEM_DATA_HANDLE, 100, 16, "src/main.cpp", 70000);
  }

  void grow() {
    for (int i = 0; i < 4; ++i) qk_mem_imarralloc(config_, &settings_, 24, 4, "src/config.cpp", 41);
    register_object(objects_, QK_MEM_OBJECT, 0x110, 72, 43);
    (void)qk_mem_imalloc(parser_, 2000, 16, "src/parser.cpp", 4);
    (void)qk_mem_irealloc(pieces_, nullptr, 400, 1, "src/pieces.cpp", 4);
  }

  void shrink() {
    qk_mem_ifree(index_, words_, "src/index/words.cpp", 6);
    qk_mem_ifree(journal_, journal_page_, "src/journal.cpp", 10);
    Tracker array(storage + 0xf0);
    qk_mem_ideregister(objects_, QK_MEM_ARRAY, &array, "src/objects.cpp", 50);
  }

  void replace() {
    qk_mem_idel_handle(empty_, "src/pools.cpp", 20);
    const int results = create("", "rs", 21);
    (void)qk_mem_imalloc(results, 1500, 16, "src/results.cpp", 1);
    qk_mem_ifree(pieces_, first_piece_, "src/pieces.cpp", 5);
    (void)qk_mem_imalloc(pieces_, 48, 16, "src/pieces.cpp", 6);
  }

  int config_ = 0, index_ = 0, objects_ = 0, journal_ = 0;
  int parser_ = 0, pieces_ = 0, spare_ = 0, empty_ = 0;
  void* settings_ = nullptr;
  void* words_ = nullptr;
  void* journal_page_ = nullptr;
  void* first_piece_ = nullptr;
};

/** Reports of the first half, without a baseline. */
class Report : public ::testing::Test {
 protected:
  void expect_report(const std::string& name, const char* filter, unsigned options) {
    expect_printed(name, kit::report(filter, options));
  }

  Scene scene_{"EXCEPTIONS"};
  Program program_;
};

/** Reports of both halves, with a baseline between them. */
class ReportAfterABaseline : public Report {
 protected:
  ReportAfterABaseline() {
    qk_mem_baseline("");
    program_.second_half();
  }
};

TEST_F(Report, ShowsTheConfiguredSections) { expect_report("configured", "", 0); }

TEST_F(Report, ShowsEverySection) { expect_report("every_section", "", kEverySection); }

TEST_F(Report, ComparesWithNothingWithoutABaseline) {
  expect_report("compared_with_nothing", "", QK_MEM_DUMP_COMPARISON);
}

TEST_F(Report, ShowsGrowthSinceTheStart) {
  expect_report("growth_since_the_start", "", QK_MEM_DUMP_GROWTH | kDetails);
}

TEST_F(Report, ShowsManagementAlone) { expect_report("management_alone", "", QK_MEM_DUMP_MGMT); }

TEST_F(Report, ShowsTheHeapAndHandles) {
  expect_report("heap_and_handles", "", QK_MEM_DUMP_HEAPSIZE | QK_MEM_DUMP_HANDLES);
}

TEST_F(Report, NamesAnInvalidFilter) {
  expect_report("refused_filter", "HANDLE=3 COLOUR=RED", kEverySection);
}

TEST_F(ReportAfterABaseline, ShowsTheConfiguredSections) {
  expect_report("after_baseline_configured", "", 0);
}

TEST_F(ReportAfterABaseline, ShowsEverySection) {
  expect_report("after_baseline_every_section", "", kEverySection);
}

TEST_F(ReportAfterABaseline, ComparesWithTheBaseline) {
  expect_report("comparison", "", QK_MEM_DUMP_COMPARISON);
}

TEST_F(ReportAfterABaseline, ComparesWithTheBaselineUnderAFilter) {
  expect_report("comparison_of_a_tag", "TAG=IX", QK_MEM_DUMP_COMPARISON | kEverySection);
}

TEST_F(ReportAfterABaseline, ShowsGrowth) {
  expect_report("growth", "", QK_MEM_DUMP_GROWTH | kEverySection);
}

TEST_F(ReportAfterABaseline, ShowsGrowthTersely) {
  expect_report("growth_terse", "",
                QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_TERSE | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS |
                    QK_MEM_DUMP_POINTERS);
}

TEST_F(ReportAfterABaseline, SaysSoIfThereIsNoGrowth) {
  expect_report("growth_none", "HANDLE=9", QK_MEM_DUMP_GROWTH | kEverySection);
}

TEST_F(ReportAfterABaseline, IsEmptyIfThereIsNoGrowthAndItIsTerse) {
  expect_report("growth_none_terse", "HANDLE=9",
                QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_TERSE | kEverySection);
}

TEST_F(ReportAfterABaseline, ShowsTheHandlesOfATag) {
  expect_report("filter_tag", "TAG=ix", kDetails);
}

TEST_F(ReportAfterABaseline, ShowsHandlesWithoutATag) {
  expect_report("filter_untagged", "TAG=NONE", kDetails);
}

TEST_F(ReportAfterABaseline, ShowsOneHandle) {
  expect_report("filter_handle", "HANDLE=8", kDetails);
}

TEST_F(ReportAfterABaseline, ShowsOverheadHandles) {
  expect_report("filter_overhead", "TYPE=OVERHEAD", kDetails);
}

TEST_F(ReportAfterABaseline, ShowsBlockManagedHandlesWithoutAutofree) {
  expect_report("filter_blocks", "BLOCKMGMT=TRUE AND AUTOFREE=FALSE", kDetails);
}

TEST_F(ReportAfterABaseline, ShowsOldPointersOnOldHandles) {
  expect_report("filter_old", "NEW_HANDLE=FALSE AND NEW_PTRS=FALSE", kDetails);
}

TEST(ReportAtTheEnd, ShowsWhatRemainsWithoutAutofreeHandles) {
  const Scene scene;
  const kit::Ended ended = kit::run({"SUMMARY", "", "OPTIONS=SUMMARY,HANDLES,MGMT,BLOCKS,POINTERS"},
                                    [] { Program().second_half(); });
  EXPECT_EQ(ended.exit_code, 0);
  expect_printed("at_the_end", normalized_report(ended.log));
}

}  // namespace

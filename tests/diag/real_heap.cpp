// The heap's size with the allocator and the statistics of the C library: other test programs have
// their own in front of them.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/registry.h"
#include "diag/heap.h"
#include "diag/trace_file.h"
#include "qkmem/qkmem.h"
#include "support/heap_counter.h"

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
int asked_heap() { return mallinfo().arena; }
const auto kStatistics = reinterpret_cast<std::uintptr_t>(&mallinfo);
#pragma GCC diagnostic pop

constexpr std::size_t kPage = 4096;

/** The compiler may leave out a malloc() whose result isn't used. */
void* taken(std::size_t size) {
  void* volatile memory = std::malloc(size);
  return memory;
}

/** Columns 8 (File) and 11 (Heap) of the trace file's rows. */
std::vector<int> heaps_in_rows_of(const std::string& wanted) {
  std::vector<int> heaps;
  std::ifstream rows("qkmem.tdf");
  for (std::string row; std::getline(rows, row);) {
    std::istringstream columns(row);
    std::vector<std::string> texts;
    for (std::string text; std::getline(columns, text, '\t');) texts.push_back(text);
    if (texts.size() == 15 && texts[7] == wanted) heaps.push_back(std::stoi(texts[10]));
  }
  return heaps;
}

/** A new process with an open trace file. */
class HeapInRows : public ::testing::Test {
 protected:
  HeapInRows() {
    std::string name = (std::filesystem::temp_directory_path() / "qkmem-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    folder_ = name;
    std::filesystem::current_path(folder_);
    setenv("QK_MEM_DEBUG", "TRACE LOG=NONE", 1);
    setenv("QK_MEM_OPTIONS", "DB", 1);
    qk_mem_init();
    asked_.reserve(100000);
  }
  void SetUp() override {
    if (asked_heap() == 0) GTEST_SKIP() << "the sanitizer's allocator has no statistics";
  }
  ~HeapInRows() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder_);
  }

  /** Writes a row and asks the allocator itself. */
  void write_row() {
    qk_mem_write_db(0, 'M', nullptr, 1, 1, "probe.c", 1, 0);
    asked_.push_back(asked_heap());
  }

  /** What was in the rows and what the allocator said. */
  void expect_equal_figures() {
    std::fflush(nullptr);
    EXPECT_EQ(heaps_in_rows_of("probe.c"), asked_);
  }

  std::vector<int> asked_;

 private:
  std::filesystem::path folder_;
};

/** Steps of a program that uses malloc() and the end of the heap beside the library. */
class MixedLife {
 public:
  void take_step() {
    const auto step = random_() % 100;
    if (end_ != nullptr && step < 50) return lower_the_end();
    if (step == 0) return raise_the_end();
    if (step == 1) return configure();
    if (step < 5) malloc_trim(random_() % 100000);
    step < 30 ? renew_on_handle() : renew();
  }

 private:
  /** Each number of bits is equally likely, up to 3 MB. */
  std::size_t some_size() { return (random_() % 3000000 + 1) >> (random_() % 21); }

  void renew() {
    void*& memory = memory_[random_() % memory_.size()];
    if (random_() % 3 == 0) {
      memory = std::realloc(memory, some_size());
    } else {
      std::free(memory);
      memory = random_() % 3 == 0 ? nullptr : taken(some_size());
    }
  }

  void renew_on_handle() {
    void*& memory = on_handle_[random_() % on_handle_.size()];
    if (memory != nullptr) qk_mem_free(QK_MEM_DATA_HANDLE, memory);
    memory = random_() % 2 == 0 ? nullptr : qk_mem_malloc(QK_MEM_DATA_HANDLE, some_size());
  }

  void raise_the_end() {
    const auto bytes = static_cast<std::intptr_t>(random_() % 3 == 0 ? random_() % 1000 + 1
                                                                     : random_() % 40 * kPage);
    if (sbrk(bytes) == reinterpret_cast<void*>(-1)) return;
    end_ = sbrk(0);
    raised_by_ = bytes;
  }

  /** Only if the memory at the end is what raise_the_end() got. */
  void lower_the_end() {
    if (sbrk(0) == end_) sbrk(-raised_by_);
    end_ = nullptr;
  }

  void configure() {
    constexpr std::array kOptions = {M_MMAP_THRESHOLD, M_TRIM_THRESHOLD, M_TOP_PAD, M_ARENA_MAX};
    const int option = kOptions[random_() % kOptions.size()];
    mallopt(option,
            option == M_ARENA_MAX ? 4 : static_cast<int>(random_() % 4000000 >> random_() % 8));
  }

  std::mt19937 random_{20261122};
  std::array<void*, 60> memory_{};
  std::array<void*, 60> on_handle_{};
  void* end_ = nullptr;
  std::intptr_t raised_by_ = 0;
};

TEST_F(HeapInRows, IsTheAllocatorsFigureThroughAMixedLife) {
  MixedLife life;
  for (int i = 0; i < 20000; ++i) {
    life.take_step();
    write_row();
  }
  expect_equal_figures();
  int changes = 0;
  for (std::size_t i = 1; i < asked_.size(); ++i) changes += asked_[i] != asked_[i - 1] ? 1 : 0;
  EXPECT_GT(changes, 100);
}

TEST_F(HeapInRows, GrowsWhereMemoryIsMappedAboveTheHeap) {
  write_row();
  void* const end = sbrk(0);
  const auto page = (reinterpret_cast<std::uintptr_t>(end) + kPage - 1) / kPage * kPage;
  void* const above = reinterpret_cast<void*>(page);
  ASSERT_EQ(mmap(above, kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0),
            above);
  std::vector<void*> blocks;
  for (int i = 0; i < 100; ++i) {
    blocks.push_back(taken(50000));
    write_row();
  }
  EXPECT_EQ(sbrk(0), end);
  EXPECT_GT(asked_.back(), asked_.front() + 4000000);
  for (void* block : blocks) {
    std::free(block);
    write_row();
  }
  expect_equal_figures();
}

/** Takes memory, with a row for each piece, until the process has no more of it, and frees it. */
class HeapAtALimit : public HeapInRows {
 protected:
  void take_all(__rlimit_resource limit, rlim_t bytes) {
    rlimit before = {};
    getrlimit(limit, &before);
    const rlimit few = {bytes, before.rlim_max};
    ASSERT_EQ(setrlimit(limit, &few), 0);
    for (void*& block : blocks_) {
      block = taken(30000);
      write_row();
    }
    setrlimit(limit, &before);
    for (void* block : blocks_) {
      std::free(block);
      write_row();
    }
    expect_equal_figures();
  }

  std::array<void*, 200> blocks_{};
};

TEST_F(HeapAtALimit, IsTheAllocatorsFigureIfNothingCanBeMapped) {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  take_all(RLIMIT_AS, pages * kPage + (1 << 20));
  EXPECT_EQ(blocks_.back(), nullptr);
}

/** The kernel lets memory be mapped nevertheless. */
TEST_F(HeapAtALimit, GrowsWhereItsEndMayNotMove) { take_all(RLIMIT_DATA, 0); }

/** The heap's end is where it was, but part of what is below it belongs to the program. */
TEST_F(HeapInRows, ShrinksWhereTheProgramPutsTheEndBack) {
  mallopt(M_MMAP_THRESHOLD, 16 << 20);
  mallopt(M_TRIM_THRESHOLD, 64 << 10);
  void* const block = taken(4 << 20);
  write_row();
  auto* const end = static_cast<char*>(sbrk(0));
  std::free(block);
  const std::intptr_t given_back = end - static_cast<char*>(sbrk(0));
  ASSERT_GT(given_back, 1 << 20);
  sbrk(given_back);
  EXPECT_EQ(sbrk(0), end);
  write_row();
  EXPECT_EQ(asked_.back() + given_back, asked_.front());
  expect_equal_figures();
}

TEST_F(HeapInRows, DoesNotCountBlocksThatAreMappedOnTheirOwn) {
  mallopt(M_MMAP_THRESHOLD, 128 << 10);
  write_row();
  void* const block = taken(1 << 20);
  write_row();
  std::free(block);
  write_row();
  EXPECT_EQ(asked_[1], asked_[0]);
  expect_equal_figures();
}

TEST_F(HeapInRows, IncludesTheHeapsOfOtherThreads) {
  write_row();
  std::thread([this] {
    std::free(taken(1000));
    write_row();
  }).join();
  write_row();
  EXPECT_GT(asked_.back(), asked_.front());
  expect_equal_figures();
}

TEST_F(HeapInRows, IsRightInAProcessThatForkedBesideAThread) {
  write_row();
  std::thread([this] {
    std::free(taken(1000));
    const pid_t child = fork();
    if (child == 0) {
      const int inherited = asked_heap();
      write_row();
      std::fflush(nullptr);
      std::_Exit(heaps_in_rows_of("probe.c") == std::vector{asked_.front(), inherited} ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }).join();
}

TEST_F(HeapInRows, IsTheSameBesideTheLinesOfEvents) {
  Qk_mem_opts = 1;
  MixedLife life;
  int before = 0;
  for (int i = 0; i < 2000; ++i) {
    life.take_step();
    char text[48];
    const int heap = asked_heap();
    char expected[48];
    std::snprintf(expected, sizeof expected, " (%d %d)", heap, heap - before);
    qk_mem_heapsize_string(text);
    ASSERT_STREQ(text, expected) << i;
    before = heap;
  }
}

class HeapCounter : public ::testing::Test {
 protected:
  HeapCounter() { std::free(taken(1)); }
  void SetUp() override {
    if (asked_heap() == 0) GTEST_SKIP() << "the sanitizer's allocator has no statistics";
  }
};

TEST_F(HeapCounter, FollowsTheHeapOfAnOrdinaryProcess) {
  const qk::HeapCounter counter = qk::HeapCounter::find(kStatistics, asked_heap());
  mallopt(M_MMAP_THRESHOLD, 16 << 20);
  const int before = asked_heap();
  EXPECT_EQ(counter.read(), static_cast<std::size_t>(before));
  void* const block = taken(4 << 20);
  EXPECT_GT(asked_heap(), before);
  EXPECT_EQ(counter.read(), static_cast<std::size_t>(asked_heap()));
  std::free(block);
  EXPECT_EQ(counter.read(), static_cast<std::size_t>(asked_heap()));
}

TEST_F(HeapCounter, IsNotFoundIfItShowsAnotherFigure) {
  EXPECT_EQ(qk::HeapCounter::find(kStatistics, asked_heap() + 1).read(), std::nullopt);
}

/** An allocator in the program itself is another one, whatever its variables look like. */
TEST_F(HeapCounter, IsSoughtInSharedLibrariesOnly) {
  static std::array<std::uintptr_t, 275> lookalike;
  const auto heap = static_cast<std::uintptr_t>(asked_heap());
  lookalike[270] = reinterpret_cast<std::uintptr_t>(&lookalike);
  lookalike[272] = 1;
  lookalike[273] = lookalike[274] = heap;
  const auto here = reinterpret_cast<std::uintptr_t>(&taken);
  EXPECT_EQ(qk::HeapCounter::find(here, asked_heap()).read(), std::nullopt);
  constexpr std::uintptr_t kNowhere = 16;
  EXPECT_EQ(qk::HeapCounter::find(kNowhere, asked_heap()).read(), std::nullopt);
}

TEST_F(HeapCounter, ShowsNothingOnceAnotherThreadHasAHeap) {
  const qk::HeapCounter counter = qk::HeapCounter::find(kStatistics, asked_heap());
  EXPECT_NE(counter.read(), std::nullopt);
  std::thread([] { std::free(taken(1000)); }).join();
  EXPECT_EQ(counter.read(), std::nullopt);
  EXPECT_EQ(qk::HeapCounter::find(kStatistics, asked_heap()).read(), std::nullopt);
}

TEST(EmptyHeapCounter, ShowsNothing) { EXPECT_EQ(qk::HeapCounter().read(), std::nullopt); }

}  // namespace

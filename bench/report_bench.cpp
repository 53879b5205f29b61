// What a report costs when many pointers are live.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "qkmem/qkmem.h"

namespace {

constexpr int kPointers = 100000;
constexpr unsigned kEverySection = QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HEAPSIZE |
                                   QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_MGMT | QK_MEM_DUMP_BLOCKS |
                                   QK_MEM_DUMP_POINTERS;

/** 100,000 live pointers on some handles, of which half are older than the baseline. */
class Holding {
 public:
  explicit Holding(int handles) : count_(handles) {
    for (int i = 0; i < count_; ++i) ids_[i] = qk_mem_new_handle("", "BE");
    fill();
    qk_mem_baseline("");
    fill();
  }
  ~Holding() {
    for (int i = 0; i < count_; ++i) qk_mem_del_handle(ids_[i]);
  }
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;

 private:
  void fill() {
    for (int i = 0; i < kPointers / 2; ++i) {
      benchmark::DoNotOptimize(qk_mem_malloc(ids_[i % count_], static_cast<size_t>(i % 100 + 1)));
    }
  }

  int count_;
  int ids_[1000] = {};
};

/** A file of the system's folder for them, gone when it is closed. */
class File {
 public:
  File() : stream_(std::tmpfile()) {}
  ~File() {
    if (stream_ != nullptr) std::fclose(stream_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  /** Writes a report from the beginning of the file on; the result is its size. */
  std::int64_t report(const char* filter, unsigned sections) {
    std::rewind(stream_);
    qk_mem_dump(stream_, filter, sections);
    std::fflush(stream_);
    return std::ftell(stream_);
  }

  [[nodiscard]] bool is_open() const { return stream_ != nullptr; }

 private:
  FILE* stream_;
};

void print(benchmark::State& state, unsigned sections) {
  setenv("QK_MEM_DEBUG", "TRACE", 1);  // read at the first call, which the next line makes
  const Holding holding(static_cast<int>(state.range(0)));
  File file;
  if (!file.is_open()) {
    state.SkipWithError("no temporary file");
    return;
  }
  std::int64_t size = 0;
  for ([[maybe_unused]] auto iteration : state) size = file.report("", sections);
  state.counters["bytes"] = static_cast<double>(size);
}

void EverySectionOf100000Pointers(benchmark::State& state) { print(state, kEverySection); }

void GrowthOf100000PointersByHalf(benchmark::State& state) {
  print(state, QK_MEM_DUMP_GROWTH | kEverySection);
}

void ComparisonOf100000Pointers(benchmark::State& state) { print(state, QK_MEM_DUMP_COMPARISON); }

BENCHMARK(EverySectionOf100000Pointers)->Unit(benchmark::kMillisecond)->Arg(1)->Arg(1000);
BENCHMARK(GrowthOf100000PointersByHalf)->Unit(benchmark::kMillisecond)->Arg(1)->Arg(1000);
BENCHMARK(ComparisonOf100000Pointers)->Unit(benchmark::kMillisecond)->Arg(1)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();

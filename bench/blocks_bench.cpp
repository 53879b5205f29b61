// What pieces of a block-managed handle cost beside malloc and a monotonic buffer of the C++
// library: a phase of 1000 objects of 8 to 128 bytes that is released at once, and the filling of a
// handle that was filled and cleared before. Without QK_MEM_DEBUG in the environment, as programs
// run.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <memory_resource>
#include <random>
#include <string>
#include <vector>

#include "qkmem/qkmem.h"

namespace {

constexpr std::size_t kObjects = 1000;
constexpr std::size_t kManyPieces = 1000000;
constexpr std::size_t kBufferSize = 1 << 17;  // room for a whole phase

std::vector<std::size_t> sizes_of(std::size_t count) {
  std::mt19937 random(1);
  std::vector<std::size_t> sizes(count);
  for (std::size_t& size : sizes) size = 8 + random() % 121;
  return sizes;
}

/** A user writes to what it was given. */
void use(void* memory) {
  *static_cast<char*>(memory) = 1;
  benchmark::DoNotOptimize(memory);
}

void count_objects(benchmark::State& state, std::size_t count) {
  state.SetItemsProcessed(static_cast<std::int64_t>(count) * state.iterations());
}

/** A block-managed handle for as long as it lives. */
class Handle {
 public:
  explicit Handle(const std::string& options) : id_(qk_mem_new_handle(options.c_str(), "")) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { qk_mem_del_handle(id_); }
  operator int() const { return id_; }  // NOLINT: it stands for its number

 private:
  int id_;
};

void phase_malloc(benchmark::State& state) {
  const auto sizes = sizes_of(kObjects);
  std::vector<void*> objects(kObjects);
  for (auto _ : state) {
    for (std::size_t i = 0; i < kObjects; ++i) use(objects[i] = std::malloc(sizes[i]));
    for (void* object : objects) std::free(object);
  }
  count_objects(state, kObjects);
}

void allocate_all(std::pmr::memory_resource& resource, const std::vector<std::size_t>& sizes) {
  for (const std::size_t size : sizes) use(resource.allocate(size));
}

/** The resource has one buffer for all phases. */
void phase_monotonic_in_buffer(benchmark::State& state) {
  const auto sizes = sizes_of(kObjects);
  std::vector<std::byte> buffer(kBufferSize);
  std::pmr::monotonic_buffer_resource resource(buffer.data(), buffer.size());
  for (auto _ : state) {
    allocate_all(resource, sizes);
    resource.release();
  }
  count_objects(state, kObjects);
}

/** The resource gets its buffers from the heap anew in each phase. */
void phase_monotonic_from_heap(benchmark::State& state) {
  const auto sizes = sizes_of(kObjects);
  std::pmr::monotonic_buffer_resource resource(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    allocate_all(resource, sizes);
    resource.release();
  }
  count_objects(state, kObjects);
}

void phase_blocks(benchmark::State& state, const char* options) {
  const auto sizes = sizes_of(kObjects);
  const Handle handle(options);
  for (auto _ : state) {
    for (const std::size_t size : sizes) use(qk_mem_malloc(handle, size));
    qk_mem_clear_handle(handle);
  }
  count_objects(state, kObjects);
}

void refill_blocks(benchmark::State& state, const char* options) {
  const auto sizes = sizes_of(kManyPieces);
  const Handle handle(options);
  for (const std::size_t size : sizes) use(qk_mem_malloc(handle, size));
  for (auto _ : state) {
    state.PauseTiming();
    qk_mem_clear_handle(handle);
    state.ResumeTiming();
    for (const std::size_t size : sizes) use(qk_mem_malloc(handle, size));
  }
  count_objects(state, kManyPieces);
}

BENCHMARK(phase_malloc);
BENCHMARK(phase_monotonic_in_buffer);
BENCHMARK(phase_monotonic_from_heap)->Arg(65536)->Arg(2048);

BENCHMARK_CAPTURE(phase_blocks, 64_KiB, "BLOCKMGMT BLOCKSIZE=65536");
BENCHMARK_CAPTURE(phase_blocks, 2_KiB, "BLOCKMGMT BLOCKSIZE=2048");
BENCHMARK_CAPTURE(phase_blocks, 64_KiB_multithreaded, "BLOCKMGMT BLOCKSIZE=65536 MULTITHREADED");
BENCHMARK_CAPTURE(phase_blocks, 2_KiB_multithreaded, "BLOCKMGMT BLOCKSIZE=2048 MULTITHREADED");
BENCHMARK_CAPTURE(phase_blocks, 64_KiB_blockfree, "BLOCKMGMT BLOCKFREE BLOCKSIZE=65536");
BENCHMARK_CAPTURE(phase_blocks, 2_KiB_blockfree, "BLOCKMGMT BLOCKFREE BLOCKSIZE=2048");

BENCHMARK_CAPTURE(refill_blocks, 64_KiB, "BLOCKMGMT BLOCKSIZE=65536")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(refill_blocks, 2_KiB, "BLOCKMGMT BLOCKSIZE=2048")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(refill_blocks, 64_KiB_blockfree, "BLOCKMGMT BLOCKFREE BLOCKSIZE=65536")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(refill_blocks, 2_KiB_blockfree, "BLOCKMGMT BLOCKFREE BLOCKSIZE=2048")
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

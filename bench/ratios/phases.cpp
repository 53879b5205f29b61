#include <obstack.h>

#include <array>
#include <cstddef>
#include <memory>
#include <memory_resource>
#include <string>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/sizes.h"
#include "bench/ratios/workloads.h"

#ifdef HAVE_APR
#include <apr_general.h>
#include <apr_pools.h>
#endif

namespace ratios {
namespace {

constexpr std::size_t kObjects = 1000;

/** Keeps the pointers, to free them. */
class EachFreed {
 public:
  void* allocate(std::size_t size) { return *end_++ = std::malloc(size); }
  void clear() {
    while (end_ != objects_.data()) std::free(*--end_);
  }

 private:
  std::array<void*, kObjects> objects_;
  void** end_ = objects_.data();
};

class Obstack {
 public:
  explicit Obstack(int block) {
    obstack_begin(&stack_, block);
    bottom_ = obstack_alloc(&stack_, 0);
  }
  ~Obstack() { obstack_free(&stack_, nullptr); }
  Obstack(const Obstack&) = delete;
  Obstack& operator=(const Obstack&) = delete;

  void* allocate(std::size_t size) { return obstack_alloc(&stack_, static_cast<int>(size)); }
  void clear() { obstack_free(&stack_, bottom_); }

 private:
  static void* obstack_chunk_alloc(std::size_t size) { return std::malloc(size); }
  static void obstack_chunk_free(void* chunk) { std::free(chunk); }

  obstack stack_;
  void* bottom_;
};

class Monotonic {
 public:
  explicit Monotonic(std::size_t block) : resource_(block) {}

  void* allocate(std::size_t size) { return resource_.allocate(size); }
  void clear() { resource_.release(); }

 private:
  std::pmr::monotonic_buffer_resource resource_;
};

/** Reuses one buffer with room for all objects. */
class MonotonicInBuffer {
 public:
  void* allocate(std::size_t size) { return resource_.allocate(size); }
  void clear() { resource_.release(); }

 private:
  std::vector<std::byte> buffer_ = std::vector<std::byte>(std::size_t{128} << 10);
  std::pmr::monotonic_buffer_resource resource_{buffer_.data(), buffer_.size()};
};

#ifdef HAVE_APR
class AprPool {
 public:
  AprPool() {
    apr_initialize();
    apr_pool_create(&pool_, nullptr);
  }
  ~AprPool() { apr_pool_destroy(pool_); }
  AprPool(const AprPool&) = delete;
  AprPool& operator=(const AprPool&) = delete;

  void* allocate(std::size_t size) { return apr_palloc(pool_, size); }
  void clear() { apr_pool_clear(pool_); }

 private:
  apr_pool_t* pool_ = nullptr;
};
#endif

#ifdef HAVE_TALLOC
/** Large enough for all objects and their headers. */
class TallocPool {
 public:
  TallocPool() : pool_(talloc_pool(nullptr, std::size_t{256} << 10)) {}
  ~TallocPool() { talloc_free(pool_); }
  TallocPool(const TallocPool&) = delete;
  TallocPool& operator=(const TallocPool&) = delete;

  void* allocate(std::size_t size) { return talloc_size(pool_, size); }
  void clear() { talloc_free_children(pool_); }

 private:
  TALLOC_CTX* pool_;
};
#endif

template <class Arena, class... Arguments>
Contestant phase(const char* name, Arguments... arguments) {
  return {name, [=]() -> Run {
            return [arena = std::make_shared<Arena>(arguments...),
                    sizes = sizes_between<kObjects>(8, 128)](std::size_t times) {
              return timed([&] {
                while (times-- != 0) {
                  for (const std::size_t size : sizes) use(arena->allocate(size));
                  arena->clear();
                }
              });
            };
          }};
}

Workload unrecorded_phase(const char* name, int block, const char* shown, Goal goal) {
  return {name,
          "Block-managed handle, nothing recorded, blocks of " + std::string(shown) +
              ": 1000 objects of 8 to 128 bytes, then clear",
          goal,
          kObjects,
          Threads::kOne,
          {
              phase<EachFreed>("malloc"),
              phase<Qkmem>("qkmem", "BLOCKMGMT BLOCKSIZE=" + std::to_string(block)),
#ifdef HAVE_APR
              phase<AprPool>("APR pool"),
#endif
              phase<Obstack>("obstack", block),
              phase<Monotonic>("std::pmr monotonic", block),
              phase<MonotonicInBuffer>("std::pmr in a buffer"),
#ifdef HAVE_TALLOC
              phase<TallocPool>("talloc pool"),
#endif
          }};
}

Workload multithreaded_phase(const char* name, int block, const char* shown) {
  const std::string options = "BLOCKMGMT MULTITHREADED BLOCKSIZE=" + std::to_string(block);
  return {name,
          "MULTITHREADED block-managed handle, nothing recorded, blocks of " + std::string(shown) +
              ": 1000 objects of 8 to 128 bytes, then clear",
          kNoGoal,
          kObjects,
          Threads::kOne,
          {phase<EachFreed>("malloc"), phase<Qkmem>("qkmem", options)}};
}

Workload recorded_phase(const char* name, int block, const char* shown, Goal goal) {
  return {name,
          "BLOCKFREE handle, every object recorded, blocks of " + std::string(shown) +
              ": 1000 objects of 8 to 128 bytes, then clear",
          goal,
          kObjects,
          Threads::kOne,
          {
              phase<EachFreed>("malloc"),
              phase<Qkmem>("qkmem", "BLOCKMGMT BLOCKFREE BLOCKSIZE=" + std::to_string(block)),
#ifdef HAVE_TALLOC
              phase<Talloc>("talloc"),
              phase<TallocPool>("talloc pool"),
#endif
          }};
}

}  // namespace

std::vector<Workload> phase_workloads() {
  return {unrecorded_phase("blocks_64k", 65536, "64 KiB", 0.25),
          unrecorded_phase("blocks_2k", 2048, "2 KiB", 0.68),
          multithreaded_phase("blocks_64k_multithreaded", 65536, "64 KiB"),
          multithreaded_phase("blocks_2k_multithreaded", 2048, "2 KiB"),
          recorded_phase("blockfree_64k", 65536, "64 KiB", 0.90),
          recorded_phase("blockfree_2k", 2048, "2 KiB", 1.35)};
}

}  // namespace ratios

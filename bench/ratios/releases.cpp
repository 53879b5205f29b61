#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

/** The usual way to note memory that others have allocated: a hash table with a mutex. */
class Notes {
 public:
  void* allocate(void* memory) {
    const std::lock_guard lock(mutex_);
    notes_.emplace(memory, Note{16, 1, __FILE__, ++sequence_, __LINE__, 'X'});
    return memory;
  }
  void release(void* memory) {
    const std::lock_guard lock(mutex_);
    notes_.erase(memory);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<void*, Note> notes_;
  std::uint64_t sequence_ = 0;
};

/** Registers memory that others have allocated, and never touches it. */
class Registered {
 public:
  void* allocate(void* memory) {
    qk_mem_register(id_, QK_MEM_EXTERNAL, memory, 16);
    return memory;
  }
  void release(void* memory) { qk_mem_deregister(id_, QK_MEM_EXTERNAL, memory); }

 private:
  int id_ = qk_mem_new_handle("DATA", "QB");
};

/** The pieces of an allocator in the order in which they are released. */
template <class Allocator>
class Pieces {
 public:
  template <class... Arguments>
  explicit Pieces(Arguments... arguments) : allocator_(arguments...) {}

  template <class RequestOf>
  void allocate(std::size_t count, RequestOf request_of) {
    pieces_.resize(count);
    for (std::size_t i = 0; i < count; ++i) pieces_[i] = allocator_.allocate(request_of(i));
  }
  void reverse() { std::reverse(pieces_.begin(), pieces_.end()); }
  void release() {
    for (void* piece : pieces_) allocator_.release(piece);
  }

 private:
  Allocator allocator_;
  std::vector<void*> pieces_;
};

/** Notes the same address again and again. */
class NotesOfOne {
 public:
  explicit NotesOfOne(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      notes_.emplace(this, Note{16, 1, __FILE__, ++sequence_, __LINE__, 'X'});
    }
  }

 private:
  std::unordered_multimap<void*, Note> notes_;
  std::uint64_t sequence_ = 0;
};

/** Registers the same memory again and again. The deletion of the handle frees it, once. */
class RegisteredOften {
 public:
  explicit RegisteredOften(std::size_t count) {
    void* memory = std::malloc(16);
    for (std::size_t i = 0; i < count; ++i) qk_mem_register(id_, QK_MEM_EXTERNAL, memory, 16);
  }
  ~RegisteredOften() { qk_mem_del_handle(id_); }
  RegisteredOften(const RegisteredOften&) = delete;
  RegisteredOften& operator=(const RegisteredOften&) = delete;

 private:
  int id_ = qk_mem_new_handle("DATA", "QB");
};

/** The time is that of the destructor. */
template <class Owner>
Contestant deleting(const char* name, std::size_t count) {
  return {name, [=]() -> Run {
            return [=](std::size_t times) {
              Nanoseconds taken{};
              while (times-- != 0) {
                auto owner = std::make_unique<Owner>(count);
                taken += timed([&] { owner.reset(); });
              }
              return taken;
            };
          }};
}

Workload of_one_address(std::size_t count, const char* shown) {
  return {"one_address_" + std::to_string(count),
          "Ordinary handle: deleted with " + std::string(shown) + " records of one address",
          10,
          static_cast<double>(count),
          Threads::kOne,
          {deleting<NotesOfOne>("hash table", count), deleting<RegisteredOften>("qkmem", count)}};
}

enum class Order { kOldestFirst, kNewestFirst };

/** The time doesn't include the allocation. */
template <class Allocator, class RequestOf, class... Arguments>
Contestant releasing(const char* name, std::size_t count, Order order, RequestOf request_of,
                     Arguments... arguments) {
  return {name, [=]() -> Run {
            auto pieces = std::make_shared<Pieces<Allocator>>(arguments...);
            return [=](std::size_t times) {
              Nanoseconds taken{};
              while (times-- != 0) {
                pieces->allocate(count, request_of);
                if (order == Order::kNewestFirst) pieces->reverse();
                taken += timed([&] { pieces->release(); });
              }
              return taken;
            };
          }};
}

/** The system's allocator gives all blocks of this size addresses of the same pointer array. */
Workload of_one_array(std::size_t count) {
  const auto size = [](std::size_t /*index*/) { return std::size_t{120}; };
  return {"newest_first_1000000",
          "Ordinary handle: 1,000,000 blocks of 120 bytes in one pointer array, freed newest first",
          10,
          static_cast<double>(count),
          Threads::kOne,
          {releasing<Malloc>("malloc", count, Order::kNewestFirst, size),
           releasing<Qkmem>("qkmem", count, Order::kNewestFirst, size, "DATA")}};
}

Workload far_apart(std::size_t count) {
  const auto address = [](std::size_t index) {
    return reinterpret_cast<void*>(0x100000000030 + (index << 21));
  };
  return {"far_apart_20000",
          "Ordinary handle: 20,000 registered addresses 2 MiB apart, deregistered newest first",
          5,
          static_cast<double>(count),
          Threads::kOne,
          {releasing<Notes>("hash table", count, Order::kNewestFirst, address),
           releasing<Registered>("qkmem", count, Order::kNewestFirst, address)}};
}

Workload of_blocks(std::size_t count, const char* shown) {
  const auto size = [](std::size_t /*index*/) { return std::size_t{32}; };
  return {"oldest_first_" + std::to_string(count),
          "BLOCKFREE handle: " + std::string(shown) + " pieces of 32 bytes, freed oldest first",
          20,
          static_cast<double>(count),
          Threads::kOne,
          {releasing<Malloc>("malloc", count, Order::kOldestFirst, size),
           releasing<Qkmem>("qkmem", count, Order::kOldestFirst, size, "BLOCKMGMT BLOCKFREE")}};
}

}  // namespace

std::vector<Workload> release_workloads() {
  return {of_one_array(1000000),           far_apart(20000),
          of_blocks(20000, "20,000"),      of_blocks(250000, "250,000"),
          of_one_address(10000, "10,000"), of_one_address(100000, "100,000")};
}

}  // namespace ratios

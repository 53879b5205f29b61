#include <cstdlib>
#include <string>
#include <vector>

#include "bench/ratios/allocators.h"
#include "bench/ratios/workloads.h"

namespace ratios {
namespace {

/** The memory of a handle: its record, and one pointer array for the record of that. */
class MemoryOfHandle {
 public:
  MemoryOfHandle() {
    use(record_);
    use(slots_);
  }
  ~MemoryOfHandle() {
    std::free(slots_);
    std::free(record_);
  }
  MemoryOfHandle(const MemoryOfHandle&) = delete;
  MemoryOfHandle& operator=(const MemoryOfHandle&) = delete;

 private:
  void* record_ = std::calloc(1, 1200);
  void* slots_ = std::calloc(1, 768);
};

Nanoseconds make_each(std::size_t times, void (*make)()) {
  return timed([&] {
    while (times-- != 0) make();
  });
}

/** Never deleted, because the process ends after the workload. */
void create_handles(std::size_t count) {
  while (count-- != 0) qk_mem_new_handle("DATA", "QB");
}

Workload handle_beside(std::size_t count, const char* shown) {
  return {"handle_beside_" + std::to_string(count),
          "A handle created and deleted beside " + std::string(shown) + " others",
          10,
          1,
          Threads::kOne,
          {{"malloc",
            []() -> Run {
              return [](std::size_t times) { return make_each(times, [] { MemoryOfHandle(); }); };
            }},
           {"qkmem", [count]() -> Run {
              create_handles(count);
              return [](std::size_t times) { return make_each(times, [] { Qkmem("DATA"); }); };
            }}}};
}

}  // namespace

std::vector<Workload> handle_workloads() {
  return {handle_beside(1000, "1,000"), handle_beside(100000, "100,000")};
}

}  // namespace ratios

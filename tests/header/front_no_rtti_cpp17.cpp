// The parts of the C++ front that work without run-time type information.
#include <memory_resource>
#include <string>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"

#if defined(__cpp_rtti)
#error "this is the test of -fno-rtti"
#endif

namespace {

using Text = std::basic_string<char, std::char_traits<char>, qk::allocator<char>>;

bool serves_containers(const qk::Handle& pool) {
  {
    std::vector<int, qk::allocator<int>> numbers(100, 7, pool);
    const Text text(50, 'x', qk::allocator<char>(pool));
    if (pool.size() != 451 || text.substr(1).size() != 49) return false;
  }
  return pool.size() == 0;
}

bool serves_pmr_containers(const qk::Handle& pool) {
  qk::memory_resource resource(pool);
  qk::memory_resource same(pool);
  {
    std::pmr::vector<int> one(100, 1, &resource);
    std::pmr::vector<int> other(&same);
    other = std::move(one);
    if (other.size() != 100 || pool.size() < 400) return false;
  }
  return pool.size() == 0 && resource == resource && resource != same;
}

bool grows_arrays(const qk::Handle& pool) {
  long* numbers = nullptr;
  const bool grown = qk_mem_marralloc(pool.number(), &numbers, sizeof *numbers, 4) == 0;
  qk_mem_arrfree(pool.number(), &numbers);
  return grown && numbers == nullptr && pool.size() == 0;
}

}  // namespace

int main() {
  const qk::Handle pool("MULTITHREADED", "PO");
  return serves_containers(pool) && serves_pmr_containers(pool) && grows_arrays(pool) ? 0 : 1;
}

// The C++ front without exceptions.
#include <memory_resource>
#include <vector>

#include "qkmem/qkmem.hpp"

#if defined(__cpp_exceptions)
#error "this is the test of -fno-exceptions"
#endif

namespace {

struct Point {
  int x;
  int y;
};

bool makes_and_destroys(const qk::Handle& pool) {
  Point* const point = qk::make<Point>(pool, 1, 2);
  int* const numbers = qk::make_array<int>(pool, 10);
  const bool made = point->y == 2 && pool.size() == sizeof(Point) + 10 * sizeof(int);
  qk::destroy(pool, point);
  qk::destroy<int[]>(pool, numbers);
  return made && pool.size() == 0;
}

bool ends_with_a_scope(const qk::Handle& pool) {
  {
    const qk::unique<Point> point = qk::make_unique<Point>(pool, 1, 2);
    const auto numbers = qk::make_unique<int[]>(pool, 3);
    if (point->x + numbers[2] != 1) return false;
  }
  return pool.size() == 0;
}

bool serves_containers(const qk::Handle& pool) {
  {
    std::vector<int, qk::allocator<int>> numbers(100, 7, pool);
    qk::memory_resource resource(pool);
    const qk::memory_resource same(pool);
    const std::pmr::vector<int> others(100, 7, &resource);
    if (pool.size() != 800 || resource != same) return false;
  }
  return pool.size() == 0;
}

}  // namespace

int main() {
  const qk::Handle pool("MULTITHREADED", "PO");
  return makes_and_destroys(pool) && ends_with_a_scope(pool) && serves_containers(pool) ? 0 : 1;
}

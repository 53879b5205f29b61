// The C++ front as used by a program in the oldest language version that the front supports.
#include <cstring>
#include <map>
#include <memory_resource>
#include <string>
#include <utility>
#include <vector>

#include "qkmem/qkmem.hpp"

namespace {

static_assert(__cplusplus == 201703L, "this is the test of C++17");

class Shape {
 public:
  explicit Shape(int corners) : corners_(corners) { ++alive; }
  Shape(const Shape&) = delete;
  Shape& operator=(const Shape&) = delete;
  virtual ~Shape() { --alive; }

  [[nodiscard]] int corners() const { return corners_; }

  static inline int alive = 0;

 private:
  int corners_;
};

class Square : public Shape {
 public:
  Square() : Shape(4) {}
};

/** Whether a call, with any further arguments, receives its caller's location. */
template <class... Args>
bool is_called_at(unsigned line, qk::On on, Args&&...) {
  return on.line() == static_cast<int>(line) &&
         std::strstr(on.file(), "front_cpp17.cpp") != nullptr;
}

bool passes_locations(const qk::Handle& pool) {
  return is_called_at(__LINE__, pool, 1, "two") && is_called_at(__LINE__, pool.number());
}

bool makes_and_destroys(const qk::Handle& pool) {
  Shape* shape = qk::make<Square>(pool);
  int* numbers = qk::make_array<int>(pool, 10);
  const bool made =
      shape->corners() == 4 && numbers[9] == 0 && pool.size() == sizeof(Square) + 10 * sizeof(int);
  qk::destroy(pool, shape);
  qk::destroy<int[]>(pool, numbers);
  return made && pool.size() == 0 && Shape::alive == 0;
}

bool ends_with_a_scope(const qk::Handle& pool) {
  {
    qk::unique<Shape> shape = qk::make_unique<Square>(pool);
    const auto numbers = qk::make_unique<int[]>(pool, 3);
    if (shape->corners() + numbers[2] != 4) return false;
  }
  return pool.size() == 0 && Shape::alive == 0;
}

bool serves_containers(const qk::Handle& pool) {
  {
    qk::memory_resource resource(pool);
    std::pmr::map<std::pmr::string, int> ages(&resource);
    ages.emplace("a name that is too long to fit in the string itself", 1);
    std::vector<double, qk::allocator<double>> numbers(pool);
    numbers.assign(100, 1.5);
    if (pool.size() < 800) return false;
  }
  return pool.size() == 0;
}

bool moves_handles() {
  qk::Handle arena("BLOCKMGMT", "AR");
  qk::Handle other(std::move(arena));
  static_cast<void>(qk::make<Square>(other));
  return !arena && other && other.clear() == 0 && Shape::alive == 0;  // NOLINT: it is empty
}

}  // namespace

int main() {
  const qk::Handle pool("MULTITHREADED", "PO");
  const bool good = passes_locations(pool) && makes_and_destroys(pool) && ends_with_a_scope(pool) &&
                    serves_containers(pool) && moves_handles();
  return good ? 0 : 1;
}

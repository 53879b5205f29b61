// The C++ front works without the macros, too.
#define QKMEM_NO_MACROS
#include <vector>

#include "qkmem/no_growth.hpp"
#include "qkmem/qkmem.hpp"

#if defined(qk_mem_malloc) || defined(qk_mem_new_handle) || defined(qk_mem_arrfree)
#error "there are macros"
#endif

int main() {
  qk::Handle pool("", "NM");
  std::vector<int, qk::allocator<int>> numbers(3, 7, qk::allocator<int>(pool));
  const qk::unique<int> object = qk::make_unique<int>(pool, 4);
  return pool.size() >= 3 * sizeof(int) && *object == 4 ? 0 : 1;
}

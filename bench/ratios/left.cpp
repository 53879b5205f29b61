#include "bench/ratios/left.h"

#include <malloc.h>

#include <cstddef>
#include <latch>
#include <thread>
#include <vector>

#include "qkmem/qkmem.h"

namespace ratios {
namespace {

std::size_t allocated_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void let_handles_come_and_go() {
  std::vector<int> handles(100000);
  for (int& handle : handles) handle = qk_mem_new_handle("DATA", "QB");
  for (const int handle : handles) qk_mem_del_handle(handle);
}

}  // namespace

double megabytes_left_by_handles() {
  std::latch is_over(1);
  std::thread second([&] { is_over.wait(); });
  qk_mem_init();
  const std::size_t before = allocated_bytes();
  let_handles_come_and_go();
  const std::size_t after = allocated_bytes();
  is_over.count_down();
  second.join();
  return static_cast<double>(after - before) / 1e6;
}

}  // namespace ratios

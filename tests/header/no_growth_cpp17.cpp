// A guard of growth in the oldest language version that it supports.
#include <cstdio>
#include <string>

#include "qkmem/no_growth.hpp"
#include "qkmem/qkmem.h"

namespace {

static_assert(__cplusplus == 201703L, "this is the test of C++17");

bool tells_what_has_grown() {
  const int hid = qk_mem_new_handle("DATA", "PA");
  qk::NoGrowth guard("parser", "TAG=PA");
  if (guard.code() != 0 || !guard.report().empty()) return false;
  void* const block = qk_mem_malloc(hid, 10);
  const bool is_told = guard.report().find("1 site grew by 10 B in 1 block") != std::string::npos;
  qk_mem_free(hid, block);
  return is_told && guard.growth().bytes == 0;
}

}  // namespace

int main() {
  if (qk_mem_profile_config("SITES REPORT=/dev/null") != 0) return 1;
  return tells_what_has_grown() ? 0 : 1;
}

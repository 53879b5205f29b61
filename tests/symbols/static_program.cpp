// A program without shared libraries: nothing can be loaded, and everything else must work.

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "support/unwinder.h"
#include "symbols/libdw.h"
#include "symbols/names.h"

namespace {

[[gnu::noinline]] bool finds_itself() {
  prepare_stacks(qk::load_unwinder());
  std::uintptr_t addresses[qk::kMostFrames];
  const int depth = qk::capture_stack(addresses, qk::kMostFrames);
  qk::ModuleList modules;
  modules.refresh();
  qk::Names names(modules);
  qk::Frame frames[2 * qk::kMostFrames];
  const int count = names.frames_of(addresses, depth, frames, 2 * qk::kMostFrames);
  return count > 1 && frames[0].function == "(anonymous namespace)::finds_itself()" &&
         frames[1].function == "main";
}

}  // namespace

int main() {
  const bool is_right = finds_itself() && qk::dwarf::load() == nullptr &&
                        qk::unwinder_name() == std::string_view("the C++ run-time");
  std::puts(is_right ? "all is found" : "something is missing");
  return is_right ? 0 : 1;
}

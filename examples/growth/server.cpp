// A server that says after a while what has grown.
// usage: server [guarded]
#include <cstdio>
#include <string_view>

#include "examples/growth/sessions.h"
#include "qkmem/no_growth.hpp"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

namespace {

/** Each customer signs in, and nine of ten sign out. */
void serve(int first, int last) {
  for (int customer = first; customer <= last; ++customer) {
    sessions::greet(customer);
    if (customer % 10 != 0) sessions::sign_out(customer);
  }
}

void report_growth() {
  const int settings = qk_mem_new_handle("DATA", "ST");
  void* const draft = qk_mem_calloc(settings, 1, 3'000);
  serve(1, 1'000);
  qk_mem_snapshot("warm");
  qk_mem_free(settings, draft);
  serve(1'001, 2'000);
  qk_mem_profile_report(stdout, "SINCE=warm");
}

void guard_one_customer() {
  sessions::warm_up();
  const qk::NoGrowth guard("one customer");
  serve(1, 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == "guarded") {
    guard_one_customer();
  } else {
    report_growth();
  }
}

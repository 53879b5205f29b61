// usage: seeded FAULT: a server that answers two thousand requests, with one fault.
#include <cstdio>

#include "tests/seeded/faults.h"

int main(int argc, char** argv) {
  const seeded::Fault fault = argc == 2 ? seeded::fault_named(argv[1]) : nullptr;
  if (fault == nullptr) {
    std::fputs("usage: seeded FAULT\n", stderr);
    return 2;
  }
  seeded::Server server;
  for (int request = 1; request <= 2'000; ++request) {
    server.serve(request);
    fault(server, request);
  }
  return 0;
}

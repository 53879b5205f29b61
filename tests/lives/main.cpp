// usage: lives SEED
//
// Lives the life of a seed in the current folder, and leaves its journal and the library's log,
// trace file and reports there.
#include <sys/resource.h>
#include <sys/time.h>

#include <cstdlib>

#include "tests/lives/journal.h"
#include "tests/lives/life.h"

/** Stands in for the C library's, so that no report is cut short on a slow machine. */
extern "C" int setitimer(__itimer_which_t /*which*/, const itimerval* /*next*/,
                         itimerval* /*before*/) noexcept {
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const rlimit no_core_file = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core_file);
  lives::begin_journal("journal.txt");
  // Never destroyed, so that nothing is gone when the library's last calls come.
  auto& life = *new lives::Life(static_cast<unsigned>(std::atoi(argv[1])));
  life.choose_environment();
  life.live();
  life.end();
}

/* usage: watched [end CODE | signal NUMBER | damage BYTES | wait]
 *
 * A program that `qkmem run` runs in tests. It leaves a block, and ends as it is told. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "qkmem/qkmem.h"

static void end_with_7(int signal_number) {
  (void)signal_number;
  exit(7);
}

int main(int argc, char** argv) {
  const int pool = qk_mem_new_handle("DATA", "WA");
  void* const kept = qk_mem_malloc(pool, 100);
  qk_mem_free(pool, qk_mem_malloc(pool, 20));
  printf("%s\n", kept != NULL ? "ready" : "no memory");
  fflush(stdout);
  if (argc > 2 && strcmp(argv[1], "end") == 0) return atoi(argv[2]);
  if (argc > 2 && strcmp(argv[1], "signal") == 0) raise(atoi(argv[2]));
  if (argc > 2 && strcmp(argv[1], "damage") == 0) {
    memset((char*)kept + 100, 1, (size_t)atoi(argv[2]));
    qk_mem_free(pool, kept);
  }
  if (argc > 1 && strcmp(argv[1], "wait") == 0) {
    signal(SIGTERM, end_with_7);
    signal(SIGINT, end_with_7);
    printf("waiting\n");
    fflush(stdout);
    pause();
  }
  return 0;
}

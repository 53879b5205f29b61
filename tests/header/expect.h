/* What the programs in C check with. */
#ifndef TESTS_HEADER_EXPECT_H_
#define TESTS_HEADER_EXPECT_H_

#include <stdio.h>

/* What main() returns. */
static int failures = 0;

static void expect(int holds, const char* claim) {
  if (holds) return;
  fprintf(stderr, "failed: %s\n", claim);
  ++failures;
}

#endif /* TESTS_HEADER_EXPECT_H_ */

#include "support/assertion.h"

#include <cstdio>
#include <cstdlib>

namespace qk {

void assertion_failed(const char* rule) noexcept {
  std::fprintf(stderr, "qkmem: broken rule: %s\n", rule);
  std::abort();
}

}  // namespace qk

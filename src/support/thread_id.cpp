#include "support/thread_id.h"

#include <atomic>

namespace {

constinit std::atomic<unsigned long> last_number{0};
[[gnu::tls_model("initial-exec")]] constinit thread_local unsigned long own_number = 0;

}  // namespace

extern "C" unsigned long qk_gettid(void) {
  if (own_number == 0) own_number = last_number.fetch_add(1, std::memory_order_relaxed) + 1;
  return own_number;
}

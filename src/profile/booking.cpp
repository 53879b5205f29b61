#include "profile/booking.h"

#include <csignal>

namespace qk::mem::profile {

constinit std::uint64_t break_event = 0;

void set_break_event(std::uint64_t event) { qk::store(break_event, event); }

void raise_break() { std::raise(SIGTRAP); }

void Booking::pass_on(Pool& pool, std::int64_t bytes, std::uint64_t event) {
  const std::int64_t sum = pool.not_passed_on + bytes;
  if (!qk::is_single_threaded() && is_held_back(sum)) {
    qk::store(pool.not_passed_on, sum);
    return;
  }
  qk::store(pool.not_passed_on, 0);
  raise_shared(*pool.tag_level, sum, event);
  if (raise_shared(whole, sum, event)) qk::add(peak_epoch, 1, false);
}

}  // namespace qk::mem::profile

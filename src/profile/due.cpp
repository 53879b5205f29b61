#include "profile/due.h"

#include "profile/events.h"
#include "profile/state.h"

namespace qk::mem::profile {
namespace {

constinit DueWork due_work = nullptr;
constinit std::uint64_t due_time = kNever;
constinit std::uint8_t is_working = 0;

}  // namespace

void set_due_work(DueWork work, std::uint64_t first_time) {
  qk::publish(due_work, work);
  qk::clear_bits(reasons_for_attention, attention::kWorkIsDue);
  qk::publish(due_time, first_time);
}

void note_reading(std::uint64_t now) {
  if (now >= qk::load(due_time)) {
    qk::set_bits(reasons_for_attention, attention::kWorkIsDue);
  }
}

void look_at_clock() {
  if (qk::load(due_time) == kNever) return;
  note_reading(time_now());
  if (needs_attention_for(attention::kWorkIsDue)) do_due_work();
}

void do_due_work() {
  if (qk::set_flag(is_working)) return;
  const DueWork work = qk::acquire(due_work);
  qk::clear_bits(reasons_for_attention, attention::kWorkIsDue);
  // The work itself can set other work, or none.
  const std::uint64_t before = qk::load(due_time);
  if (work != nullptr && before != kNever) {
    const std::uint64_t next = work(time_now());
    if (qk::load(due_time) == before) qk::store(due_time, next);
  }
  qk::publish(is_working, 0);
}

void forget_due_worker() { qk::store(is_working, 0); }

}  // namespace qk::mem::profile

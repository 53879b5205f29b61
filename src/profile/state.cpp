#include "profile/state.h"

#include <unistd.h>

#include "profile/due.h"
#include "profile/events.h"

namespace qk::mem::profile {

constinit std::uint8_t state = static_cast<std::uint8_t>(State::kOff);
constinit std::uint8_t reasons_for_attention = attention::kNotOn;
constinit std::uint8_t unusual_made = 0;
constinit std::uint8_t unusual_gone = 0;
constinit std::uint8_t fills_new_memory = 0;
constinit qk::Mtx growth_lock;
constinit qk::PageArena arena;

namespace {

constinit std::uint8_t has_figures = 0;
constinit std::uint8_t follows = 0;  // while the profile is off too
constinit pid_t process = 0;

void set_state(State now) {
  if (now == State::kFrozen) qk::set_bits(unusual_gone, unusual::kFrozen);
  qk::store(state, static_cast<std::uint8_t>(now));
  if (gives_marks()) {
    qk::clear_bits(reasons_for_attention, attention::kNotOn);
  } else {
    qk::set_bits(reasons_for_attention, attention::kNotOn);
  }
}

void note_first_process() {
  if (process == 0) process = getpid();
}

}  // namespace

void start() {
  if (is_frozen()) return;
  start_event_clock();
  note_first_process();
  qk::store(has_figures, 1);
  set_state(State::kOn);
}

void stop() {
  if (is_on()) set_state(qk::load(follows) != 0 ? State::kFollowing : State::kOff);
}

void set_following(bool is_wanted) {
  qk::store(follows, is_wanted ? 1 : 0);
  if (is_on() || is_frozen()) return;
  if (is_wanted) {
    start_event_clock();
    note_first_process();
  }
  set_state(is_wanted ? State::kFollowing : State::kOff);
}

void set_filling(Filling reason, bool is_wanted) {
  const auto bit = static_cast<std::uint8_t>(reason);
  if (is_wanted) {
    qk::set_bits(fills_new_memory, bit);
  } else {
    qk::clear_bits(fills_new_memory, bit);
  }
}

void freeze() {
  set_due_work(nullptr, kNever);
  if (was_ever_on() || gives_marks()) set_state(State::kFrozen);
}

std::uint64_t own_bytes() QK_UNCHECKED_LOCKING { return arena.mapped(); }

int first_process() { return process; }

bool was_ever_on() { return qk::load(has_figures) != 0; }

}  // namespace qk::mem::profile

#include "profile/events.h"

#include <time.h>

#include <algorithm>
#include <cstring>

#include "profile/due.h"
#include "profile/state.h"
#include "support/mtx_lock.h"
#include "support/shared_variable.h"
#include "support/ticks.h"

namespace qk::mem::profile {

constinit EventCounter event_counter = {};

namespace {

constexpr std::uint64_t kMostBetweenReadings = 32;

/** When an event happened: not before this time, nor after that of the next entry. */
struct Moment {
  std::uint64_t event;
  std::uint64_t time;
};

/** A full table gets twice the room, up to the most. Then it drops every other entry. */
constexpr std::uint32_t kFirstMoments = 256;
constexpr std::uint32_t kMostMoments = 65536;

constinit std::uint64_t step = 1;  // events between two readings, in a process with one thread
constinit std::uint64_t last_time = 0;
constinit std::uint64_t least_gap = 0;    // between two entries
constinit std::uint64_t clock_began = 0;  // by the coarse clock
constinit std::uint64_t day_time = 0;     // of that
constinit Moment* moments = nullptr;      // in ascending order
constinit std::uint32_t moment_count = 0;
constinit std::uint32_t moment_room = 0;
constinit std::uint8_t is_noting = 0;

Moment* take_moments(std::uint32_t room) {
  const qk::MtxLock lock(growth_lock);
  return static_cast<Moment*>(arena.take(room * sizeof(Moment)));
}

/**
 * The old table is not given back: a report may be reading it. False if there is no memory, or
 * enough room.
 */
bool make_room_for_moments() {
  if (moment_room == kMostMoments) return false;
  Moment* const larger = take_moments(2 * moment_room);
  if (larger == nullptr) return false;
  std::memcpy(larger, moments, moment_room * sizeof(Moment));
  moment_room *= 2;
  qk::publish(moments, larger);
  return true;
}

void drop_every_other_moment() {
  const std::uint32_t kept = moment_room / 2;
  for (std::uint32_t i = 0; i < kept; ++i) {
    qk::store(moments[i].event, qk::load(moments[std::size_t{2} * i].event));
    qk::store(moments[i].time, qk::load(moments[std::size_t{2} * i].time));
  }
  qk::store(moment_count, kept);
  qk::store(least_gap, 2 * (qk::load(last_time) / moment_room));
}

/** Only one thread at a time gets here. */
void append_moment(Moment moment) {
  std::uint32_t count = qk::load(moment_count);
  if (count != 0) {
    const Moment& last = moments[count - 1];
    if (moment.event <= qk::load(last.event)) return;
    if (moment.time < qk::load(last.time) + qk::load(least_gap)) return;
  }
  if (count == moment_room && !make_room_for_moments()) drop_every_other_moment();
  count = qk::load(moment_count);
  qk::store(moments[count].event, moment.event);
  qk::store(moments[count].time, moment.time);
  qk::publish(moment_count, count + 1);
}

/** Reads the clock at an event. Returns whether it has moved since the last reading. */
bool note_time(std::uint64_t event) {
  const std::uint64_t now = time_now();
  if (now == qk::load(last_time)) return false;
  qk::store(last_time, now);
  note_reading(now);
  // A thread that comes while another one is here leaves no entry, which costs some precision.
  if (qk::acquire(moments) == nullptr || qk::set_flag(is_noting)) return true;
  append_moment({event, now});
  qk::publish(is_noting, 0);
  return true;
}

std::uint64_t next_step(std::uint64_t before, bool clock_moved) {
  return clock_moved ? 1 : std::min(2 * before, kMostBetweenReadings);
}

}  // namespace

void read_due_clock() {
  qk::clear_bits(reasons_for_attention, attention::kClockIsDue);
  // With several threads it is read when numbers are taken.
  if (!qk::is_single_threaded()) return;
  const std::uint64_t event = events_so_far() + 1;
  step = next_step(step, note_time(event));
  event_counter.next_reading = event + step - 1;
}

void reserve_numbers(EventRange& range) {
  const std::uint64_t batch = std::max<std::uint64_t>(range.batch, 1);
  range.last = qk::add(event_counter.last, batch) - batch;
  range.left = batch;
  range.batch = next_step(batch, note_time(range.last + 1));
  qk::store(event_counter.has_seen_threads, 1);
}

std::uint64_t coming_event(const EventRange& range, bool single_threaded) {
  return (single_threaded || range.left == 0 ? qk::load(event_counter.last) : range.last) + 1;
}

std::uint64_t events_so_far() { return qk::load(event_counter.last); }

void start_event_clock() {
  if (clock_began != 0) return;
  clock_began = qk::read_clock_in_ns(CLOCK_MONOTONIC_COARSE);
  day_time = qk::read_clock_in_ns(CLOCK_REALTIME);
  moment_room = kFirstMoments;
  qk::publish(moments, take_moments(kFirstMoments));
  qk::set_bits(reasons_for_attention, attention::kClockIsDue);
}

std::uint64_t time_now() { return qk::read_clock_in_ns(CLOCK_MONOTONIC_COARSE) - clock_began; }

std::uint64_t start_of_clock() { return day_time; }

std::uint64_t time_of_event(std::uint64_t event) {
  const std::uint32_t count = qk::acquire(moment_count);
  const Moment* const table = qk::acquire(moments);
  std::uint32_t low = 0;
  std::uint32_t high = count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    if (qk::load(table[middle].event) <= event) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low == 0 ? 0 : qk::load(table[low - 1].time);
}

std::uint64_t clock_precision() {
  timespec tick = {};
  clock_getres(CLOCK_MONOTONIC_COARSE, &tick);
  return std::max(static_cast<std::uint64_t>(tick.tv_nsec), qk::load(least_gap));
}

void forget_clock_reader() { qk::store(is_noting, 0); }

}  // namespace qk::mem::profile

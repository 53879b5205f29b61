#ifndef QKMEM_PROFILE_EVENTS_H_
#define QKMEM_PROFILE_EVENTS_H_

#include <cstdint>

#include "profile/state.h"
#include "support/shared_variable.h"

/**
 * The profile's own numbers of events, of 64 bits: an allocation or a release has one, whether or
 * not the core records it. A table tells at which time a number was given out, so that a number is
 * all that need be kept. The clock is the coarse one, and is read less often while events follow
 * each other within a tick of it.
 */
namespace qk::mem::profile {

/**
 * The numbers that a handle has in advance. With several threads a handle takes more than one at a
 * time, because a counter that all handles share would cost each event more than all its sums.
 */
struct EventRange {
  std::uint64_t last;  // that was used
  std::uint64_t left;  // that follow it
  std::uint64_t batch;
};

/** What numbers of events depend on. */
struct EventCounter {
  std::uint64_t last;
  std::uint64_t next_reading;     // the event that reads the clock, in a process with one thread
  std::uint8_t has_seen_threads;  // an event happened while there were several
};
[[gnu::visibility("hidden")]] extern EventCounter event_counter;

/** Reads the clock for the coming event, in a process with one thread. */
void read_due_clock();

/** Takes new numbers in advance, and reads the clock. */
void reserve_numbers(EventRange& range);

/** The next number for an event of a handle, whose lock the caller holds. */
[[nodiscard, gnu::always_inline]] inline std::uint64_t next_event(EventRange& range,
                                                                  bool single_threaded) {
  if (single_threaded) [[likely]] {
    const std::uint64_t event = qk::load(event_counter.last) + 1;
    qk::store(event_counter.last, event);
    // The clock is read at the next allocation: nobody asks for the time of a release.
    if (event >= event_counter.next_reading) [[unlikely]]
      qk::set_bits(reasons_for_attention, attention::kClockIsDue);
    range.left = 0;  // what is left from a time with several threads is too old
    return event;
  }
  if (range.left == 0) [[unlikely]]
    reserve_numbers(range);
  --range.left;
  return ++range.last;
}

/** The number that the next call would give out, or one near it. */
[[nodiscard]] std::uint64_t coming_event(const EventRange& range, bool single_threaded);

/** How many numbers were given out. */
[[nodiscard]] std::uint64_t events_so_far();

/** Begins to tell the time of events. Later calls do nothing. */
void start_event_clock();

/**
 * Nanoseconds from the start of the clock to an event, as exact as clock_precision(). While the
 * program pauses between events, the time can be that of one of the 32 events before.
 */
[[nodiscard]] std::uint64_t time_of_event(std::uint64_t event);

/** Nanoseconds since the start of the clock. */
[[nodiscard]] std::uint64_t time_now();

/** The time of day when the clock was started, in nanoseconds since 1970. */
[[nodiscard]] std::uint64_t start_of_clock();

/** Nanoseconds by which the time of an event can be too small. */
[[nodiscard]] std::uint64_t clock_precision();

/** In the child of a fork no other thread is reading the clock. */
void forget_clock_reader();

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_EVENTS_H_

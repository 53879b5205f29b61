#ifndef QKMEM_PROFILE_BOOKING_H_
#define QKMEM_PROFILE_BOOKING_H_

#include <cstdint>

#include "profile/pool.h"
#include "profile/sampling.h"
#include "support/shared_variable.h"

namespace qk::mem::profile {

/** The event that raises SIGTRAP, for a debugger; 0 for none. Usual events must not be asked for. */
[[gnu::visibility("hidden")]] extern std::uint64_t break_event;
void set_break_event(std::uint64_t event);
[[gnu::cold]] void raise_break();

/**
 * One event of a pool: it changes the figures of a site, and the sums that the site is part of. The
 * caller holds the lock of the handle. All is inline, since most calls of the program do it twice
 * and it is hardly longer than its calls would be.
 */
class Booking {
 public:
  /**
   * Whether the event that comes next is a usual one, with so many bytes more or less: its number
   * is at hand, and whom the bytes have to be told is clear.
   */
  [[nodiscard, gnu::always_inline]] static bool is_usual(const Pool& pool, std::int64_t bytes,
                                                         bool single_threaded) {
    if (single_threaded) return pool.not_passed_on == 0;
    return pool.numbers.left != 0 && is_held_back(pool.not_passed_on + bytes);
  }

  /** Such an event, with a number of its own. */
  [[nodiscard, gnu::always_inline]] static Booking of_usual_event(Pool& pool,
                                                                  bool single_threaded) {
    return {pool, single_threaded ? Sharing::kAtOnce : Sharing::kHeldBack,
            next_event(pool.numbers, single_threaded)};
  }

  /** The same in every case. */
  [[nodiscard, gnu::always_inline]] static Booking of_next_event(Pool& pool) {
    const bool single_threaded = qk::is_single_threaded();
    const Booking booking = {pool, sharing_of(pool, single_threaded),
                             next_event(pool.numbers, single_threaded)};
    if (qk::load(break_event) == booking.event_) [[unlikely]]
      raise_break();
    return booking;
  }

  /** Part of the event that comes next. */
  [[nodiscard, gnu::always_inline]] static Booking of_coming_event(Pool& pool) {
    const bool single_threaded = qk::is_single_threaded();
    return {pool, sharing_of(pool, single_threaded), coming_event(pool.numbers, single_threaded)};
  }

  [[nodiscard]] std::uint64_t event() const { return event_; }

  /** What marks a block that is booked now. */
  [[nodiscard, gnu::always_inline]] Mark mark_for(const Site& site) const {
    return {site.number, static_cast<std::uint32_t>(event_)};
  }

  /** Books a new block of so many bytes, which stands for an amount. */
  [[gnu::always_inline]] void made(Site& site, std::uint64_t bytes, Amount amount) const {
    made_and_lost(site, bytes, amount);
    hold(site, amount);
  }

  /** Counts a new block, but not as one that is live. */
  [[gnu::always_inline]] void made_and_lost(Site& site, std::uint64_t bytes, Amount amount) const {
    qk::bump(site.made_bytes, amount.bytes);
    qk::bump(site.made_blocks, amount.blocks);
    if (bytes >= qk::load(site.above_largest)) [[unlikely]] {
      qk::store(site.above_largest, bytes + 1);
      if (qk::load(site.first_event) == 0) qk::store(site.first_event, event_);
    }
    qk::store(site.last_event, event_);
  }

  /** Books the release of a block. */
  [[gnu::always_inline]] void gone(Mark mark, Amount amount) const {
    if (!mark.is_booked()) return;
    Site& site = site_in(pool_, mark.site_number());
    if (lived_shortly(mark)) qk::bump(site.freed_soon, amount.blocks);
    let_go(site, amount);
  }

  /** Undoes that. */
  [[gnu::always_inline]] void back(Mark mark, Amount amount) const {
    if (!mark.is_booked()) return;
    Site& site = site_in(pool_, mark.site_number());
    if (lived_shortly(mark)) qk::bump(site.freed_soon, 0 - amount.blocks);
    hold(site, amount);
  }

  /** Books the release of all blocks of a site. */
  [[gnu::always_inline]] void all_gone(Site& site) const {
    let_go(site, {qk::load(site.live_bytes), qk::load(site.live_blocks)});
  }

 private:
  /** How tag and whole learn of bytes. */
  enum class Sharing : std::uint8_t { kAtOnce, kHeldBack, kAnyway };

  [[nodiscard, gnu::always_inline]] static Sharing sharing_of(const Pool& pool,
                                                              bool single_threaded) {
    return single_threaded && pool.not_passed_on == 0 ? Sharing::kAtOnce : Sharing::kAnyway;
  }

  [[gnu::always_inline]] Booking(Pool& pool, Sharing sharing, std::uint64_t event)
      : pool_(pool), sharing_(sharing), event_(event) {}

  /** Few events of a sample can be many of the program. */
  [[nodiscard, gnu::always_inline]] bool lived_shortly(Mark mark) const {
    return !mark.is_sampled() && static_cast<std::uint32_t>(event_) - mark.event <= kSoon;
  }

  [[gnu::always_inline]] void hold(Site& site, Amount amount) const {
    settle_peak(site);
    const std::uint64_t live = qk::load(site.live_bytes) + amount.bytes;
    qk::store(site.live_bytes, live);
    if (qk::is_below(site.highest_bytes, live)) qk::store(site.highest_bytes, live);
    qk::bump(site.live_blocks, amount.blocks);
    qk::bump(site.lives, 0 - amount.blocks * event_);
    raise_levels(amount.bytes);
  }

  [[gnu::always_inline]] void let_go(Site& site, Amount amount) const {
    settle_peak(site);
    qk::bump(site.live_bytes, 0 - amount.bytes);
    qk::bump(site.live_blocks, 0 - amount.blocks);
    qk::bump(site.lives, amount.blocks * event_);
    lower_levels(amount.bytes);
  }

  /** To be called before a site's live bytes change. */
  [[gnu::always_inline]] static void settle_peak(Site& site) {
    const std::uint64_t epoch = qk::load(peak_epoch);
    if (qk::is_below(site.epoch, epoch)) [[unlikely]] {
      qk::store(site.bytes_at_peak, qk::load(site.live_bytes));
      qk::store(site.epoch, epoch);
    }
  }

  [[gnu::always_inline]] void raise_levels(std::uint64_t bytes) const {
    raise_alone(pool_.level, bytes, event_);
    if (sharing_ == Sharing::kAtOnce) {
      raise_alone(*pool_.tag_level, bytes, event_);
      if (raise_alone(whole, bytes, event_)) qk::bump(peak_epoch, 1);
    } else {
      change_shared_levels(static_cast<std::int64_t>(bytes));
    }
  }

  [[gnu::always_inline]] void lower_levels(std::uint64_t bytes) const {
    lower_alone(pool_.level, bytes);
    if (sharing_ == Sharing::kAtOnce) {
      lower_alone(*pool_.tag_level, bytes);
      lower_alone(whole, bytes);
    } else {
      change_shared_levels(-static_cast<std::int64_t>(bytes));
    }
  }

  [[gnu::always_inline]] void change_shared_levels(std::int64_t bytes) const {
    if (sharing_ == Sharing::kHeldBack) {
      qk::bump(pool_.not_passed_on, bytes);
    } else {
      pass_on(pool_, bytes, event_);
    }
  }

  /**
   * With several threads a pool passes bytes on in steps. With one, it passes on at once what it
   * has kept back since there were several.
   */
  static void pass_on(Pool& pool, std::int64_t bytes, std::uint64_t event);

  Pool& pool_;
  Sharing sharing_;
  std::uint64_t event_;
};

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_BOOKING_H_

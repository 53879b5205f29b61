#ifndef QKMEM_PROFILE_BOOKING_H_
#define QKMEM_PROFILE_BOOKING_H_

#include <cstdint>

#include "profile/pool.h"

namespace qk::mem::profile {

/**
 * One event of a pool: it changes the figures of a site, and the sums that the site is part of.
 * The caller holds the lock of the handle.
 */
class Booking {
 public:
  /** An event with a number of its own. */
  [[nodiscard]] static Booking of_next_event(Pool& pool);

  /** Part of the event that comes next. */
  [[nodiscard]] static Booking of_coming_event(Pool& pool);

  /** What marks a block that is booked now. */
  [[nodiscard]] Mark mark_for(std::uint32_t site) const {
    return {site, static_cast<std::uint32_t>(event_)};
  }

  /** Books a new block. */
  void made(Site& site, std::uint64_t bytes) const;

  /** Counts a new block, but not as one that is live. */
  void made_and_lost(Site& site, std::uint64_t bytes) const;

  /** Books the release of a block. */
  void gone(Mark mark, std::uint64_t bytes) const;

  /** Undoes that. */
  void back(Mark mark, std::uint64_t bytes) const;

  /** Books the release of all blocks of a site. */
  void all_gone(Site& site) const;

 private:
  Booking(Pool& pool, bool single_threaded, std::uint64_t event)
      : pool_(pool), single_threaded_(single_threaded), event_(event) {}

  [[nodiscard]] bool lived_shortly(Mark mark) const;
  void hold(Site& site, std::uint64_t bytes) const;
  void let_go(Site& site, std::uint64_t blocks, std::uint64_t bytes) const;
  void change_levels(std::int64_t bytes) const;
  void pass_on_alone(std::int64_t bytes) const;
  void pass_on_shared(std::int64_t bytes) const;

  Pool& pool_;
  bool single_threaded_;
  std::uint64_t event_;
};

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_BOOKING_H_

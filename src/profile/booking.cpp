#include "profile/booking.h"

#include "support/shared_variable.h"

namespace qk::mem::profile {
namespace {

constexpr std::uint64_t kMinusOne = UINT64_MAX;

/** To be called before a site's live bytes change. */
[[gnu::always_inline]] inline void settle_peak(Site& site) {
  const std::uint64_t epoch = qk::load(peak_epoch);
  if (qk::load(site.epoch) == epoch) return;
  qk::store(site.bytes_at_peak, qk::load(site.live_bytes));
  qk::store(site.epoch, epoch);
}

}  // namespace

Booking Booking::of_next_event(Pool& pool) {
  const bool single_threaded = qk::is_single_threaded();
  return {pool, single_threaded, next_event(pool.numbers, single_threaded)};
}

Booking Booking::of_coming_event(Pool& pool) {
  const bool single_threaded = qk::is_single_threaded();
  return {pool, single_threaded, coming_event(pool.numbers, single_threaded)};
}

void Booking::pass_on_alone(std::int64_t bytes) const {
  if (pool_.not_passed_on != 0) [[unlikely]] {
    bytes += pool_.not_passed_on;
    qk::store(pool_.not_passed_on, 0);
  }
  raise_alone(tag_levels.at(pool_.tag).level, bytes, event_);
  if (raise_alone(whole, bytes, event_)) qk::store(peak_epoch, qk::load(peak_epoch) + 1);
}

void Booking::pass_on_shared(std::int64_t bytes) const {
  if (qk::load(was_passed_on_in_steps) == 0) qk::store(was_passed_on_in_steps, 1);
  const std::int64_t sum = pool_.not_passed_on + bytes;
  if (sum > -kPassedOnInSteps && sum < kPassedOnInSteps) {
    qk::store(pool_.not_passed_on, sum);
    return;
  }
  qk::store(pool_.not_passed_on, 0);
  raise_shared(tag_levels.at(pool_.tag).level, sum, event_);
  if (raise_shared(whole, sum, event_)) qk::add(peak_epoch, 1, false);
}

void Booking::change_levels(std::int64_t bytes) const {
  raise_alone(pool_.level, bytes, event_);
  if (single_threaded_) {
    pass_on_alone(bytes);
  } else {
    pass_on_shared(bytes);
  }
}

void Booking::hold(Site& site, std::uint64_t bytes) const {
  settle_peak(site);
  const std::uint64_t live = qk::load(site.live_bytes) + bytes;
  qk::store(site.live_bytes, live);
  if (live > qk::load(site.highest_bytes)) qk::store(site.highest_bytes, live);
  qk::bump(site.live_blocks, 1);
  qk::bump(site.lives, 0 - event_);
  qk::bump(pool_.live_blocks, 1);
  change_levels(static_cast<std::int64_t>(bytes));
}

void Booking::let_go(Site& site, std::uint64_t blocks, std::uint64_t bytes) const {
  settle_peak(site);
  qk::bump(site.live_bytes, 0 - bytes);
  qk::bump(site.live_blocks, 0 - blocks);
  qk::bump(site.lives, blocks * event_);
  qk::bump(pool_.live_blocks, 0 - blocks);
  change_levels(-static_cast<std::int64_t>(bytes));
}

void Booking::made_and_lost(Site& site, std::uint64_t bytes) const {
  qk::bump(site.made_bytes, bytes);
  qk::bump(site.made_blocks, 1);
  if (bytes > qk::load(site.largest_block)) qk::store(site.largest_block, bytes);
  if (qk::load(site.first_event) == 0) qk::store(site.first_event, event_);
  qk::store(site.last_event, event_);
  qk::bump(pool_.made_bytes, bytes);
  qk::bump(pool_.made_blocks, 1);
}

void Booking::made(Site& site, std::uint64_t bytes) const {
  made_and_lost(site, bytes);
  hold(site, bytes);
}

bool Booking::lived_shortly(Mark mark) const {
  return static_cast<std::uint32_t>(event_) - mark.event <= kSoon;
}

void Booking::gone(Mark mark, std::uint64_t bytes) const {
  Site& site = site_in(pool_, mark.site_number());
  if (lived_shortly(mark)) qk::bump(site.freed_soon, 1);
  let_go(site, 1, bytes);
}

void Booking::back(Mark mark, std::uint64_t bytes) const {
  Site& site = site_in(pool_, mark.site_number());
  if (lived_shortly(mark)) qk::bump(site.freed_soon, kMinusOne);
  hold(site, bytes);
}

void Booking::all_gone(Site& site) const {
  const std::uint64_t blocks = qk::load(site.live_blocks);
  if (blocks != 0) let_go(site, blocks, qk::load(site.live_bytes));
}

}  // namespace qk::mem::profile

#include "ledger/ledger.h"

#include <algorithm>

namespace qk::command {

HandleIndex Ledger::add_handle(const Handle& handle) {
  handles_.push_back(handle);
  return static_cast<HandleIndex>(handles_.size() - 1);
}

SiteIndex Ledger::site_of(const SiteKey& key) {
  const SiteIndex site = sites_.index_of(key);
  if (site < accounts_.size()) return site;
  const bool is_selected =
      !selection_.of_site || selection_.of_site(handles_[key.handle], sites_.at(site));
  accounts_.push_back({{}, epoch_, is_selected});
  return site;
}

void Ledger::made(const Block& block) {
  if (!counts(block)) return;
  Account& account = accounts_[block.site];
  const Amount amount = {block.bytes, 1};
  add_live(block.site, amount);
  Figures& figures = account.figures;
  figures.made += amount;
  if (observer_ != nullptr) observer_->made(block.site, block.bytes);
  figures.begins += on_clock(block.made);
  figures.largest = std::max(figures.largest, block.bytes);
  if (figures.first_event == 0) figures.first_event = block.made.event;
  figures.last_event = block.made.event;
  note_peak();
  sizes_made_.add(block.bytes, block.bytes);
}

void Ledger::gone(const Block& block) {
  if (!counts(block)) return;
  Account& account = accounts_[block.site];
  remove_live(block.site, {block.bytes, 1});
  // Numbers of events of two threads need not rise with time.
  const std::uint64_t age = now_.event - std::min(block.made.event, now_.event);
  const std::uint64_t made = on_clock(block.made);
  const std::uint64_t now = on_clock(now_);
  const std::uint64_t life = now - std::min(made, now);
  Figures& figures = account.figures;
  ++figures.released;
  if (age <= kSoon) ++figures.released_soon;
  figures.lives += life;
  figures.begins -= made;
  figures.longest_life = std::max(figures.longest_life, life);
  lives_.add(life, block.bytes);
  timeline_.note(now, whole_.live.bytes);
}

void Ledger::back(const Block& block) {
  if (!counts(block)) return;
  add_live(block.site, {block.bytes, 1});
  Figures& figures = accounts_[block.site].figures;
  --figures.released;
  figures.begins += on_clock(block.made);
  note_peak();
}

void Ledger::exchange(const Block& not_gone, const Block& not_live) {
  if (counts(not_live)) {
    remove_live(not_live.site, {not_live.bytes, 1});
    Figures& figures = accounts_[not_live.site].figures;
    ++figures.released;
    figures.begins -= on_clock(not_live.made);
  }
  if (counts(not_gone)) {
    add_live(not_gone.site, {not_gone.bytes, 1});
    Figures& figures = accounts_[not_gone.site].figures;
    --figures.released;
    figures.begins += on_clock(not_gone.made);
  }
}

void Ledger::found(SiteIndex site, const Amount& amount) {
  if (!counts_found(site)) return;
  add_live(site, amount);
  if (accounts_[site].figures.before == Amount()) {
    found_[sites_.at(site).handle].push_back(site);
  }
  accounts_[site].figures.before += amount;
  whole_.before += amount;
  note_peak();
}

void Ledger::found_gone(SiteIndex site, std::uint64_t bytes) {
  if (!counts_found(site)) return;
  // An input need not say the truth.
  Amount& before = accounts_[site].figures.before;
  const Amount amount = {std::min(bytes, before.bytes), std::min<std::uint64_t>(1, before.blocks)};
  before -= amount;
  whole_.before -= amount;
  remove_live(site, amount);
  timeline_.note(on_clock(now_), whole_.live.bytes);
}

void Ledger::found_cleared(HandleIndex handle) {
  const auto found = found_.find(handle);
  if (found == found_.end()) return;
  for (const SiteIndex site : found->second) {
    const Amount amount = std::exchange(accounts_[site].figures.before, {});
    whole_.before -= amount;
    remove_live(site, amount);
  }
  found_.erase(found);
  timeline_.note(on_clock(now_), whole_.live.bytes);
}

void Ledger::add_live(SiteIndex site, const Amount& amount) {
  Account& account = accounts_[site];
  settle(account);
  Figures& figures = account.figures;
  const Amount before = figures.live;
  figures.live += amount;
  if (figures.live.bytes > figures.highest.bytes) figures.highest = figures.live;
  whole_.live += amount;
  if (observer_ != nullptr) observer_->changed(site, before, figures.live, on_clock(now_));
}

void Ledger::remove_live(SiteIndex site, const Amount& amount) {
  Account& account = accounts_[site];
  settle(account);
  Figures& figures = account.figures;
  const Amount before = figures.live;
  figures.live -= amount;
  whole_.live -= amount;
  if (observer_ != nullptr) observer_->changed(site, before, figures.live, on_clock(now_));
}

void Ledger::note_peak() {
  if (whole_.live.bytes > whole_.at_peak.bytes) {
    whole_.at_peak = whole_.live;
    peak_moment_ = now_;
    ++epoch_;
  }
  timeline_.note(on_clock(now_), whole_.live.bytes);
}

void Ledger::book(SiteIndex site, const Figures& figures) {
  Account& account = accounts_[site];
  if (account.is_selected) account.figures.add(figures);
}

void Ledger::book_whole(const Moment& last, const Moment& peak, std::uint64_t peak_bytes) {
  is_booked_ = true;
  events_ = last.event;
  first_ = {1, 0};
  now_ = last;
  peak_moment_ = peak;
  booked_peak_ = peak_bytes;
}

void Ledger::finish() {
  Figures all;
  for (Account& account : accounts_) {
    if (!is_booked_) settle(account);
    all.add(account.figures);
  }
  // That of the sites together can be a little less, and without PEAK it is not known.
  if (is_booked_ && counts_all()) all.at_peak.bytes = booked_peak_;
  all.highest = all.at_peak;
  whole_ = all;
}

}  // namespace qk::command

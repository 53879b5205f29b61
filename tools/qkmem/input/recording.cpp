#include "input/recording.h"

#include <algorithm>
#include <optional>

#include "input/groups.h"
#include "input/made_ahead.h"

namespace qk::command {

using mem::recording::Chunk;
using mem::recording::ChunkKind;
using mem::recording::Event;
using mem::recording::EventBlock;
using mem::recording::EventKind;
using mem::recording::FieldReader;
using mem::recording::RecordType;

RecordingInput::RecordingInput(const Reader& reader, const Storage& storage, std::string tail)
    : to_(reader),
      storage_(storage),
      index_(storage, std::move(tail)),
      definitions_(reader.ledger, reader.splits_threads),
      blocks_(reader.ledger) {}

Check RecordingInput::read() {
  to_.ledger.use_time();
  index_.read();
  index_.read_records([this](const Chunk& chunk, std::uint64_t at) { take_records(chunk, at); });
  book_levels();
  const Damage damage = read_events();
  Check check = result();
  if (damage.chunks.count != 0) check.problems.push_back(damage.chunks);
  check.complete_up_to = std::min(index_.complete_up_to(), damage.complete_up_to);
  return check;
}

Damage RecordingInput::read_events() {
  EventMerge merge(index_);
  MadeAhead<MergedEvents> ahead([&merge](MergedEvents& events) { return merge.read(events); });
  Damage damage;
  while (const MergedEvents* const next = ahead.next()) {
    damage = next->damage();
    if (!take_events(next->events())) break;
    if (to_.progress) to_.progress(next->position(), storage_.size());
  }
  return damage;
}

bool RecordingInput::take_events(std::span<const MergedEvent> events) {
  return take_in_groups(
      events, [this](auto group) { expect(group); }, [this](auto group) { expect_sites(group); },
      [this](const MergedEvent& next) {
        now_ = &next;
        return take_if_wanted();
      });
}

/** Returns false once no more events are wanted. */
bool RecordingInput::take_if_wanted() {
  const Event& event = now_->event;
  if (event.number > to_.last.event || now_->nanoseconds > to_.last.nanoseconds) {
    was_cut_short_ = true;
    // Numbers of several threads are not in the order of time.
    return now_->nanoseconds <= to_.last.nanoseconds;
  }
  if (event.ticks < begin_.ticks) {
    to_.ledger.add_unseen_events(1);
  } else {
    take(event);
  }
  return true;
}

void RecordingInput::take_records(const Chunk& chunk, std::uint64_t at) {
  if (chunk.header.kind == ChunkKind::kLevels &&
      (chunk.header.flags & mem::recording::kGoesOn) == 0) {
    begin_levels(chunk.header.begin, at);
  }
  if (chunk.header.kind == ChunkKind::kClosing) is_closed_ = true;
  mem::recording::RecordReader records(chunk);
  while (auto record = records.next()) {
    if (record->type == RecordType::kLevel) {
      take_level(record->fields);
    } else if (record->type == RecordType::kPoolSums) {
      take_pool_sums(record->fields);
    } else if (!definitions_.take(*record)) {
      senseless_.note("byte " + std::to_string(at));
    }
  }
  if (records.has_failed()) senseless_.note("byte " + std::to_string(at));
}

/** Later levels say again what is known, unless something was dropped between. */
void RecordingInput::begin_levels(const mem::recording::Moment& moment, std::uint64_t at) {
  takes_levels_ = !levels_at_ || *levels_at_ < index_.dropped_up_to();
  if (!takes_levels_) return;
  levels_at_ = at;
  begin_ = moment;
  levels_.clear();
}

void RecordingInput::take_level(FieldReader& fields) {
  Level level;
  level.block.site = static_cast<std::uint32_t>(fields.number());
  if (level.block.site == 0) level.block.pool = static_cast<std::uint32_t>(fields.number());
  level.amount.blocks = fields.number();
  level.amount.bytes = fields.number();
  if (takes_levels_ && !fields.has_failed()) levels_.push_back(level);
}

void RecordingInput::take_pool_sums(FieldReader& fields) {
  const auto pool = static_cast<std::uint32_t>(fields.number());
  Sums sums;
  sums.live.blocks = fields.number();
  sums.live.bytes = fields.number();
  sums.made.blocks = fields.number();
  sums.made.bytes = fields.number();
  if (!fields.has_failed()) closing_sums_[definitions_.handle_of(pool)] = sums;
}

void RecordingInput::book_levels() {
  has_levels_ =
      index_.dropped_up_to() == 0 || (levels_at_ && *levels_at_ >= index_.dropped_up_to());
  if (!has_levels_) {
    begin_ = {};
    return;
  }
  to_.ledger.begin_at({0, begin_.nanoseconds});
  for (const Level& level : levels_) {
    const SiteIndex site = definitions_.site_of(level.block, 0);
    to_.ledger.found(site, level.amount);
  }
  levels_.clear();
}

void RecordingInput::expect(std::span<const MergedEvent> events) const {
  for (const MergedEvent& next : events) blocks_.expect(next.event.made);
}

void RecordingInput::expect_sites(std::span<const MergedEvent> events) const {
  for (const auto& [event, nanoseconds, thread] : events) {
    if (event.kind == EventKind::kMade) {
      definitions_.expect(event.block);
    } else {
      blocks_.expect_site(event.made);
    }
  }
}

void RecordingInput::take(const Event& event) {
  highest_ = std::max(highest_, event.number);
  to_.ledger.event({event.number, now_->nanoseconds});
  switch (event.kind) {
    case EventKind::kMade:
      return take_made();
    case EventKind::kGone:
    case EventKind::kSetAside:
      return take_release();
    case EventKind::kBack:
      return take_back();
    case EventKind::kCleared:
      return take_cleared();
    case EventKind::kDeleted:
      return tell("handle deleted", nullptr, nullptr, nullptr);
  }
}

void RecordingInput::take_made() {
  const Event& event = now_->event;
  const Block block = {event.block.address,
                       event.block.bytes,
                       {event.number, now_->nanoseconds},
                       definitions_.site_of(event.block, now_->thread)};
  std::optional<Block> old;
  if (event.replaces) old = last_set_aside();
  to_.ledger.made(block);
  if (to_.watch) tell(old ? "resized" : "allocated", &block, &block, old ? &*old : nullptr);
  if (!early_.empty() && early_.erase(event.number) != 0) {
    to_.ledger.gone(block);
  } else if (!blocks_.add(block)) {
    made_again_.note("event " + std::to_string(event.number));
    to_.ledger.gone(block);
  }
}

void RecordingInput::take_release() {
  const Event& event = now_->event;
  const bool is_gone = event.kind == EventKind::kGone;
  if (const Block* const kept = find_released()) {
    to_.ledger.gone(*kept);
    if (is_gone) {
      tell("released", kept, nullptr, kept);
    } else {
      set_aside_[now_->thread].push_back(*kept);
    }
    return blocks_.remove(*kept);
  }
  if (!event.is_unsure) {
    // Clocks of two processors can differ a little.
    early_.insert(event.made);
    return;
  }
  const Block block = unsure_block();
  to_.ledger.found_gone(block.site, block.bytes);
  if (is_gone) tell("released", &block, nullptr, &block);
}

/** The block that the event names. Its number can be too high by a multiple of 2^32. */
const Block* RecordingInput::find_released() const {
  constexpr std::uint64_t kAround = std::uint64_t{1} << 32;
  constexpr int kMost = 256;  // times: no program makes 2^40 blocks
  std::uint64_t number = now_->event.made;
  const Block* block = blocks_.find(number);
  for (int i = 0; block == nullptr && number >= kAround && i < kMost; ++i) {
    number -= kAround;
    block = blocks_.find(number);
  }
  return block;
}

Block RecordingInput::unsure_block() {
  const EventBlock& block = now_->event.block;
  return {block.address, block.bytes, {0, 0}, definitions_.site_of(block, 0)};
}

/** The realloc has failed for which the block was set aside. */
void RecordingInput::take_back() {
  std::vector<Block>& set_aside = set_aside_[now_->thread];
  const auto found = std::find_if(set_aside.rbegin(), set_aside.rend(), [this](const Block& block) {
    return static_cast<std::uint32_t>(block.made.event) ==
           static_cast<std::uint32_t>(now_->event.made);
  });
  if (found != set_aside.rend()) {
    const Block block = *found;
    set_aside.erase(std::next(found).base());
    static_cast<void>(blocks_.add(block));
    to_.ledger.back(block);
    // It was not told that the block was set aside, so it is not made anew.
    tell("not resized", &block, nullptr, nullptr);
  } else if (now_->event.is_unsure) {
    const Block block = unsure_block();
    to_.ledger.found(block.site, {block.bytes, 1});
  }
}

/** What a realloc has resized that is complete now. */
std::optional<Block> RecordingInput::last_set_aside() {
  std::vector<Block>& set_aside = set_aside_[now_->thread];
  if (set_aside.empty()) return std::nullopt;
  const Block block = set_aside.back();
  set_aside.clear();
  return block;
}

void RecordingInput::take_cleared() {
  const HandleIndex handle = definitions_.handle_of(now_->event.block.pool);
  tell("handle cleared", nullptr, nullptr, nullptr);
  blocks_.take_all_of(handle, [this](const Block& block) {
    to_.ledger.gone(block);
    tell("cleared", &block, nullptr, &block);
  });
  to_.ledger.found_cleared(handle);
}

void RecordingInput::tell(const char* what, const Block* about, const Block* made,
                          const Block* gone) {
  if (!to_.watch) return;
  Happening happening;
  happening.when = {now_->event.number, now_->nanoseconds};
  happening.what = what;
  if (about != nullptr) {
    const SiteKey& site = to_.ledger.sites().at(about->site);
    happening.address = about->address;
    happening.bytes = about->bytes;
    happening.handle = site.handle;
    if (made != nullptr) {
      happening.file = site.file;
      happening.line = site.line;
    }
  } else {
    happening.handle = definitions_.handle_of(now_->event.block.pool);
  }
  happening.thread = now_->thread;
  happening.made = made;
  happening.gone = gone;
  to_.watch(happening);
}

Check RecordingInput::result() {
  unknown_releases_.count = early_.size();
  if (!early_.empty()) {
    unknown_releases_.first = "block " + std::to_string(*early_.begin());
  }
  if (!has_levels_) no_levels_.note("byte " + std::to_string(index_.dropped_up_to()));
  Check check;
  for (const Problem* const problem : std::initializer_list<const Problem*>{
           &index_.foreign(), &index_.damaged(), &index_.missing(), &senseless_, &no_levels_,
           &made_again_, &unknown_releases_}) {
    if (problem->count != 0 && !(was_cut_short_ && problem == &unknown_releases_)) {
      check.problems.push_back(*problem);
    }
  }
  check.remarks = {
      {"dropped_events", "event", " dropped to stay below RECORD_MAX", index_.dropped_events()}};
  check.end = is_closed_          ? Check::End::kClosed
              : index_.has_tail() ? Check::End::kFromTail
                                  : Check::End::kUnknown;
  check.last_event = highest_;
  check.has_sums = is_closed_ && !was_cut_short_ && to_.ledger.counts_all();
  if (check.has_sums) compare_sums(check);
  return check;
}

void RecordingInput::compare_sums(Check& check) const {
  const Ledger& ledger = to_.ledger;
  std::vector<Sums> all(ledger.handles().size());
  for (SiteIndex site = 0; site < ledger.sites().count(); ++site) {
    Sums& sums = all[ledger.sites().at(site).handle];
    sums.live += ledger.figures_of(site).live;
    sums.made += ledger.figures_of(site).made;
  }
  for (HandleIndex handle = 0; handle < all.size(); ++handle) {
    const Sums& counted = all[handle];
    const auto found = closing_sums_.find(handle);
    const Sums said = found != closing_sums_.end() ? found->second : Sums();
    const auto compare = [&](std::string_view of, std::uint64_t one, std::uint64_t other) {
      if (one != other) check.wrong_sums.push_back({handle, of, one, other});
    };
    compare("live bytes", counted.live.bytes, said.live.bytes);
    compare("live blocks", counted.live.blocks, said.live.blocks);
    if (index_.dropped_events() != 0) continue;
    compare("bytes made", counted.made.bytes, said.made.bytes);
    compare("blocks made", counted.made.blocks, said.made.blocks);
  }
}

}  // namespace qk::command

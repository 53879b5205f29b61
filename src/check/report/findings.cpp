#include "check/report/findings.h"

#include <cstdlib>

#include "check/report/options.h"
#include "formats/figures.h"
#include "profile/events.h"
#include "profile/misuses.h"
#include "profile/report/destination.h"
#include "profile/report/known_address.h"
#include "profile/report/misuse.h"
#include "profile/report/misuse_report.h"
#include "profile/report/report.h"
#include "profile/report/text_parts.h"
#include "support/mtx_lock.h"
#include "support/text.h"

namespace qk::mem::check {
namespace {

using profile::plural;

constinit std::uint8_t stops = 0;

/** The number of an event of which a mark has the lower half. */
std::uint64_t whole_number_of(std::uint32_t event) {
  const std::uint64_t now = profile::events_so_far();
  return now - (static_cast<std::uint32_t>(now) - event);
}

qk::Line& put_bytes(qk::Line& words, std::uint64_t bytes) {
  words.put(count_figure(bytes).text()).put(" byte").put(plural(bytes));
  return words;
}

qk::Line& put_size(qk::Line& words, const char* what, std::uint64_t bytes) {
  return words.put(what).put(count_figure(bytes).text());
}

void put_what_of_guard(qk::Line& words, const Damage& damage) {
  const bool is_behind = damage.kind == DamageKind::kBehind;
  const char* const side = is_behind ? "behind a block of " : "in front of a block of ";
  if (damage.is_whole_guard) {
    put_size(words, "the whole guard of ", damage.guard_bytes).put(" bytes ");
    put_size(words, side, damage.block.bytes).put(" destroyed");
    return;
  }
  const Differing& where = damage.where;
  const std::uint64_t distance =
      is_behind ? where.offset : damage.guard_bytes - where.offset - where.length;
  put_bytes(words, where.length).put(" written ");
  if (distance != 0) put_bytes(words, distance).put(' ');
  put_size(words, side, damage.block.bytes);
}

/** What is damaged, which is the summary. */
void put_what(qk::Line& words, const Damage& damage) {
  switch (damage.kind) {
    case DamageKind::kBehind:
    case DamageKind::kInFront:
      return put_what_of_guard(words, damage);
    case DamageKind::kAfterFree:
      put_bytes(words, damage.where.length).put(" written after free ");
      put_bytes(words, damage.where.offset);
      put_size(words, " into a block of ", damage.block.bytes);
      return;
    case DamageKind::kUnused:
      put_bytes(words, damage.where.length).put(" written into memory of ");
      profile::put_handle(words, damage.block.hid, damage.block.tag);
      words.put(" that no piece has");
  }
}

void put_event(qk::Line& words, std::uint64_t event) {
  words.put(" (event ").put(count_figure(event).text()).put(')');
}

const char* words_for(history::Ending ending) {
  switch (ending) {
    case history::Ending::kFreed:
      return "freed";
    case history::Ending::kResized:
      return "resized";
    case history::Ending::kDeregistered:
      return "deregistered";
    case history::Ending::kWithHandle:
      break;
  }
  return "gone with its handle";
}

void put_release(qk::Line& words, const char* what, const history::Release& by) {
  words.put(", ").put(what).put(" at ").put(qk::file_name_only(by.path)).put(':');
  words.number(static_cast<std::uint64_t>(by.line));
}

void put_who(qk::Line& words, const Damage& damage) {
  const BlockFacts& block = damage.block;
  const bool is_unused = damage.kind == DamageKind::kUnused;
  if (const history::Release& by = block.released; by.path != nullptr) {
    put_release(words, is_unused ? "cleared" : words_for(by.ending), by);
    put_event(words, block.released_event);
  }
  if (is_unused) return;
  if (block.file != nullptr) {
    words.put(", allocated at ").put(block.file).put(':').number(block.line).put(" by ");
  } else {
    words.put(", of ");
  }
  profile::put_handle(words, block.hid, block.tag);
  if (block.mark.event != 0) put_event(words, whole_number_of(block.mark.event));
}

/** The latest event at which the memory is known to have been as it should be. */
std::uint64_t last_seen_whole(const Damage& damage) {
  const BlockFacts& block = damage.block;
  std::uint64_t event = damage.kind == DamageKind::kAfterFree || damage.kind == DamageKind::kUnused
                            ? block.released_event
                            : whole_number_of(block.mark.event);
  return std::max(event, last_whole_look());
}

void put_contents(qk::Line& words, const Damage& damage) {
  words.put(':');
  const std::uint64_t shown = std::min<std::uint64_t>(damage.where.length, Damage::kMostShown);
  for (std::uint64_t i = 0; i < shown; ++i) {
    words.put(' ').hex(damage.shown[i], 2);
  }
  if (shown < damage.where.length) words.put(" ...");
}

/** Where damage begins. */
const char* begin_of(const Damage& damage) {
  const char* const block = static_cast<const char*>(damage.block.address);
  switch (damage.kind) {
    case DamageKind::kBehind:
      return block + damage.block.bytes + damage.where.offset;
    case DamageKind::kInFront:
      return block - damage.guard_bytes + damage.where.offset;
    default:
      return block + damage.where.offset;
  }
}

/** A write that did not begin at the block can be one to an earlier block, which was there. */
void put_earlier_block(qk::Line& words, const Damage& damage) {
  if (damage.kind != DamageKind::kBehind || damage.where.offset == 0 || damage.is_whole_guard) {
    return;
  }
  const auto earlier = profile::freed_blocks.find(begin_of(damage));
  if (!earlier || earlier->release.path == nullptr) return;
  put_size(words, "; there was a block of ", earlier->bytes);
  put_release(words, words_for(earlier->release.ending), earlier->release);
  profile::put_allocation(words, "allocated",
                          profile::place_of(profile::pools.at(earlier->writer),
                                            profile::Mark::of_word(earlier->allocation)));
}

/** Returns the length of the summary. */
std::size_t describe(qk::Line& words, const Damage& damage) {
  put_what(words, damage);
  const std::size_t summary = words.length();
  put_who(words, damage);
  words.put(", last seen whole at event ").put(count_figure(last_seen_whole(damage)).text());
  put_contents(words, damage);
  put_earlier_block(words, damage);
  if (damage.is_whole_guard) {
    words.put("; a write went past it, or the block was given to the C library's free()");
  }
  return summary;
}

/** Says what the checks add to the program's memory: no sum of a handle has it. */
void put_added(qk::PageWriter& out) {
  const Added added = added_by_checks();
  if (added.blocks == 0) return;
  qk::Line line;
  line.put("qkmem: guards of ").put(count_figure(added.blocks).text()).put(" block");
  line.put(plural(added.blocks)).put(" that are left took ");
  line.put(size_figure(added.guard_bytes).text()).put('\n');
  out.put(line.finish());
}

profile::MisusePlace place_of(const Damage& damage) {
  const BlockFacts& block = damage.block;
  return {Routine::kGlobal, block.hid, block.file, static_cast<int>(block.line),
          static_cast<std::uint8_t>(1 + static_cast<int>(damage.kind))};
}

}  // namespace

void tell_of_damage(const Damage& damage) {
  const profile::MisusePlace place = place_of(damage);
  qk::Line words;
  const std::size_t summary = describe(words, damage);
  profile::tell_of_damage(place, damage.block.mark.site_number(), words.finish(), summary);
}

std::uint64_t findings_so_far() { return was_ever_on() ? profile::misuses.count() : 0; }

bool is_stopping() { return qk::load(stops) != 0; }

void stop_at_finding() {
  if (qk::set_flag(stops)) return;
  if (profile::was_ever_on()) {
    profile::write_report(profile::Occasion::kRunning, profile::Naming::kComplete);
  } else {
    write_report(Waiting::kAllowed);
  }
  std::abort();
}

void write_report(Waiting waiting) {
  if (!was_ever_on() || profile::was_ever_on()) return;
  const profile::Options destination = profile::options_now();
  std::optional<qk::MtxLock> lock;
  if (waiting == Waiting::kAllowed) lock.emplace(profile::report_lock);
  qk::PageBuffer text;
  {
    qk::PageWriter out(text);
    profile::put_findings(out, profile::events_so_far());
    put_added(out);
  }
  profile::deliver(destination.report, text.text());
  text.clear();
}

}  // namespace qk::mem::check

#include "input/table.h"

#include <algorithm>
#include <optional>
#include <string>

#include "formats/trace_letters.h"
#include "formats/trace_reader.h"
#include "input/groups.h"
#include "input/row_kinds.h"

namespace qk::command {
namespace {

using mem::TraceRow;

std::uint64_t address_of(const TraceRow& row) { return static_cast<std::uint64_t>(row.address); }
std::uint64_t bytes_of(const TraceRow& row) { return row.num * row.size; }

}  // namespace

bool TableInput::take(const TableRows& piece) {
  const std::span<const NumberedRow> rows = piece.rows();
  std::size_t taken = 0;
  for (const BrokenLine& broken : piece.broken()) {
    if (!take_rows(rows.subspan(taken, broken.rows_before - taken))) return false;
    taken = broken.rows_before;
    take_broken(broken.error);
  }
  return take_rows(rows.subspan(taken));
}

Check TableInput::finish() {
  Check check;
  for (Problem* const problem :
       {&broken_, &unknown_types_, &unknown_releases_, &made_again_, &moved_from_nowhere_}) {
    if (problem->count != 0) check.problems.push_back(*problem);
  }
  check.remarks = {{"moved_reallocs", "realloc",
                    " with another address; a table doesn't name the old block", moved_},
                   {"moved_reallocs_with_choice", "time",
                    " there were several blocks that it could be", moved_with_choice_},
                   {"piece_rows", "row",
                    " of pieces, not counted: the blocks that they are in have rows", piece_rows_}};
  check.has_sums = true;
  compare_sums(check);
  return check;
}

bool TableInput::take_rows(std::span<const NumberedRow> rows) {
  return take_in_groups(
      rows, [this](auto group) { expect(group); }, [this](auto group) { expect_soon(group); },
      [this](const NumberedRow& next) {
        now_ = &next;
        const bool is_wanted = number_of(next.row) <= to_.last.event;
        if (is_wanted) take_row(next.row);
        return is_wanted;
      });
}

void TableInput::expect(std::span<const NumberedRow> rows) {
  for (const auto& [row, line, place] : rows) {
    const HandleIndex handle = recent(row.handle).handle;
    blocks_.expect(handle, address_of(row), bytes_of(row));
    if (place != kNoPlace) known_.expect(hash_of(place, handle));
  }
}

void TableInput::expect_soon(std::span<const NumberedRow> rows) {
  for (const auto& [row, line, place] : rows) {
    blocks_.expect_soon(recent(row.handle).handle, address_of(row), bytes_of(row));
  }
}

void TableInput::take_broken(const mem::TraceError& error) {
  if (error.line == 1) {
    throw InputError(name_ + ": neither a recording nor a trace file: " + mem::message_of(error));
  }
  broken_.note("line " + std::to_string(error.line), mem::message_of(error));
}

void TableInput::note(Problem& problem) {
  problem.note(problem.count == 0 ? "line " + std::to_string(now_->line) : std::string());
}

/** The table's counter has 32 bits, and a row can come a little later than its number. */
std::uint64_t TableInput::number_of(const TraceRow& row) const {
  if (rows_ == 0) return row.sequence;
  const auto ahead = static_cast<std::int32_t>(row.sequence - static_cast<std::uint32_t>(event_));
  return event_ + static_cast<std::uint64_t>(std::int64_t{ahead});
}

void TableInput::take_row(const TraceRow& row) {
  event_ = std::max(event_, number_of(row));
  ++rows_;
  to_.ledger.event({event_, 0});
  switch (kind_of(row.type)) {
    case RowKind::kMade:
      return take_made(row, false);
    case RowKind::kMadeByLibrary:
      return take_made(row, true);
    case RowKind::kRealloc:
      return take_realloc(row);
    case RowKind::kGone:
      return take_gone(row);
    case RowKind::kPiece:
      ++piece_rows_;
      break;
    case RowKind::kHandleCreated:
    case RowKind::kHandleDeleted:
      take_handle(row);
      break;
    case RowKind::kOther:
      break;
    case RowKind::kUnknown:
      note(unknown_types_);
  }
  tell(row, nullptr, nullptr);
}

void TableInput::take_made(const TraceRow& row, bool is_own) {
  const HandleIndex handle = handle_of(row);
  const Block made = add_block(row, handle, is_own ? kOwnSite : site_of(row, handle));
  if (!is_own) note_change(row, handle, made.bytes, 0);
  tell(row, &made, nullptr);
}

void TableInput::take_realloc(const TraceRow& row) {
  const HandleIndex handle = handle_of(row);
  const std::uint64_t old_bytes = bytes_of(row) - static_cast<std::uint64_t>(row.change);
  const TableBlocks::Resized old = blocks_.take_resized(handle, address_of(row), old_bytes);
  if (old.has_moved && !old.block) note(moved_from_nowhere_);
  if (old.has_moved && old.block) {
    ++moved_;
    if (old.had_choice) ++moved_with_choice_;
  }
  const Block made = add_block(row, handle, site_of(row, handle));
  note_change(row, handle, made.bytes, old.block ? old.block->bytes : 0);
  tell(row, &made, old.block ? &*old.block : nullptr);
}

Block TableInput::add_block(const TraceRow& row, HandleIndex handle, SiteIndex site) {
  const Block block = {address_of(row), bytes_of(row), {event_, 0}, site};
  const TableBlocks::Added added = blocks_.add(handle, block);
  if (added.in_place_of) {
    note(made_again_);
    sums_[handle].counted -= added.in_place_of->bytes;
  }
  return block;
}

void TableInput::take_gone(const TraceRow& row) {
  const HandleIndex handle = handle_of(row);
  const std::optional<Block> block = blocks_.take(handle, address_of(row));
  if (!block) note(unknown_releases_);
  const bool is_own = block && block->site == kOwnSite;
  if (!is_own) note_change(row, handle, 0, block ? block->bytes : 0);
  tell(row, nullptr, block && !is_own ? &*block : nullptr);
}

void TableInput::take_handle(const TraceRow& row) {
  if (row.type == mem::event::kHandleCreated) {
    static_cast<void>(add_handle({row.handle, {}, std::string(row.file), row.line}));
    return;
  }
  // Rows of the library's own memory can follow. The number stays the handle's until another one
  // gets it.
  const HandleIndex handle = handle_of(row);
  blocks_.take_all(handle);
  sums_[handle].is_deleted = true;
}

SiteIndex TableInput::site_of(const TraceRow& row, HandleIndex handle) {
  const std::uint64_t hash = hash_of(now_->place, handle);
  const std::uint32_t known = known_.find(hash, [&](std::uint32_t candidate) {
    return known_sites_[candidate].place == now_->place && known_sites_[candidate].handle == handle;
  });
  if (known != IndexTable::kNone) return known_sites_[known].site;
  const SiteIndex site = to_.ledger.site_of({handle, row.line, row.file, {}, kNoStack, 0});
  known_.add(hash, static_cast<std::uint32_t>(known_sites_.size()));
  known_sites_.push_back({now_->place, handle, site});
  return site;
}

HandleIndex TableInput::handle_of(const TraceRow& row) {
  const NumberedHandle& seen = recent(row.handle);
  if (seen.number == row.handle && seen.handle != kNoHandle) return seen.handle;
  const auto found = current_.find(row.handle);
  if (found == current_.end()) return add_handle({row.handle, {}, {}, 0});
  recent(row.handle) = {row.handle, found->second};
  return found->second;
}

HandleIndex TableInput::add_handle(const Handle& handle) {
  const HandleIndex index = to_.ledger.add_handle(handle);
  current_[handle.number] = index;
  recent(handle.number) = {handle.number, index};
  sums_.emplace_back();
  return index;
}

/** The library's own memory is recorded in the middle of other events, and is in no sum. */
void TableInput::note_change(const TraceRow& row, HandleIndex handle, std::uint64_t added,
                             std::uint64_t removed) {
  Sums& sums = sums_[handle];
  sums.counted += added - removed;
  sums.said = row.handle_size;
}

void TableInput::tell(const TraceRow& row, const Block* made, const Block* gone) const {
  if (!to_.watch) return;
  Happening happening;
  happening.when = {event_, 0};
  happening.what = verb_of(row.type);
  happening.address = address_of(row);
  happening.bytes = made == nullptr && gone != nullptr ? gone->bytes : bytes_of(row);
  const auto handle = current_.find(row.handle);
  if (handle != current_.end()) happening.handle = handle->second;
  happening.file = row.file;
  happening.line = row.line;
  happening.made = made;
  happening.gone = gone;
  to_.watch(happening);
}

void TableInput::compare_sums(Check& check) const {
  for (HandleIndex handle = 0; handle < sums_.size(); ++handle) {
    const Sums& sums = sums_[handle];
    if (!sums.is_deleted && sums.said != sums.counted) {
      check.wrong_sums.push_back({handle, "live bytes", sums.counted, sums.said});
    }
  }
}

}  // namespace qk::command

#include "input/table.h"

#include <algorithm>
#include <optional>
#include <string>

#include "formats/trace_letters.h"

namespace qk::command {
namespace {

using mem::TraceRow;

/** What a row says has become of memory. */
enum class RowKind : std::uint8_t {
  kMade,
  kMadeByLibrary,
  kRealloc,
  kGone,
  kPiece,
  kHandleCreated,
  kHandleDeleted,
  kOther,
  kUnknown
};

constexpr unsigned char kRegistrationTypes = 3;  // deregistration writes the bare number

RowKind kind_of(unsigned char type) {
  if (type < kRegistrationTypes) return RowKind::kGone;
  if (mem::is_piece(type)) return RowKind::kPiece;
  switch (type) {
    case mem::kind::kMalloc:
    case mem::kind::kCalloc:
    case mem::kind::kStrdup:
    case mem::kind::kExternal:
    case mem::kind::kObject:
    case mem::kind::kArray:
    case mem::kind::kBlock:
      return RowKind::kMade;
    case mem::kind::kTracker:
    case mem::kind::kHandleMemory:
    case mem::kind::kPointerArray:
      return RowKind::kMadeByLibrary;
    case mem::kind::kRealloc:
      return RowKind::kRealloc;
    case mem::event::kFree:
    case mem::event::kObjectReleased:
    case mem::event::kArrayReleased:
      return RowKind::kGone;
    case mem::event::kFreePiece:
      return RowKind::kPiece;
    case mem::event::kHandleCreated:
      return RowKind::kHandleCreated;
    case mem::event::kHandleDeleted:
      return RowKind::kHandleDeleted;
    case mem::event::kHandleCleared:
    case mem::event::kTraceOpened:
      return RowKind::kOther;
    default:
      return RowKind::kUnknown;
  }
}

const char* verb_of(unsigned char type) {
  switch (type) {
    case mem::kind::kMalloc:
    case mem::as_piece(mem::kind::kMalloc):
      return "malloc";
    case mem::kind::kCalloc:
    case mem::as_piece(mem::kind::kCalloc):
      return "calloc";
    case mem::kind::kRealloc:
    case mem::as_piece(mem::kind::kRealloc):
      return "realloc";
    case mem::kind::kStrdup:
    case mem::as_piece(mem::kind::kStrdup):
      return "strdup";
    case mem::kind::kExternal:
    case mem::kind::kObject:
    case mem::kind::kArray:
      return "registered";
    case mem::kind::kBlock:
      return "block";
    case mem::kind::kTracker:
    case mem::kind::kHandleMemory:
    case mem::kind::kPointerArray:
      return "the library's";
    case mem::event::kFree:
    case mem::event::kFreePiece:
      return "free";
    case mem::event::kObjectReleased:
    case mem::event::kArrayReleased:
      return "released";
    case mem::event::kHandleCreated:
      return "handle made";
    case mem::event::kHandleDeleted:
      return "handle deleted";
    case mem::event::kHandleCleared:
      return "handle cleared";
    case mem::event::kTraceOpened:
      return "trace opened";
    default:
      return type < kRegistrationTypes ? "deregistered" : "unknown";
  }
}

std::uint64_t address_of(const TraceRow& row) { return static_cast<std::uint64_t>(row.address); }
std::uint64_t bytes_of(const TraceRow& row) { return row.num * row.size; }

}  // namespace

bool TableInput::feed(std::string_view bytes) {
  reader_.feed(bytes);
  return read_rows();
}

Check TableInput::finish() {
  if (!is_finished_) {
    reader_.finish();
    read_rows();
  }
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

bool TableInput::read_rows() {
  using Answer = mem::TraceReader::Answer;
  for (;;) {
    const Answer answer = read_ahead();
    if (!take_ahead()) return false;
    switch (answer) {
      case Answer::kRow:
        break;
      case Answer::kBroken:
        if (reader_.error().line == 1) {
          throw InputError(name_ + ": neither a recording nor a trace file: " +
                           mem::message_of(reader_.error()));
        }
        broken_.note("line " + std::to_string(reader_.error().line),
                     mem::message_of(reader_.error()));
        break;
      case Answer::kNeedsMore:
        return true;
      case Answer::kEnd:
        return false;
    }
  }
}

/** Reads some rows, unless the reader says something else before. */
mem::TraceReader::Answer TableInput::read_ahead() {
  for (ahead_count_ = 0; ahead_count_ < ahead_.size(); ++ahead_count_) {
    RowAhead& ahead = ahead_[ahead_count_];
    const mem::TraceReader::Answer answer = reader_.next(ahead.row);
    if (answer != mem::TraceReader::Answer::kRow) return answer;
    ahead.line = reader_.line();
    blocks_.expect(recent(ahead.row.handle).handle, address_of(ahead.row), bytes_of(ahead.row));
  }
  return mem::TraceReader::Answer::kRow;
}

/** Returns false once all that is wanted was taken. */
bool TableInput::take_ahead() {
  for (std::size_t i = 0; i < ahead_count_; ++i) {
    const TraceRow& row = ahead_[i].row;
    blocks_.expect_soon(recent(row.handle).handle, address_of(row), bytes_of(row));
  }
  for (std::size_t i = 0; i < ahead_count_; ++i) {
    line_ = ahead_[i].line;
    is_finished_ = number_of(ahead_[i].row) > to_.last.event;
    if (is_finished_) return false;
    take_row(ahead_[i].row);
  }
  return true;
}

void TableInput::note(Problem& problem) {
  problem.note(problem.count == 0 ? "line " + std::to_string(line_) : std::string());
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
  return to_.ledger.site_of({handle, row.line, row.file, {}, kNoStack, 0});
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

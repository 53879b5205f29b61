#include "input/table_rows.h"

#include "input/row_kinds.h"

namespace qk::command {

bool TableRowReader::read(TableRows& piece) {
  if (is_finished_) return false;
  piece.count_ = 0;
  piece.broken_.clear();
  const std::size_t count = bytes_.read(piece.bytes_);
  is_finished_ = count == 0;
  if (is_finished_) {
    reader_.finish();
  } else {
    reader_.feed({piece.bytes_.data(), count});
  }
  read_rows(piece);
  piece.position_ = bytes_.position();
  return true;
}

void TableRowReader::read_rows(TableRows& piece) {
  using Answer = mem::TraceReader::Answer;
  for (;;) {
    if (piece.count_ == piece.rows_.size()) piece.rows_.emplace_back();
    NumberedRow& next = piece.rows_[piece.count_];
    switch (reader_.next(next.row)) {
      case Answer::kRow:
        next.line = reader_.line();
        next.place = place_of(next.row);
        piece.keep_text(next.row.file);
        ++piece.count_;
        break;
      case Answer::kBroken:
        piece.broken_.push_back({piece.count_, reader_.error()});
        break;
      case Answer::kNeedsMore:
      case Answer::kEnd:
        return;
    }
  }
}

/** Looking at texts here leaves less to do to who adds up. */
SiteIndex TableRowReader::place_of(const mem::TraceRow& row) {
  if (!has_site(kind_of(row.type))) return kNoPlace;
  return places_.index_of({0, row.line, row.file, {}, kNoStack, 0});
}

/** Only the first row of a piece can be in the reader's memory. */
void TableRows::keep_text(std::string_view& text) {
  if (count_ != 0 || text.empty()) return;
  spread_ = text;
  text = spread_;
}

}  // namespace qk::command

#ifndef QKMEM_TOOLS_INPUT_TABLE_H_
#define QKMEM_TOOLS_INPUT_TABLE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "formats/trace_reader.h"
#include "formats/trace_row.h"
#include "input/input.h"
#include "input/table_blocks.h"

/** The trace file, a table with a row for each event. */
namespace qk::command {

/** Reads a table into a ledger. */
class TableInput {
 public:
  /** @param name  of the input, for errors. */
  TableInput(const Reader& reader, std::string name)
      : to_(reader), name_(std::move(name)), blocks_(reader.ledger) {}

  /**
   * Takes the next bytes. Returns false once all that is wanted was read. Throws InputError if the
   * bytes are no table at all.
   */
  bool feed(std::string_view bytes);

  /** After the last bytes. */
  [[nodiscard]] Check finish();

 private:
  /** A row that was read ahead, so that its block comes into the processor's cache. */
  struct RowAhead {
    mem::TraceRow row;
    std::uint64_t line = 0;
  };
  struct NumberedHandle {
    int number = 0;
    HandleIndex handle = kNoHandle;
  };

  static constexpr HandleIndex kNoHandle = UINT32_MAX;

  bool read_rows();
  [[nodiscard]] mem::TraceReader::Answer read_ahead();
  [[nodiscard]] bool take_ahead();
  void take_row(const mem::TraceRow& row);
  void take_made(const mem::TraceRow& row, bool is_own);
  void take_realloc(const mem::TraceRow& row);
  Block add_block(const mem::TraceRow& row, HandleIndex handle, SiteIndex site);
  void take_gone(const mem::TraceRow& row);
  void take_handle(const mem::TraceRow& row);
  [[nodiscard]] SiteIndex site_of(const mem::TraceRow& row, HandleIndex handle);
  [[nodiscard]] NumberedHandle& recent(int number) {
    return recent_[static_cast<unsigned>(number) % recent_.size()];
  }
  [[nodiscard]] HandleIndex handle_of(const mem::TraceRow& row);
  [[nodiscard]] HandleIndex add_handle(const Handle& handle);
  [[nodiscard]] std::uint64_t number_of(const mem::TraceRow& row) const;
  void note_change(const mem::TraceRow& row, HandleIndex handle, std::uint64_t added,
                   std::uint64_t removed);
  void note(Problem& problem);
  void tell(const mem::TraceRow& row, const Block* made, const Block* gone) const;
  void compare_sums(Check& check) const;

  /** The program's bytes on a handle. */
  struct Sums {
    std::uint64_t counted = 0;
    std::uint64_t said = 0;
    bool is_deleted = false;
  };

  const Reader& to_;
  const std::string name_;
  TableBlocks blocks_;
  mem::TraceReader reader_;
  std::uint64_t rows_ = 0;
  std::uint64_t piece_rows_ = 0;
  std::uint64_t moved_ = 0;
  std::uint64_t moved_with_choice_ = 0;
  Problem broken_ = {"rows that can't be read", 0, {}, {}};
  Problem unknown_types_ = {"rows of an unknown type", 0, {}, {}};
  Problem unknown_releases_ = {"releases of memory that was not live", 0, {}, {}};
  Problem made_again_ = {"allocations where a block was live", 0, {}, {}};
  Problem moved_from_nowhere_ = {"reallocs of a block that is not in the table", 0, {}, {}};
  std::unordered_map<int, HandleIndex> current_;  // by number
  std::array<NumberedHandle, 64> recent_ = {};
  std::vector<Sums> sums_;  // by handle
  std::array<RowAhead, 16> ahead_;
  std::size_t ahead_count_ = 0;
  std::uint64_t line_ = 0;  // of the row that is taken
  std::uint64_t event_ = 0;
  bool is_finished_ = false;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_TABLE_H_

#ifndef QKMEM_TOOLS_INPUT_TABLE_H_
#define QKMEM_TOOLS_INPUT_TABLE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "formats/trace_row.h"
#include "input/input.h"
#include "input/table_blocks.h"
#include "input/table_rows.h"
#include "ledger/index_table.h"

/** The trace file, a table with a row for each event. */
namespace qk::command {

/** Reads a table into a ledger. */
class TableInput {
 public:
  /** @param name  of the input, for errors. */
  TableInput(const Reader& reader, std::string name)
      : to_(reader), name_(std::move(name)), blocks_(reader.ledger) {}

  /**
   * Takes the next rows. Returns false once all that are wanted were taken. Throws InputError if the
   * input is no table at all.
   */
  [[nodiscard]] bool take(const TableRows& piece);

  /** After the last rows. */
  [[nodiscard]] Check finish();

 private:
  /** The site of a handle at a place of the program. */
  struct KnownSite {
    SiteIndex place = kNoPlace;
    HandleIndex handle = 0;
    SiteIndex site = 0;
  };
  struct NumberedHandle {
    int number = 0;
    HandleIndex handle = kNoHandle;
  };

  static constexpr HandleIndex kNoHandle = UINT32_MAX;

  [[nodiscard]] bool take_rows(std::span<const NumberedRow> rows);
  void expect(std::span<const NumberedRow> rows);
  void expect_soon(std::span<const NumberedRow> rows);
  void take_broken(const mem::TraceError& error);
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
  IndexTable known_;        // of the next ones, so that texts are looked at once
  std::vector<KnownSite> known_sites_;
  const NumberedRow* now_ = nullptr;  // the row that is taken
  std::uint64_t event_ = 0;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_TABLE_H_

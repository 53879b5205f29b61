// The sections with rows of handles and pointers.
#include <cstdlib>

#include "core/kinds.h"
#include "diag/call_context.h"
#include "diag/log.h"
#include "report/growth.h"
#include "report/report.h"
#include "support/line.h"
#include "support/shortcuts.h"
#include "support/text.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** The rows of a section: handles, or one class of their records. */
enum class Rows { kHandles, kManagement, kBlocks, kPointers };

struct Section {
  std::uint32_t bit;
  char handle_type;
  Rows rows;
  char autofree_mark;  // differs between the two handle sections on purpose
  const char* band;
};

constexpr Section kSections[] = {
    {QK_MEM_DUMP_HANDLES, 'O', Rows::kHandles, 'A',
     "   - - - - - - - - - - - - - Overhead handles  - - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_MGMT, 'O', Rows::kManagement, 0,
     "   - - - - - - - - - - - - - Overhead handle management  - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_BLOCKS, 'O', Rows::kBlocks, 0,
     "   - - - - - - - - - - - - - Overhead handle blocks  - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_POINTERS, 'O', Rows::kPointers, 0,
     "   - - - - - - - - - - - - - Overhead handle pointers  - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_HANDLES, 'D', Rows::kHandles, 'a',
     "   - - - - - - - - - - - - - Data handles  - - - - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_MGMT, 'D', Rows::kManagement, 0,
     "   - - - - - - - - - - - - - Data handle management  - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_BLOCKS, 'D', Rows::kBlocks, 0,
     "   - - - - - - - - - - - - - Data handle blocks  - - - - - - - - - - - - - - - \n"},
    {QK_MEM_DUMP_POINTERS, 'D', Rows::kPointers, 0,
     "   - - - - - - - - - - - - - Data handle pointers  - - - - - - - - - - - - - - \n"},
};

Rows class_of(unsigned char kind) {
  if (is_management(kind)) return Rows::kManagement;
  return kind == kind::kBlock ? Rows::kBlocks : Rows::kPointers;
}

/** A row's last column: a source location, cut to its width. */
template <class Text>
void put_location(Text& row, const char* file, int line) {
  constexpr std::size_t kWidth = 24;
  row.put(' ');
  const std::size_t start = row.length();
  row.put(file).put(':').signed_number(line).shorten(start + kWidth).put('\n');
}

std::size_t width_of_addresses() {
  return static_cast<std::size_t>(std::abs(Qk_mem_ptr_display_size));
}

template <class Text>
void put_handle(Text& row, const qk_mem_handle& handle, char autofree_mark) {
  row.put("   ").put(handle.base_amount == 0 ? '+' : ' ').signed_number(handle.id, 4);
  row.put(' ').put(handle.tag->name, 2).put(' ').put("", width_of_addresses()).put(' ');
  row.put(is_blockmgmt(handle) ? 'B' : ' ').put(handle.autofree != 0 ? autofree_mark : ' ');
  row.put(' ').number(qk::load(handle.qty), 4).put("          ");
  row.number(qk::load(handle.amount), 8).put(' ').number(handle.seq, 7);
  put_location(row, handle.file, handle.line);
}

template <class Text>
void put_record(Text& row, const qk_mem_handle& handle, const qk_mem_ptr& record) {
  row.put("   ").put(record.baselined == 0 ? '+' : ' ').signed_number(handle.id, 4);
  row.put(' ').put(handle.tag->name, 2).put(' ');
  row.hex(as_number(record.address), Qk_mem_ptr_display_size).put(' ');
  row.put(static_cast<char>(record.kind)).put("  ").number(record.count, 4).put(' ');
  row.number(record.size, 8).put(' ').number(bytes_of(record), 8).put(' ').number(record.seq, 7);
  put_location(row, record.file, record.line);
}

/** Prints a row that `put` makes, at once if its place and the addresses have a usual length. */
template <class Put>
void print_row(FILE* stream, const char* file, Put put) {
  constexpr std::size_t kMostButFile = 200;
  qk::Line row;
  if (!qk::kShortcuts || width_of_addresses() > qk::Cursor::kMostHexDigits ||
      !row.append(kMostButFile + qk_strlen(file), put)) {
    put(row);
  }
  write_line(stream, row.finish());
}

void print_handle(FILE* stream, const qk_mem_handle& handle, char autofree_mark) {
  print_row(stream, handle.file, [&](auto& row) { put_handle(row, handle, autofree_mark); });
}

void print_record(FILE* stream, const qk_mem_handle& handle, const qk_mem_ptr& record) {
  print_row(stream, record.file, [&](auto& row) { put_record(row, handle, record); });
}

/** Prints a handle's records of one class and returns their number. */
int print_records(const Report& report, const qk_mem_handle& handle, Rows rows) {
  int printed = 0;
  for_each_record(handle, [&](const qk_mem_ptr& record) {
    if (class_of(record.kind) != rows || qk_mem_filter_pointer(&record, &report.filters)) return;
    print_record(report.stream, handle, record);
    ++printed;
  });
  return printed;
}

int print_rows(const Report& report, const Section& section) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  int printed = 0;
  for_each_kept_handle(report, [&](const qk_mem_handle& handle) {
    if (handle.type != section.handle_type) return;
    if (section.rows == Rows::kHandles) {
      print_handle(report.stream, handle, section.autofree_mark);
      ++printed;
    } else {
      printed += print_records(report, handle, section.rows);
    }
  });
  return printed;
}

/** In a report of growth each section shows what is new, whatever the filter says about that. */
Report focused(const Report& report, const Section& section) {
  Report focus = report;
  if (!report.has(QK_MEM_DUMP_GROWTH)) return focus;
  if (section.rows == Rows::kHandles) {
    focus.filters.new_handle_sel = 1;
  } else {
    focus.filters.new_ptrs_sel = 1;
  }
  return focus;
}

void print_section(const Report& report, const Section& section) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  qk_mem_fprintf(report.stream, "%s", section.band);
  if (print_rows(focused(report, section), section) == 0) qk_mem_fprintf(report.stream, "\n");
}

/** Rows of management alone come without headings, on purpose. */
void print_headings(FILE* stream) {
  qk_mem_fprintf(stream, "\n");
  qk_mem_fprintf(stream, "    Hndl Tg %*s Typ Qty     Size    Total     Seq Location\n",
                 Qk_mem_ptr_display_size, "Address");
  qk_mem_fprintf(stream, "%s", kRule);
}

}  // namespace

void print_details(const Report& report) {
  assert_registry_held();
  if (report.has(QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS)) {
    print_headings(report.stream);
  }
  for (const Section& section : kSections) {
    if (report.has(section.bit)) print_section(report, section);
  }
  qk_mem_fprintf(report.stream, "%s", kRule);
}

}  // namespace qk::mem

#include "diag/trace_file.h"

#include <cstdint>

#include "core/handle_array.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/switches.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/output_file.h"
#include "formats/trace_row.h"
#include "support/line.h"
#include "support/no_cancellation.h"
#include "support/text.h"

namespace qk::mem {
namespace {

std::uint64_t amount_of(int hid) {
  const qk_mem_handle* handle = handle_slots().numbered(hid);
  return handle == nullptr ? 0 : qk::load(handle->amount);
}

/** Running totals of the rows. They continue while no file is written. */
struct Totals {
  std::int64_t current = 0;
  std::int64_t heap = 0;
};
constinit Totals totals QK_GUARDED_BY(Qk_mem_mtx);

/** Fills in the columns that depend on the change, on earlier rows and on the heap. */
void sum_up(TraceRow& row) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  totals.current += row.change;
  row.current = totals.current;
  row.heap = heap_at_event();
  row.unknown = row.heap - totals.current;
  row.growth = row.heap - totals.heap;
  row.difference = row.growth - row.change;
  totals.heap = row.heap;
}

}  // namespace

void start_trace_file(FILE* stream) {
  assert_registry_held();
  qk::Line headings;
  put_trace_headings(headings);
  write_line(stream, headings.finish());
  qk::publish(Qk_mem_db, stream);
  settle_all_roads();
}

void flush_trace_file() {
  assert_registry_held();
  const qk::NoCancellation no_cancellation;
  if (Qk_mem_db != nullptr) std::fflush(Qk_mem_db);
}

void unbuffer_trace_file() {
  assert_registry_held();
  if (Qk_mem_db != nullptr) unbuffer(Qk_mem_db);
}

void close_trace_file() {
  const RegistryLock lock;
  FILE* stream = Qk_mem_db;
  qk::publish(Qk_mem_db, nullptr);
  settle_all_roads();
  if (stream != nullptr) std::fclose(stream);
}

}  // namespace qk::mem

extern "C" int qk_mem_write_db(int handle, unsigned char type, const void* address,
                               unsigned long num, unsigned long size, const char* file, int line,
                               long change) {
  using namespace qk::mem;
  if (qk::acquire(Qk_mem_db) == nullptr || !debugging()) return -1;
  const RegistryLock lock;
  if (Qk_mem_db == nullptr) return -1;
  TraceRow row = {
      .sequence = qk::load(Qk_mem_seq),
      .handle = handle,
      .type = type,
      .address = TraceAddress{reinterpret_cast<std::uintptr_t>(address)},
      .num = num,
      .size = size,
      .handle_size = amount_of(handle),
      .file = qk::file_name_only(file),
      .line = line,
      .change = change,
  };
  sum_up(row);
  qk::Line text;
  put_trace_row(row, Qk_mem_ptr_display_size, text);
  write_line(Qk_mem_db, text.finish());
  return 0;
}

#include "diag/trace_file.h"

#include <cstdint>

#include "core/handle_array.h"
#include "core/registry.h"
#include "core/switches.h"
#include "diag/log.h"
#include "support/line.h"
#include "support/text.h"

constinit FILE* Qk_mem_db = nullptr;

namespace qk::mem {
namespace {

std::uint64_t amount_of(int hid) {
  const qk_mem_handle* handle = handle_slots().numbered(hid);
  return handle == nullptr ? 0 : qk::load(handle->amount);
}

}  // namespace

void start_trace_file(FILE* stream) {
  qk_mem_fprintf(
      stream,
      "Sequence\tHandle\tType\tAddress\tNum\tSize\tHandle Size\tFile\tLine\tCurrent\tHeap\tUnknown\tChange\tGrowth\tDifference\n");
  qk::publish(Qk_mem_db, stream);
}

void flush_trace_file() {
  if (Qk_mem_db != nullptr) std::fflush(Qk_mem_db);
}

void close_trace_file() {
  const RegistryLock lock;
  FILE* stream = Qk_mem_db;
  qk::publish(Qk_mem_db, nullptr);
  if (stream != nullptr) std::fclose(stream);
}

}  // namespace qk::mem

extern "C" int qk_mem_write_db(int handle, unsigned char type, const void* address,
                               unsigned long num, unsigned long size, const char* file, int line,
                               long change) {
  using namespace qk::mem;
  // Both live as long as the process: the totals go on when the file doesn't.
  static std::int64_t current = 0;
  static std::int64_t last_heap = 0;

  if (qk::acquire(Qk_mem_db) == nullptr || !debugging()) return -1;
  const RegistryLock lock;
  if (Qk_mem_db == nullptr) return -1;
  current += change;
  const std::int64_t heap = qk_heapsize();
  const std::int64_t growth = heap - last_heap;
  qk::Line row;
  row.number(qk::load(Qk_mem_seq)).put('\t').signed_number(handle).put('\t');
  row.put(static_cast<char>(type)).put('\t');
  row.hex(reinterpret_cast<std::size_t>(address), Qk_mem_ptr_display_size).put('\t');
  row.number(num).put('\t').number(size).put('\t').number(amount_of(handle)).put('\t');
  row.put(qk_file_name_only(file)).put('\t').signed_number(line).put('\t');
  row.signed_number(current).put('\t').signed_number(heap).put('\t');
  row.signed_number(heap - current).put('\t').signed_number(change).put('\t');
  row.signed_number(growth).put('\t').signed_number(growth - change).put('\n');
  write_line(Qk_mem_db, row.finish());
  last_heap = heap;
  return 0;
}

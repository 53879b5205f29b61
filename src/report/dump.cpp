// The report as a whole.
#include <mutex>

#include "core/switches.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "report/report.h"

namespace qk::mem {
namespace {

void print_heapsize(const Report& report) {
  qk_mem_fprintf(report.stream, "Current heapsize:  %10zd\n", report.heap);
}

/** A stream's own lock, which programs take with flockfile(). */
class StreamLock {
 public:
  explicit StreamLock(FILE* stream) : stream_(stream) {}
  void lock() { flockfile(stream_); }
  [[nodiscard]] bool try_lock() { return ftrylockfile(stream_) == 0; }
  void unlock() { funlockfile(stream_); }

 private:
  FILE* stream_;
};

/** Without a configuration there are no records to report. */
void print_unavailable(const Report& report) {
  if (report.sections == QK_MEM_DUMP_HEAPSIZE) {
    print_heapsize(report);
  } else {
    qk_mem_fprintf(report.stream, "QK_MEM_DEBUG must be set to see memory information\n");
  }
}

void print_whole(const Report& report) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  if (report.has(QK_MEM_DUMP_COMPARISON)) {
    print_comparison(report);
    return;
  }
  if (report.has(QK_MEM_DUMP_SUMMARY)) {
    print_summary(report);
  } else if (report.has(QK_MEM_DUMP_HEAPSIZE)) {
    print_heapsize(report);
  }
  print_details(report);
}

}  // namespace

}  // namespace qk::mem

extern "C" void qk_mem_dump(FILE* fp, const char* filter, unsigned int opts) {
  using namespace qk::mem;
  ensure_started();
  if (fp == nullptr) return;
  StreamLock stream(fp);
  // A thread that holds one of the two may be waiting for the other, in either order: a program's
  // thread that has locked the stream, and one that writes to the log, if the stream is the log's.
  const std::scoped_lock locks(stream, Qk_mem_mtx);
  assert_registry_held();
  Report report = {fp, {}, opts != 0 ? opts : qk::load(Qk_mem_dump_opts), qk_heapsize()};
  if (!has_reports()) {
    print_unavailable(report);
    return;
  }
  if (qk_mem_init_filters(filter, &report.filters) != 0) {
    qk_mem_fprintf(fp, "\"%s\" are not legal filters\n", filter);
    return;
  }
  if (report.has(QK_MEM_DUMP_GROWTH) && !find_growth(report)) {
    if (!report.has(QK_MEM_DUMP_TERSE)) qk_mem_fprintf(fp, "No memory growth since baseline\n");
    return;
  }
  print_whole(report);
}

namespace qk::mem {

void dump_to_log() {
  const RegistryLock lock;
  qk_mem_dump(Qk_mem_log, "", 0);
}

void dump_control_blocks(const qk_mem_debug& switches) {
  if (reports_events(switches)) dump_to_log();
}

}  // namespace qk::mem

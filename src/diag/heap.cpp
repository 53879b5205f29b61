#include "diag/heap.h"

#include <malloc.h>

#include <optional>

#include "core/registry.h"
#include "core/upcalls.h"
#include "diag/log.h"
#include "support/format.h"
#include "support/heap_counter.h"
#include "support/shortcuts.h"
#include "support/system_memory.h"

constinit std::uint32_t Qk_mem_opts = 0;

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
/** The older of the allocator's two statistics calls. Reports show its 32-bit figures. */
constexpr auto* kStatistics = &mallinfo;
#pragma GCC diagnostic pop

/** The heap size that was written last. */
constinit std::int64_t last_heap QK_GUARDED_BY(Qk_mem_mtx) = 0;

/** Makes the allocator set up its main arena before the first measurement. */
void ensure_arena() {
  static void* dummy = nullptr;
  if (qk::acquire(dummy) == nullptr) qk::publish(dummy, qk::own_memory::allocate(1));
}

/** What the allocator answered last while the process had one thread. */
class LastAnswer {
 public:
  /** Whether the answer would be another one now. */
  [[nodiscard]] bool is_outdated() const { return !count_ || counter_.read() != count_; }

  [[nodiscard]] long heap() const { return heap_; }

  void renew(long heap) {
    if (!is_counter_sought_) counter_ = qk::HeapCounter::find(statistics_address(), heap);
    is_counter_sought_ = true;
    heap_ = heap;
    count_ = counter_.read();
  }

 private:
  static std::uintptr_t statistics_address() {
    return reinterpret_cast<std::uintptr_t>(kStatistics);
  }

  bool is_counter_sought_ = false;
  qk::HeapCounter counter_;
  std::optional<std::size_t> count_;
  long heap_ = 0;
};
constinit LastAnswer last_answer QK_GUARDED_BY(Qk_mem_mtx);

}  // namespace

extern "C" long qk_heapsize(void) {
  ensure_arena();
  return kStatistics().arena;
}

namespace qk::mem {

long heap_at_event() {
  assert_registry_held();
  if (!qk::kShortcuts || !qk::is_single_threaded()) return qk_heapsize();
  if (last_answer.is_outdated()) last_answer.renew(qk_heapsize());
  return last_answer.heap();
}

}  // namespace qk::mem

extern "C" char* qk_mem_heapsize_string(char* buf) {
  if (qk::load(Qk_mem_opts) == 0) {
    *buf = '\0';
    return buf;
  }
  const qk::mem::RegistryLock lock;
  const std::int64_t heap = qk::mem::heap_at_event();
  qk_sprintf(buf, " (%zd %zd)", heap, heap - last_heap);
  last_heap = heap;
  return buf;
}

extern "C" void qk_mallinfo(void) {
  qk::mem::ensure_started();
  const struct mallinfo info = kStatistics();
  if (qk::acquire(Qk_mem_log) == nullptr) return;
  constexpr char kRule[] = "-------------------------------------------------\n";
  qk_mem_write_log("%s", kRule);
  qk_mem_write_log("Mallinfo stats\n");
  qk_mem_write_log("  Arena:     %12d\n", info.arena);
  qk_mem_write_log("  Ordblks:   %12d\n", info.ordblks);
  qk_mem_write_log("  Smblks:    %12d\n", info.smblks);
  qk_mem_write_log("  Hblkhd:    %12d\n", info.hblkhd);
  qk_mem_write_log("  Hblks:     %12d\n", info.hblks);
  qk_mem_write_log("  Usmblks:   %12d\n", info.usmblks);
  qk_mem_write_log("  Fsmblks:   %12d\n", info.fsmblks);
  qk_mem_write_log("  Uordblks:  %12d\n", info.uordblks);
  qk_mem_write_log("  Fordblks:  %12d\n", info.fordblks);
  qk_mem_write_log("  Keepcost:  %12d\n", info.keepcost);
  qk_mem_write_log("%s", kRule);
}

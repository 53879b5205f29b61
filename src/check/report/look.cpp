#include "check/report/look.h"

#include "check/release.h"
#include "check/unused.h"
#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "profile/events.h"
#include "profile/notes.h"
#include "support/live_threads.h"
#include "support/memory_map.h"
#include "table/blocks.h"
#include "table/pointer_array.h"
#include "table/slot.h"

namespace qk::mem::check {
namespace {

using profile::Mark;
using profile::Pool;

/** So many slots ahead, a guard is brought into the processor's cache. */
constexpr std::int32_t kAhead = 16;

constinit Added added = {};

/** One look has room for some damage only. More of it waits for the next look. */
constexpr int kMostLooks = 8;

/**
 * Whether memory is there. A program may give a block to the C library's free(), which can return
 * its pages to the system, and the library then still has a record of it.
 */
class Readable {
 public:
  [[nodiscard]] bool covers(const void* address, std::uint64_t bytes) {
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    return is_in(begin) && (bytes == 0 || is_in(begin + bytes - 1));
  }

 private:
  [[nodiscard]] bool is_in(std::uintptr_t address) {
    if (!holds(last_, address)) last_ = index_of(address);
    return holds(last_, address);
  }
  [[nodiscard]] bool holds(std::size_t index, std::uintptr_t address) const {
    if (index >= map_.count()) return false;
    const qk::Mapping& mapping = map_.at(index);
    return mapping.is_readable && address >= mapping.range.begin && address < mapping.range.end;
  }
  /** The first mapping that ends behind an address. */
  [[nodiscard]] std::size_t index_of(std::uintptr_t address) const {
    std::size_t low = 0;
    std::size_t high = map_.count();
    while (low < high) {
      const std::size_t middle = low + (high - low) / 2;
      if (map_.at(middle).range.end <= address) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  qk::MemoryMap map_;
  std::size_t last_ = 0;
};

/** A look at some handles: what is there, and what it has found. */
struct Look {
  Readable* readable;  // null where all records are known to be of live memory
  DamageList& damages;
  std::uint64_t damaged = 0;
  std::uint64_t guarded = 0;
  std::uint64_t guard_bytes = 0;

  void count(Mark mark) {
    ++guarded;
    guard_bytes += layout_of(mark).total();
  }

  [[nodiscard]] bool can_read(const BlockFacts& facts) const {
    if (readable == nullptr) return true;
    const Layout layout = layout_of(facts.mark);
    return readable->covers(guard_in_front(facts.address, layout), layout.front) &&
           readable->covers(guard_behind(facts.address, facts.bytes), layout.behind);
  }
};

/** Looks at a block whose guards are damaged, or can't be read. Marks it if that will be told. */
[[gnu::cold]] void note_damaged(const BlockFacts& facts, Mark& mark, Look& look) {
  if (look.damages.is_full()) {
    ++look.damaged;
  } else if (look_at_guards(facts, look.damages)) {
    ++look.damaged;
    mark.site |= Mark::kDamageTold;
  }
}

void look_at_slot(const qk_mem_handle& handle, const qk_mem_ptr& slot, Mark& mark, Look& look) {
  const auto record = record_of(slot);
  if (!record) return;
  look.count(mark);
  if ((mark.site & Mark::kDamageTold) != 0) {
    ++look.damaged;
    return;
  }
  const BlockFacts facts = facts_of(handle, *record, mark);
  if (!look.can_read(facts)) return;
  if (has_whole_guards(facts.address, facts.bytes, layout_of(mark))) return;
  note_damaged(facts, mark, look);
}

void look_at_records(qk_mem_handle& handle, Look& look) {
  assert_held(handle);
  Pool& pool = profile::pool_of(handle);
  for (qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    profile::Marks& marks = profile::marks_of(handle, pool, array);
    for (std::int32_t i = 1; i < slots; ++i) {
      if (i + kAhead < slots) {
        const qk_mem_ptr& ahead = array.ptrs[i + kAhead];
        __builtin_prefetch(guard_behind(qk::load(ahead.address), bytes_of(ahead)));
      }
      Mark* const mark = marks.of(i);
      if (mark != nullptr && mark->is_guarded()) look_at_slot(handle, array.ptrs[i], *mark, look);
    }
  }
}

void look_at_unrecorded(qk_mem_handle& handle, Look& look) {
  assert_held(handle);
  Pool& pool = profile::pool_of(handle);
  for (profile::Unrecorded& memory : pool.unrecorded.entries()) {
    if (memory.address == nullptr || !memory.mark.is_guarded()) continue;
    look.count(memory.mark);
    if ((memory.mark.site & Mark::kDamageTold) != 0) {
      ++look.damaged;
      continue;
    }
    const BlockFacts facts = facts_of(pool, memory);
    if (!look.can_read(facts)) continue;
    if (has_whole_guards(facts.address, facts.bytes, layout_of(facts.mark))) continue;
    note_damaged(facts, memory.mark, look);
  }
}

void look_at_blocks(qk_mem_handle& handle, Look& look) {
  assert_held(handle);
  for (qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    char* const data = data_of(*block);
    const bool low = look_at_unused(handle, data, block->low_mark, look.damages);
    const bool high = look_at_unused(handle, data + block->high_mark,
                                     block->capacity - block->high_mark, look.damages);
    if (!low || !high) ++look.damaged;
  }
}

/** Needs the handle's lock. */
void look_at_locked(qk_mem_handle& handle, Look& look) {
  assert_held(handle);
  if (!profile::is_watched(handle)) return;
  // Pieces lie in the handle's own blocks, which are there.
  Look inside = {is_blockmgmt(handle) ? nullptr : look.readable, look.damages};
  look_at_records(handle, inside);
  look_at_unrecorded(handle, inside);
  look_at_blocks(handle, inside);
  look.damaged += inside.damaged;
  look.guarded += inside.guarded;
  look.guard_bytes += inside.guard_bytes;
}

void look_at_if_free(qk_mem_handle& handle, Look& look) QK_UNCHECKED_LOCKING {
  if (handle.mtx != nullptr && !handle.mtx->try_lock()) return;
  look_at_locked(handle, look);
  if (handle.mtx != nullptr) handle.mtx->unlock();
}

std::uint64_t look_at_handles(Waiting waiting, DamageList& damages) {
  Readable readable;
  Look look = {&readable, damages};
  // Whoever uses a handle without a mutex does so without a lock.
  const bool are_others_at_work = qk::has_other_threads();
  const RegistryLock lock;
  for_each_handle([&](qk_mem_handle& handle) {
    if (handle.mtx == nullptr && are_others_at_work) return;
    if (waiting == Waiting::kForbidden) return look_at_if_free(handle, look);
    const HandleLock handle_lock(handle);
    look_at_locked(handle, look);
  });
  qk::store(added.blocks, look.guarded);
  qk::store(added.guard_bytes, look.guard_bytes);
  return look.damaged;
}

/** Looks again while there was more damage than a look has room for. */
template <class LookOnce>
std::uint64_t tell_of_all(LookOnce look_once) {
  for (int looks = 1;; ++looks) {
    DamageList damages;
    const std::uint64_t damaged = look_once(damages);
    tell_all(damages);
    if (!damages.is_full() || looks == kMostLooks) return damaged;
  }
}

constinit std::uint64_t interval = 0;
constinit std::uint64_t next_look = 0;

}  // namespace

std::uint64_t look_at_all(Waiting waiting) {
  const std::uint64_t now = profile::events_so_far();
  const std::uint64_t damaged = tell_of_all([&](DamageList& damages) {
    const std::uint64_t of_handles = look_at_handles(waiting, damages);
    return of_handles + look_at_quarantine(damages);
  });
  note_whole_look(now);
  return damaged;
}

std::uint64_t look_at_handle(qk_mem_handle& handle) {
  if (!profile::is_watched(handle)) return 0;
  return tell_of_all([&](DamageList& damages) {
    Look look = {nullptr, damages};
    const HandleLock lock(handle);
    look_at_locked(handle, look);
    return look.damaged;
  });
}

void look_beside(qk_mem_handle& handle, const qk_mem_ptr& record, std::int32_t index) {
  DamageList damages;
  {
    const HandleLock lock(handle);
    qk_mem_ptr_array& array = array_of(handle, record.address);
    profile::Marks& marks = profile::marks_of(handle, profile::pool_of(handle), array);
    Look look = {nullptr, damages};
    for_each_neighbour(array, marks, index, guard_behind(record.address, bytes_of(record)),
                       [&](std::int32_t beside, const char* guard, std::uint32_t bytes) {
                         if (is_whole(guard, bytes)) return;
                         look_at_slot(handle, array.ptrs[beside], marks.at(beside), look);
                       });
  }
  tell_all(damages);
}

Added added_by_checks() { return {qk::load(added.blocks), qk::load(added.guard_bytes)}; }

void look_every(std::uint64_t events) {
  qk::store(next_look, profile::events_so_far() + events);
  qk::store(interval, events);
}

DueLook::~DueLook() {
  const std::uint64_t events = qk::load(interval);
  if (events == 0) [[likely]]
    return;
  const std::uint64_t now = profile::events_so_far();
  if (now < qk::load(next_look)) return;
  qk::store(next_look, now + events);
  look_at_all();
}

}  // namespace qk::mem::check

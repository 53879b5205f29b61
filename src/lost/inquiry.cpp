#include "lost/inquiry.h"

#include <unistd.h>

#include <optional>

#include "core/handle_array.h"
#include "core/registry.h"
#include "lost/areas.h"
#include "lost/collected.h"
#include "lost/roots.h"
#include "lost/search.h"
#include "profile/sampling.h"
#include "support/ending_signals.h"
#include "support/glibc_heap.h"
#include "support/keep_errno.h"
#include "support/live_threads.h"
#include "support/no_cancellation.h"
#include "support/process_copy.h"
#include "support/shared_variable.h"
#include "support/stopped_threads.h"
#include "support/thread_pointer.h"

// Defined by the run-time libraries of sanitizers, if the program has one.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
[[gnu::weak]] void __asan_init();
[[gnu::weak]] void __tsan_init();
[[gnu::weak]] void __msan_init();
}
// NOLINTEND(bugprone-reserved-identifier)

namespace qk::mem::lost {
namespace {

/** See glibc::learn_cache_key(). */
constinit std::uint64_t cache_key = 0;

bool has_sanitizer() {
  return __asan_init != nullptr || __tsan_init != nullptr || __msan_init != nullptr;
}

bool lock(const qk_mem_handle& handle, Waiting waiting) QK_UNCHECKED_LOCKING {
  if (handle.mtx == nullptr) return true;
  if (waiting == Waiting::kForbidden) return handle.mtx->try_lock();
  handle.mtx->lock();
  return true;
}

void unlock(const qk_mem_handle& handle) QK_UNCHECKED_LOCKING {
  if (handle.mtx != nullptr) handle.mtx->unlock();
}

/** Holds the locks of all handles. Needs the registry's lock. */
class HandleLocks {
 public:
  explicit HandleLocks(Waiting waiting) QK_REQUIRES(Qk_mem_mtx) {
    assert_registry_held();
    for_each_handle([this, waiting](const qk_mem_handle& handle) {
      are_held_ = are_held_ && lock(handle, waiting);
      if (are_held_) last_ = handle.id;
    });
  }
  HandleLocks(const HandleLocks&) = delete;
  HandleLocks& operator=(const HandleLocks&) = delete;

  /** False if one of them could not be taken. */
  [[nodiscard]] bool are_held() const { return are_held_; }

  void unlock_all() QK_REQUIRES(Qk_mem_mtx) {
    assert_registry_held();
    for_each_handle([this](const qk_mem_handle& handle) {
      if (handle.id <= last_) unlock(handle);
    });
  }

 private:
  bool are_held_ = true;
  std::int32_t last_ = 0;  // the number of the last handle whose lock is held
};

Quantity amount_of(const Block& block) {
  if (!block.is_sampled) return {block.bytes, 1};
  const profile::Amount amount = profile::sampled_amount(block.bytes, block.event);
  return {amount.bytes, amount.blocks};
}

/** Sums up what has become of the blocks. */
void tell(Findings& findings, const Areas& areas, const Blocks& blocks, Search& search) {
  for (std::uint32_t area = 0; area < areas.count(); ++area) {
    const Fate fate = search.fate_of(area);
    if (fate == Fate::kKept) continue;
    for (std::uint32_t i = areas.at(area).first_block; i < areas.end_of_blocks(area); ++i) {
      const Quantity amount = amount_of(blocks[i]);
      Losses& losses = findings.at(blocks[i].site);
      losses.gone.add(amount);
      if (fate == Fate::kLost) {
        losses.lost.add(amount);
      } else {
        const std::uint32_t owner = areas.at(search.owner_of(area)).first_block;
        findings.at(blocks[owner].site).with_owner.add(amount);
      }
    }
  }
}

/** In the copy: nothing that it does is seen, but for the findings. */
Obstacle search_copy(Findings& findings, const Process& process) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const qk::MemoryMap map;  // before there is other memory with addresses of blocks
  if (!map.is_complete()) return Obstacle::kNoMap;
  Collected collected(findings);
  if (!collected.is_complete()) return Obstacle::kNoMemory;
  const Areas areas(collected.blocks);
  Search search(areas);
  if (!areas.is_complete() || !search.is_complete()) return Obstacle::kNoMemory;
  Roots roots(map, areas, collected.own, process);
  roots.keep(search);
  if (!search.find_owners(collected.blocks)) return Obstacle::kNoMemory;
  findings.summary().lacks_heap = !roots.knows_heap();
  tell(findings, areas, collected.blocks, search);
  return Obstacle::kNone;
}

/** Returns the copy, or a number below 0. */
pid_t start_search(Findings& findings, const Caller& caller) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  std::optional<qk::StoppedThreads> threads;
  const bool has_others = qk::has_other_threads();
  if (has_others) threads.emplace();
  const bool knows_threads = !has_others || threads->are_stopped();
  findings.summary() = {Obstacle::kCopyEnded, !knows_threads, false};
  const pid_t copy = qk::copy_process();
  if (copy != 0) return copy;
  const Process process = {caller, threads ? threads->states() : std::span<const ThreadState>(),
                           knows_threads, cache_key};
  findings.summary().obstacle = search_copy(findings, process);
  _exit(0);
}

/** A signal ends the process soon, and the report is still to be written. */
void wait_for(pid_t copy, Waiting waiting, Findings& findings) {
  constexpr int kMilliseconds = 500;
  if (waiting == Waiting::kAllowed) {
    static_cast<void>(qk::wait_for_copy(copy));
  } else if (!qk::wait_for_copy(copy, kMilliseconds)) {
    findings.summary().obstacle = Obstacle::kTooLong;
  }
}

/** A function of its own: its frame, and all above, are what the stack has of the program. */
[[gnu::noinline]] Findings inquire_from_here(Waiting waiting) {
  const qk::NoCancellation no_cancellation;
  Findings findings;
  if (!findings.has_room()) return findings;
  if (has_sanitizer()) {
    findings.summary().obstacle = Obstacle::kSanitizer;
    return findings;
  }
  const qk::LeftStacks left = qk::left_stacks();
  const Caller caller = {{reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)),
                          left.interrupted, left.of_handler},
                         qk::thread_pointer()};
  const qk::NoSignals no_signals;
  pid_t copy = -1;
  {
    const RegistryLock registry;
    HandleLocks handles(waiting);
    if (handles.are_held()) {
      copy = start_search(findings, caller);
      if (copy < 0) findings.summary().obstacle = Obstacle::kNoCopy;
    } else {
      findings.summary().obstacle = Obstacle::kLockIsHeld;
    }
    handles.unlock_all();
  }
  if (copy > 0) wait_for(copy, waiting, findings);
  return findings;
}

}  // namespace

void prepare_inquiry() {
  if (!has_sanitizer() && qk::load(cache_key) == 0) {
    qk::store(cache_key, qk::glibc::learn_cache_key());
  }
}

Findings inquire(Waiting waiting) {
  __builtin_unwind_init();  // registers that functions must preserve go to this frame
  Findings findings = inquire_from_here(waiting);
  return findings;
}

}  // namespace qk::mem::lost

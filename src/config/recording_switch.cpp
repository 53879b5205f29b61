// When a recording begins and ends: while no event is under way, so that it agrees with all figures.
#include "config/recording_switch.h"

#include "core/handle_array.h"
#include "profile/recorded.h"
#include "profile/state.h"
#include "support/live_threads.h"

namespace qk::mem {
namespace {

/** Keeps all threads out of all handles that they share. */
template <class Body>
void without_events(Body body) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for_each_handle(lock_handle);
  body();
  for_each_handle(unlock_handle);
}

}  // namespace

void switch_recording(const char* pattern, std::uint64_t limit) {
  assert_registry_held();
  if (pattern == nullptr && !profile::is_recorded()) return;
  if (pattern != nullptr && profile::is_recorded_to(pattern)) return;
  without_events([pattern, limit] {
    if (pattern == nullptr) {
      profile::end_record();
    } else {
      profile::begin_record(pattern, limit);
    }
  });
}

void end_profile(check::Waiting waiting) {
  if (!profile::is_recorded()) return profile::freeze();
  if (waiting == check::Waiting::kForbidden && qk::has_other_threads()) {
    // Some may have a lock for ever, or be in the middle of an event.
    profile::abandon_record();
    return profile::freeze();
  }
  const RegistryLock lock;
  without_events([] {
    profile::end_record();
    profile::freeze();
  });
}

}  // namespace qk::mem

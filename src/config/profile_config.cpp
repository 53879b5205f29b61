// Configuration of the profile, while the program runs and from the environment.
#include "config/profile_config.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/known_leaks_file.h"
#include "config/profile_options.h"
#include "config/profile_schedule.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/upcalls.h"
#include "lost/inquiry.h"
#include "profile/copies.h"
#include "profile/notes.h"
#include "profile/pool.h"
#include "profile/sampling.h"
#include "profile/snapshots.h"
#include "profile/stacks.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/exit_code.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/own_message.h"
#include "support/system.h"
#include "table/slot.h"

namespace qk::mem {
namespace {

/** A copy of an option string that stays, in the profile's own memory. Null if there is none. */
char* keep_text(const char* text) {
  const std::size_t bytes = std::strlen(text) + 1;
  const qk::MtxLock lock(profile::growth_lock);
  void* const copy = profile::arena.take(bytes);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, bytes));
}

/** Books the records that are not booked yet. */
void note_present_records(qk_mem_handle& handle) {
  for (qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t index = 1; index < slots; ++index) {
      if (recorded_address(array.ptrs[index]) == nullptr) continue;
      profile::note_from_before(handle, {array, index});
    }
  }
}

/** From one moment on, under the handle's lock, all its calls tell the profile of its memory. */
void watch(qk_mem_handle& handle) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  const HandleLock lock(handle);
  if (!profile::is_watched(handle)) profile::watch_handle(handle);
  if (profile::is_watched(handle)) note_present_records(handle);
}

void switch_on() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  profile::start();
  for_each_handle(watch);
  settle_all_roads();
}

void say_that_sample_stays(const char* source) {
  qk::Line line;
  line.put("qkmem: ").put(source).put(": SAMPLE stays ").number(profile::sample_interval());
  qk::write_message(line.put(", because blocks of that sample can be live\n").finish());
}

/** See https://no-color.org. The environment can change later, but not be read at a signal. */
bool wants_colours() {
  const char* const terminal = std::getenv("TERM");
  const char* const refusal = std::getenv("NO_COLOR");
  return terminal != nullptr && std::strcmp(terminal, "dumb") != 0 &&
         (refusal == nullptr || *refusal == '\0');
}

std::int32_t configure(const char* source, const char* text) {
  char* const own_text = keep_text(text);
  if (own_text == nullptr) return qk_error_no(ENOMEM);
  profile::Options options;
  std::int32_t mistake = read_profile_options(source, own_text, options);
  if (options.ignore != nullptr) {
    const std::int32_t in_file = read_known_leaks(source, options.ignore, options.known_leaks);
    if (mistake == 0) mistake = in_file;
  }
  options.may_have_colours = wants_colours();
  profile::join_copies();
  if (options.depth != 0) profile::prepare_stack_capture();
  if (options.leaks_code != 0) qk::prepare_exit_code();
  if (options.lost) lost::prepare_inquiry();
  profile::set_filling(options.lost);
  if (!profile::set_sampling(options.sample_bytes)) say_that_sample_stays(source);
  const RegistryLock lock;
  profile::set_options(options);
  profile::set_stack_depth(options.depth);
  switch_on();
  schedule_profile(options);
  return mistake;
}

const char* asked_by_environment() {
  const char* const value = ::secure_getenv("QK_MEM_PROFILE");
  return value == nullptr || *value == '\0' ? nullptr : value;
}

/**
 * Before main(), because the start-up holds a lock while it configures the profile, and loading a
 * library under a lock is safe with one thread only.
 */
[[gnu::constructor(101)]] void use_linker_from_the_start() {
  const char* const text = asked_by_environment();
  if (text == nullptr) return;
  if (mentions_stacks(text)) profile::prepare_stack_capture();
  if (mentions_leaks(text)) qk::prepare_exit_code();
}

}  // namespace

void resume_profile() {
  const RegistryLock lock;
  switch_on();
}

void reset_profile() {
  const RegistryLock lock;
  profile::count_reset();
  for_each_handle([](qk_mem_handle& handle) {
    if (!profile::is_watched(handle)) return;
    const HandleLock handle_lock(handle);
    profile::note_reset(handle);
  });
  profile::reset_levels();
}

void configure_profile_from_environment() {
  const char* const text = asked_by_environment();
  if (text == nullptr) return;
  // Without a word it would look as if there was nothing to report.
  if (configure("QK_MEM_PROFILE", text) == qk_error_no(ENOMEM)) {
    qk::write_message("qkmem: no memory for the profile\n");
  }
}

}  // namespace qk::mem

extern "C" int qk_mem_profile_config(const char* options) {
  using namespace qk::mem;
  ensure_started();
  if (options == nullptr || *options == '\0') {
    end_profile_schedule();
    profile::set_filling(false);
    profile::stop();
    return 0;
  }
  return leave_code(configure("qk_mem_profile_config", options));
}

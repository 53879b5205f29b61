// Configuration of the profile, while the program runs and from the environment.
#include "config/profile_config.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/kept_text.h"
#include "config/known_leaks_file.h"
#include "config/profile_options.h"
#include "config/profile_schedule.h"
#include "config/recording_switch.h"
#include "config/watching.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "core/upcalls.h"
#include "lost/inquiry.h"
#include "profile/copies.h"
#include "profile/notes.h"
#include "profile/sampling.h"
#include "profile/snapshots.h"
#include "profile/stacks.h"
#include "profile/state.h"
#include "qkmem/profile.h"
#include "support/exit_code.h"
#include "support/line.h"
#include "support/own_message.h"
#include "support/system.h"

namespace qk::mem {
namespace {

void switch_on() QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  profile::start();
  watch_all_handles();
}

void say_that_sample_stays(const char* source) {
  qk::Line line;
  line.put("qkmem: ").put(source).put(": SAMPLE stays ").number(profile::sample_interval());
  qk::write_message(line.put(", because blocks of that sample can be live\n").finish());
}

/** A block of a sample stands for others, and a recording has each block. */
void leave_out_sample(const char* source, profile::Options& options) {
  if (options.record == nullptr) return;
  qk::Line line;
  line.put("qkmem: ").put(source);
  if (profile::sample_interval() != 0) {
    options.record = nullptr;
    line.put(": there is no recording, because blocks of a sample can be live\n");
    return qk::write_message(line.finish());
  }
  if (options.sample_bytes == 0) return;
  options.sample_bytes = 0;
  line.put(": SAMPLE is left out, because a recording has all blocks\n");
  qk::write_message(line.finish());
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
  leave_out_sample(source, options);
  options.may_have_colours = wants_colours();
  profile::join_copies();
  if (options.depth != 0) profile::prepare_stack_capture();
  if (options.record != nullptr) profile::modules.refresh();
  if (options.leaks_code != 0) qk::prepare_exit_code();
  if (options.lost) lost::prepare_inquiry();
  profile::set_filling(profile::Filling::kForSearch, options.lost);
  if (!profile::set_sampling(options.sample_bytes)) say_that_sample_stays(source);
  const RegistryLock lock;
  profile::set_options(options);
  profile::set_stack_depth(options.depth);
  switch_recording(options.record, options.record_max);
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
    profile::set_filling(profile::Filling::kForSearch, false);
    profile::stop();
    const RegistryLock lock;
    switch_recording(nullptr, 0);
    return 0;
  }
  return leave_code(configure("qk_mem_profile_config", options));
}

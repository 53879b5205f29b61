// Configuration of the checks, while the program runs and from the environment.
#include "config/check_config.h"

#include <cerrno>
#include <cstdlib>

#include "check/quarantine.h"
#include "check/report/findings.h"
#include "check/report/look.h"
#include "check/report/options.h"
#include "check/settings.h"
#include "check/unused.h"
#include "config/check_options.h"
#include "config/kept_text.h"
#include "config/watching.h"
#include "core/handle_array.h"
#include "core/registry.h"
#include "core/roads.h"
#include "core/upcalls.h"
#include "profile/booking.h"
#include "profile/misuses.h"
#include "profile/options.h"
#include "profile/state.h"
#include "qkmem/check.h"
#include "support/apart_memory.h"
#include "support/exit_code.h"
#include "support/fault_words.h"
#include "support/line.h"
#include "support/own_message.h"
#include "support/system.h"
#include "table/blocks.h"

namespace qk::mem {
namespace {

check::Settings settings_of(const check::Options& options) {
  check::Settings settings = {};
  settings.is_on = 1;
  settings.guards = options.guard_bytes != 0 ? 1 : 0;
  settings.guards_front = options.guards_front ? 1 : 0;
  settings.guard_bytes = options.guard_bytes;
  settings.fills_released = options.fills ? 1 : 0;
  settings.quarantines = options.quarantine_bytes != 0 ? 1 : 0;
  settings.fills_unused = options.fills || options.quarantine_bytes != 0 ? 1 : 0;
  return settings;
}

/** Memory of a handle's blocks that no piece has keeps a filling from now on, or does not. */
void settle_unused(qk_mem_handle& handle) {
  const HandleLock lock(handle);
  check::begin_unused(handle);
  for (qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    check::fill_unused(handle, data_of(*block), block->low_mark);
    check::fill_unused(handle, data_of(*block) + block->high_mark,
                       block->capacity - block->high_mark);
  }
}

void apply_checks(const check::Settings& settings, const check::Options& options)
    QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  check::set_settings(settings);
  profile::set_filling(profile::Filling::kForChecks, options.fills);
  profile::set_break_event(options.break_event);
  check::look_every(options.scan_events);
  qk::put_faults_into_words(settings.is_on != 0);
  const bool are_slow =
      settings.guards_front != 0 || options.scan_events != 0 || options.break_event != 0;
  road_rules = {settings.is_on != 0, settings.is_on != 0 && are_slow};
  watch_all_handles();
  for_each_handle(settle_unused);
}

void share_options_with_profile(const check::Options& options) {
  profile::Options shared = profile::options();
  if (options.report != nullptr) shared.report = options.report;
  profile::set_least_history(options.history);
  profile::set_options(shared);
}

void say_that_guard_stays(const char* source) {
  qk::Line line;
  line.put("qkmem: ").put(source).put(": GUARD stays ");
  line.number(qk::load(check::settings.guard_bytes));
  qk::write_message(line.put(", because blocks with such guards can be live\n").finish());
}

std::int32_t configure_checks(const char* source, const char* text) {
  char* const own_text = keep_text(text);
  if (own_text == nullptr) return qk_error_no(ENOMEM);
  check::Options options;
  std::int32_t mistake = read_check_options(source, own_text, options);
  if (options.findings_code != 0) qk::prepare_exit_code();
  if (!check::set_quarantine(options.quarantine_bytes)) {
    options.quarantine_bytes = 0;
    mistake = qk_error_no(ENOMEM);
  }
  const std::uint32_t guard_bytes = qk::load(check::settings.guard_bytes);
  if (guard_bytes != 0 && options.guard_bytes != 0 && options.guard_bytes != guard_bytes) {
    say_that_guard_stays(source);
  }
  const RegistryLock lock;
  share_options_with_profile(options);
  check::set_options(options);
  check::set_teller(check::tell_of_damage);
  qk::apart::use();
  profile::set_reaction_to_misuse(options.stops ? check::stop_at_finding : nullptr);
  profile::set_following(true);
  apply_checks(settings_of(options), options);
  return mistake;
}

void end_checks() {
  if (!check::was_ever_on()) return;
  {
    const RegistryLock lock;
    profile::set_reaction_to_misuse(nullptr);
    apply_checks({}, {});
    profile::set_following(false);
    settle_all_roads();
  }
  static_cast<void>(check::set_quarantine(0));
}

const char* asked_for_checks() {
  const char* const value = ::secure_getenv("QK_MEM_CHECK");
  return value == nullptr || *value == '\0' ? nullptr : value;
}

/** Before main(), for the reason that the profile has. */
[[gnu::constructor(101)]] void use_linker_for_checks() {
  const char* const text = asked_for_checks();
  if (text != nullptr && mentions_findings(text)) qk::prepare_exit_code();
}

}  // namespace

void configure_checks_from_environment() {
  const char* const text = asked_for_checks();
  if (text == nullptr) return;
  if (configure_checks("QK_MEM_CHECK", text) == qk_error_no(ENOMEM)) {
    qk::write_message("qkmem: no memory for the checks\n");
  }
}

}  // namespace qk::mem

extern "C" int qk_mem_check_config(const char* options) {
  using namespace qk::mem;
  ensure_started();
  if (options != nullptr && *options != '\0') {
    return leave_code(configure_checks("qk_mem_check_config", options));
  }
  end_checks();
  return 0;
}

extern "C" int64_t qk_mem_check(int hid) {
  using namespace qk::mem;
  ensure_started();
  if (!check::was_ever_on()) {
    leave_code(qk_error_no(ENODATA));
    return -1;
  }
  if (hid == 0) return static_cast<int64_t>(check::look_at_all());
  qk_mem_handle* const handle = find_handle(hid);
  if (handle == nullptr) {
    leave_code(QK_MEM_ERROR_HANDLE);
    return -1;
  }
  return static_cast<int64_t>(check::look_at_handle(*handle));
}

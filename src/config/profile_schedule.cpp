// What the profile does at intervals: reports, and the commands of the control file.
#include "config/profile_schedule.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "config/option_copy.h"
#include "config/profile_config.h"
#include "config/profile_options.h"
#include "profile/due.h"
#include "profile/events.h"
#include "profile/report/report.h"
#include "profile/snapshots.h"
#include "qkmem/profile.h"
#include "support/file_version.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/no_cancellation.h"
#include "support/option_words.h"
#include "support/own_message.h"
#include "support/shared_variable.h"
#include "support/system.h"

namespace qk::mem {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

// A thread can be at work while another one sets these.
constinit std::uint64_t report_interval = 0;  // 0 for no reports
constinit std::uint64_t next_report = profile::kNever;
constinit const char* control_file = nullptr;
constinit std::uint64_t next_look = profile::kNever;

void report_now() {
  profile::write_report(profile::Occasion::kRunning, profile::Naming::kComplete);
}

constinit qk::FileVersion version_done = 0;      // of the worker
constinit std::uint8_t is_new_control_file = 0;  // and nothing of it was done

void report_as_asked(std::string_view options) {
  if (options.empty()) return report_now();
  OptionCopy copy(options);
  if (copy.text() == nullptr) return;
  ReportRequest request = {profile::options_now(), {}};
  // A mistake was named, and the rest is used.
  static_cast<void>(read_report_options(qk::acquire(control_file), copy.text(), request));
  profile::write_requested_report(request.options, request.growth);
}

/** A name can be between quotes, as in option strings. */
std::string_view without_quotes(std::string_view name) {
  const bool is_quoted = name.size() >= 2 && name.front() == name.back() &&
                         (name.front() == '\'' || name.front() == '"');
  return is_quoted ? name.substr(1, name.size() - 2) : name;
}

void take_named_snapshot(std::string_view name) {
  if (profile::take_snapshot(without_quotes(name)) != qk_error_no(EINVAL)) return;
  qk::write_message("qkmem: the name of a snapshot has 1 to 200 bytes\n");
}

/** What can follow a command's word. */
enum class Argument : std::uint8_t { kNone, kOptional, kRequired };

struct Command {
  std::string_view word;
  Argument argument;
  void (*run)(std::string_view argument);
};

constexpr Command kCommands[] = {
    {"on", Argument::kNone, [](std::string_view) { resume_profile(); }},
    {"off", Argument::kNone, [](std::string_view) { profile::stop(); }},
    {"report", Argument::kOptional, report_as_asked},
    {"reset", Argument::kNone, [](std::string_view) { reset_profile(); }},
    {"snapshot", Argument::kRequired, take_named_snapshot},
};

bool fits(Argument wanted, bool is_there) {
  return wanted == Argument::kOptional || (wanted == Argument::kRequired) == is_there;
}

void run_command(std::string_view line) {
  const std::size_t end = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, end);
  const std::string_view argument =
      line.substr(std::min(line.find_first_not_of(' ', end), line.size()));
  for (const Command& command : kCommands) {
    if (equal_ignoring_case(word, command.word) && fits(command.argument, !argument.empty())) {
      return command.run(argument);
    }
  }
  qk::Line message;
  message.put("qkmem: unknown command '").put(line).put("' in ").put(qk::acquire(control_file));
  message.put("; there are on, off, report, report OPTIONS, reset and snapshot NAME\n");
  qk::write_message(message.finish());
}

void run_commands(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.remove_suffix(1);
    if (!line.empty()) run_command(line);
  }
}

/** The contents of the control file, if it has changed since the last time. */
std::string_view read_changed(char* text, std::size_t size) {
  const int file = ::open(qk::acquire(control_file), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {};
  struct stat status = {};
  std::string_view contents;
  if (::fstat(file, &status) == 0) {
    const qk::FileVersion version = qk::version_of(status);
    const bool is_first = qk::load(is_new_control_file) != 0;
    qk::store(is_new_control_file, 0);
    const bool is_new = is_first || version != version_done;
    version_done = version;
    const ssize_t length = is_new ? ::read(file, text, size) : 0;
    if (length > 0) contents = {text, static_cast<std::size_t>(length)};
  }
  ::close(file);
  return contents;
}

void look_at_control_file() {
  if (qk::acquire(control_file) == nullptr) return;
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  char text[1024];
  run_commands(read_changed(text, sizeof text));
}

std::uint64_t do_scheduled_work(std::uint64_t now) {
  if (now >= qk::load(next_look)) {
    qk::store(next_look, now + kSecond);
    look_at_control_file();
  }
  if (now >= qk::load(next_report)) {
    qk::store(next_report, now + qk::load(report_interval));
    report_now();
  }
  return std::min(qk::load(next_look), qk::load(next_report));
}

}  // namespace

void schedule_profile(const profile::Options& options) {
  const std::uint64_t now = profile::time_now();
  const std::uint64_t interval = options.every_seconds * kSecond;
  const std::uint64_t first_report = interval == 0 ? profile::kNever : now + interval;
  const std::uint64_t first_look = options.control == nullptr ? profile::kNever : now;
  qk::store(report_interval, interval);
  qk::store(next_report, first_report);
  qk::store(is_new_control_file, 1);
  qk::publish(control_file, options.control);
  qk::store(next_look, first_look);
  profile::set_due_work(do_scheduled_work, std::min(first_look, first_report));
}

void end_profile_schedule() { profile::set_due_work(nullptr, profile::kNever); }

}  // namespace qk::mem

extern "C" void qk_mem_profile_tick(void) { qk::mem::profile::look_at_clock(); }

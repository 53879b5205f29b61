#include "profile/report/destination.h"

#include <linux/limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include "diag/log.h"
#include "profile/copies.h"
#include "profile/events.h"
#include "support/file_names.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/option_words.h"
#include "support/own_message.h"
#include "support/replaced_file.h"
#include "support/shared_variable.h"
#include "support/system.h"

namespace qk::mem::profile {
namespace {

constinit std::uint64_t reports = 0;
constinit bool has_complained = false;

void complain(std::string_view name, std::string_view why) {
  if (has_complained) return;
  has_complained = true;
  qk::Line line;
  line.put("qkmem: no report in '").put(name).put("': ").put(why).put('\n');
  qk::write_message(line.finish());
}

void complain(std::string_view name, int error) {
  char why[128];
  complain(name, qk_error_msg_r(error, why, sizeof why));
}

void write_to_log(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
    qk_mem_write_log("%.*s", static_cast<int>(length), text.data());
    text.remove_prefix(length);
  }
}

void write_to_descriptor(int descriptor, const char* name, std::string_view text) {
  const int error = qk::write_text(descriptor, text);
  if (error != 0) complain(name, error);
}

using FileName = std::array<char, PATH_MAX>;

/**
 * A later copy of the library would replace the file of the first one. It says ".copy2" before the
 * name's ending, which viewers and collectors go by. False if the name gets too long.
 */
bool distinguish_copy(FileName& name) {
  const std::uint32_t number = number_of_this_copy();
  if (number == 1 || !qk::is_file_to_replace(name.data())) return true;
  const std::string_view path = name.data();
  const std::size_t file = path.rfind('/') + 1;
  const std::size_t dot = path.rfind('.');
  const bool has_ending = dot != std::string_view::npos && dot > file;
  const std::size_t at = has_ending ? dot : path.size();
  qk::Line copy;
  const std::string_view mark = copy.put(".copy").number(number).finish();
  if (path.size() + mark.size() >= name.size()) return false;
  std::copy_backward(name.data() + at, name.data() + path.size() + 1,
                     name.data() + path.size() + 1 + mark.size());
  std::copy(mark.begin(), mark.end(), name.data() + at);
  return true;
}

/** The file that the report of a number goes to. False if its name is too long. */
bool name_file(const char* pattern, std::uint64_t number, FileName& name) {
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  const qk::FileNameFacts facts = {
      .start = static_cast<std::int64_t>(start_of_clock()) / kNanoseconds, .number = number};
  return qk::expand_file_name(pattern, facts, name).fits && distinguish_copy(name);
}

/** The file that was written last. A fork takes it over into another process. */
constinit qk::FileVersion last_file = 0;
constinit pid_t writer_of_last_file = 0;

void write_to_file(const char* pattern, std::string_view text) {
  FileName name = {};
  if (!name_file(pattern, reports, name)) return complain(pattern, ENAMETOOLONG);
  qk::FileVersion written = 0;
  const int error = qk::write_replaced_file(name.data(), text, &written);
  if (error != 0) complain(name.data(), error);
  if (written == 0) return;
  // In this order: a signal handler that comes in between must not take another process's file.
  qk::store(last_file, written);
  qk::publish(writer_of_last_file, getpid());
}

/** Whether all reports go to one file, which is replaced. */
bool have_one_file(const char* pattern, const FileName& name) {
  FileName next = {};
  return name_file(pattern, reports + 1, next) && std::string_view(name.data()) == next.data() &&
         qk::is_file_to_replace(name.data());
}

bool is_file(const char* report) {
  return !equal_ignoring_case(report, "STDERR") && !equal_ignoring_case(report, "STDOUT") &&
         !equal_ignoring_case(report, "LOG");
}

}  // namespace

void say_beside_reports(const Options& options, std::string_view line) {
  const bool is_for_people = options.format == Format::kText;
  const bool goes_to_log = equal_ignoring_case(options.report, "LOG");
  if (is_for_people && equal_ignoring_case(options.report, "STDOUT")) {
    write_to_descriptor(STDOUT_FILENO, options.report, line);
  } else if (is_for_people && goes_to_log && qk::acquire(Qk_mem_log) != nullptr) {
    write_to_log(line);
  } else if (is_for_people || !equal_ignoring_case(options.report, "STDERR")) {
    qk::write_message(line);
  }
}

bool goes_to_terminal(const char* report) {
  const qk::KeepErrno keep_errno;
  if (equal_ignoring_case(report, "STDERR")) return isatty(STDERR_FILENO) != 0;
  return equal_ignoring_case(report, "STDOUT") && isatty(STDOUT_FILENO) != 0;
}

bool withdraw(const Options& options) {
  const bool was_shown = options.every_seconds != 0 || qk::load(last_file) != 0;
  const bool is_for_collectors = options.format == Format::kOpenMetrics && is_file(options.report);
  if (!was_shown || !is_for_collectors) return false;
  FileName name = {};
  if (!name_file(options.report, reports, name) || !have_one_file(options.report, name)) {
    return false;
  }
  const bool is_own = qk::acquire(writer_of_last_file) == getpid();
  if (is_own) qk::remove_replaced_file(name.data(), qk::load(last_file));
  return true;
}

void deliver(const char* report, std::string_view text) {
  ++reports;
  if (equal_ignoring_case(report, "STDERR")) {
    write_to_descriptor(STDERR_FILENO, report, text);
  } else if (equal_ignoring_case(report, "STDOUT")) {
    write_to_descriptor(STDOUT_FILENO, report, text);
  } else if (equal_ignoring_case(report, "LOG")) {
    write_to_log(text);
  } else {
    write_to_file(report, text);
  }
}

}  // namespace qk::mem::profile

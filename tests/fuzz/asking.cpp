#include "tests/fuzz/asking.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "exports/exports.h"
#include "input/input.h"
#include "names/named_copy.h"
#include "output/file.h"
#include "views/views.h"

namespace {

using namespace qk::command;

constexpr const char* kInput = "input";
constexpr const char* kTail = "input.tail";
constexpr const char* kOutput = "output";
constexpr const char* kOutputTail = "output.tail";

/** Inputs name modules. Which files there are must make no difference. */
bool may_open(const char* name) { return std::strchr(name, '/') == nullptr; }

void require(bool holds, const char* what) {
  if (holds) return;
  dprintf(STDERR_FILENO, "%s\n", what);
  std::abort();
}

}  // namespace

// The linker redirects the command's calls here.
extern "C" {
int __real_open(const char* name, int flags, ...);

int __wrap_open(const char* name, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  if (may_open(name)) return __real_open(name, flags, mode);
  errno = EACCES;
  return -1;
}

/** Changes to a new folder and discards what goes to standard error. */
int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  static char folder[] = "/tmp/qkmem-fuzz-XXXXXX";
  require(mkdtemp(folder) != nullptr && chdir(folder) == 0, "no folder");
  std::atexit([] {
    for (const char* name : {kInput, kTail, kOutput, kOutputTail}) unlink(name);
    rmdir(folder);
  });
  // The command writes to it. The fuzzer's own lines still appear.
  stderr = std::fopen("/dev/null", "w");
  return 0;
}
}

namespace fuzz {
namespace {

constexpr Found (*kViews[])(const Query&) = {
    &summarize,  &check_input, &show_top,  &show_leaks,    &show_peak,    &show_churn,
    &show_lives, &show_sizes,  &show_tree, &show_timeline, &show_history, &show_difference};

/** Writes over the file, since a new one takes longer. */
void write(const char* name, std::string_view bytes) {
  const int file = __real_open(name, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  require(file >= 0 &&
              ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
              ftruncate(file, static_cast<off_t>(bytes.size())) == 0,
          "no file");
  close(file);
}

/** The next of so many possibilities. */
template <class Enum>
Enum next(unsigned& choice, unsigned count) {
  const auto chosen = static_cast<Enum>(choice % count);
  choice /= count;
  return chosen;
}

Style take_by(Query& query, unsigned choice) {
  query.by = next<By>(choice, 7);
  query.at = next<At>(choice, 3);
  return next<Style>(choice, 3);
}

void take_sort(Query& query, unsigned choice) {
  const auto sort = next<unsigned>(choice, 6);
  if (sort < 5) query.sort = static_cast<Sort>(sort);
  query.rows = next<std::size_t>(choice, 3);
  query.subject = next<bool>(choice, 2) ? "a.c:7" : "0x1000";
  if (next<bool>(choice, 2)) query.threads = {1};
}

void take_time(Query& query, unsigned choice) {
  const unsigned kind = next<unsigned>(choice, 8);
  const Moment moment = {choice + 1, UINT64_MAX};
  if (kind == 1) query.at_moment = moment;
  if (kind == 2) query.from = {moment.event, 0};
  if (kind == 3) query.to = moment;
  if (kind == 4) query.handles = {static_cast<int>(choice)};
  if (kind == 5) query.files = {"*.c"};
}

void ask_for(const Query& query, Style style, unsigned view) {
  if (view < std::size(kViews)) {
    const Found found = kViews[view](query);
    require(written(found.answer, style, query.width).ends_with('\n'), "an answer without an end");
    return;
  }
  const std::size_t format = view - std::size(kViews);
  if (format < export_formats().size()) {
    static_cast<void>(export_formats()[format].write(query));
  } else {
    static_cast<void>(write_named_copy(kInput, kOutput, true));
  }
}

}  // namespace

void ask(const Choice& choice, std::string_view input, std::string_view tail) {
  write(kInput, input);
  if (tail.empty()) {
    unlink(kTail);
  } else {
    write(kTail, tail);
  }
  Query query;
  query.input = kInput;
  query.other = kInput;
  const Style style = take_by(query, choice.by);
  take_sort(query, choice.sort);
  take_time(query, choice.time);
  try {
    ask_for(query, style, choice.view % (std::size(kViews) + export_formats().size() + 1));
  } catch (const InputError& error) {
    require(*error.what() != '\0', "an error without words");
  } catch (const UsageError& error) {
    require(*error.what() != '\0', "an error without words");
  }
}

}  // namespace fuzz

#include "run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>

#include "options.h"
#include "output/file.h"
#include "program/explanation.h"
#include "program/inspection.h"
#include "program/launch.h"
#include "program/variables.h"
#include "program/written_variables.h"
#include "views/views.h"

namespace qk::command {
namespace {

namespace fs = std::filesystem;

/** What a process of the program has written. */
struct Written {
  pid_t process = 0;
  std::string name;
};

/** The number in "app.4711.json"; 0 if the name has another form. */
pid_t process_in(const std::string& name, std::string_view ending) {
  if (!name.ends_with(ending)) return 0;
  const std::size_t end = name.size() - ending.size();
  const std::size_t dot = name.rfind('.', end - 1);
  if (end == 0 || dot == std::string::npos) return 0;
  pid_t process = 0;
  const auto [stop, error] = std::from_chars(name.data() + dot + 1, name.data() + end, process);
  return error == std::errc() && stop == name.data() + end ? process : 0;
}

/** What was written to a folder since, by the process that was run and by those that it has run. */
std::vector<Written> written_since(const std::string& folder, std::string_view ending,
                                   fs::file_time_type begin, pid_t process) {
  std::vector<Written> all;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    std::error_code gone;
    const std::string name = entry.path().filename().string();
    const pid_t writer = process_in(name, ending);
    if (writer == 0 || entry.last_write_time(gone) < begin || gone) continue;
    all.push_back({writer, folder == "." ? name : entry.path().string()});
  }
  std::sort(all.begin(), all.end(), [process](const Written& one, const Written& other) {
    const bool is_first = one.process == process;
    const bool is_other_first = other.process == process;
    return is_first != is_other_first ? is_first : one.process < other.process;
  });
  return all;
}

std::string how_it_ended(const Ended& ended) {
  if (!ended.by_signal()) return fmt::format("ended with {}", ended.exit_code());
  const char* const name = sigabbrev_np(ended.signal());
  // Those of real time have no names.
  if (name == nullptr) return fmt::format("was ended by signal {}", ended.signal());
  return fmt::format("was ended by SIG{} ({})", name, strsignal(ended.signal()));
}

/** One screen about what a process has written, and how to see more of it. */
void print_summary(const Written& written, Query query) {
  query.input = written.name;
  const Found found = summarize(query);
  fmt::print(stderr, "{}", command::written(found.answer, Style::kText, query.width));
  fmt::print(stderr, "\nqkmem: qkmem top {} shows all\n", as_shell_word(written.name));
}

void print_summaries(const std::vector<Written>& all) {
  constexpr std::size_t kMost = 4;
  Query query;
  suit_output(query, STDERR_FILENO);
  for (const Written& written : std::span(all).first(std::min(all.size(), kMost))) {
    try {
      print_summary(written, query);
    } catch (const InputError& error) {
      fmt::print(stderr, "qkmem: {}\n", error.what());
    }
  }
  if (all.size() <= kMost) return;
  fmt::print(stderr, "qkmem: written too, by other processes:\n");
  for (const Written& written : std::span(all).subspan(kMost)) {
    fmt::print(stderr, "  {}\n", written.name);
  }
}

/** Says what a program has done. Returns whether it has written anything. */
bool print_outcome(const std::string& program, const Ended& ended,
                   const std::vector<Written>& all) {
  const std::string name = fs::path(program).filename().string();
  if (all.empty() && !ended.by_signal()) {
    fmt::print(stderr, "qkmem: {} doesn't use qkmem; nothing was recorded\n", name);
    return false;
  }
  fmt::print(stderr, "qkmem: {} {}{}\n", name, how_it_ended(ended),
             all.empty() ? "; it has written nothing" : "");
  print_summaries(all);
  return true;
}

/** The time of the file system's clock, which can be a little behind the others. */
fs::file_time_type time_of_files(const std::string& folder) {
  std::error_code error;
  const fs::path mark = fs::path(folder) / fmt::format(".qkmem.{}", getpid());
  {
    NewFile file(mark.string(), true);
    file.finish();
  }
  const fs::file_time_type time = fs::last_write_time(mark, error);
  fs::remove(mark, error);
  return time;
}

void add_wishes(CLI::App& app, Wishes& wishes) {
  app.add_flag("--leaks", wishes.leaks,
               "What is never released; the usual unless others are given");
  app.add_flag("--peak", wishes.peak, "Also what held most when most was in use");
  app.add_flag("--check", wishes.check,
               "Writes past the end of blocks and after their release, and wrong releases");
  app.add_flag("--record", wishes.record, "Record each allocation and release");
  app.add_option("--stacks", wishes.stacks, "Tell callers apart, by so many calls")
      ->check(CLI::Range(1, 64));
  app.add_flag("--fail", wishes.fails, "End with 23 in place of 0 if there is anything to find");
  app.add_option("--profile", wishes.profile, "More words of QK_MEM_PROFILE");
  app.add_option("--checks", wishes.checks, "More words of QK_MEM_CHECK");
  app.add_option("--debug", wishes.debug, "Words of QK_MEM_DEBUG, which writes a log");
  app.add_option("--dump", wishes.dump, "Words of QK_MEM_DUMP");
  app.add_option("--options", wishes.options, "Words of QK_MEM_OPTIONS");
}

/** Unless anything else is wanted, leaks are. */
void settle(Wishes& wishes) {
  const bool wants_profile =
      wishes.leaks || wishes.peak || wishes.record || wishes.stacks || !wishes.profile.empty();
  wishes.leaks = wishes.leaks || !wants_profile;
}

constexpr std::array<std::pair<std::string_view, WrittenFor>, 3> kReaders = {
    {{"shell", WrittenFor::kShell},
     {"systemd", WrittenFor::kSystemd},
     {"docker", WrittenFor::kDocker}}};

}  // namespace

void add_run(CLI::App& app, RunRequest& request) {
  CLI::App* const run =
      app.add_subcommand("run", "Runs a program, and says what it has done with its memory");
  run->positionals_at_end();
  run->add_option("program", request.words, "The program and its arguments, behind --")->required();
  add_wishes(*run, request.wishes);
  run->add_option("-o,--output", request.folder, "The folder for what is written")
      ->check(CLI::ExistingDirectory);
}

void add_env(CLI::App& app, RunRequest& request) {
  CLI::App* const env =
      app.add_subcommand("env", "Prints the variables that a program is to be run with");
  add_wishes(*env, request.wishes);
  env->add_option("--for", request.written_for, "Who reads them: shell, systemd or docker")
      ->check(CLI::IsMember({"shell", "systemd", "docker"}));
}

void add_explain(CLI::App& app, RunRequest& request) {
  CLI::App* const explain =
      app.add_subcommand("explain", "Says in words what the text of a variable does");
  explain->add_option("text", request.text, "As \"DEBUG='not qk_ifree'\", or QK_MEM_PROFILE=PEAK")
      ->required();
  explain->add_flag("--json", request.wants_json, "As JSON");
}

void add_doctor(CLI::App& app, RunRequest& request) {
  CLI::App* const doctor = app.add_subcommand(
      "doctor", "Says whether the library is in a program, and what reports can name");
  doctor->add_option("program", request.program, "The program, which is not run")->required();
  doctor->add_flag("--json", request.wants_json, "As JSON");
}

int run_program(RunRequest& request) {
  const std::vector<std::string>& words = request.words;
  settle(request.wishes);
  const std::string& folder = request.folder;
  const std::string place = as_pattern(fs::absolute(folder).lexically_normal().string());
  const Places places = {place + "/%n.%p.json", place + "/%n.%p.qkm"};
  const auto settings = settings_for(request.wishes, places);
  const fs::file_time_type begin = time_of_files(folder);
  const Ended ended = run_program(words, settings);
  if (has_own_places(request.wishes)) end_as(ended);
  const std::string_view ending = request.wishes.record ? ".qkm" : ".json";
  try {
    const auto all = written_since(folder, ending, begin, ended.process);
    if (!print_outcome(words.front(), ended, all)) return static_cast<int>(LaunchFailure::kOwn);
  } catch (const std::exception& error) {
    // The program has ended by now, and that is what counts.
    fmt::print(stderr, "qkmem: {}\n", error.what());
  }
  end_as(ended);
}

int print_variables(RunRequest& request) {
  settle(request.wishes);
  const auto reader = std::find_if(kReaders.begin(), kReaders.end(), [&](const auto& one) {
    return one.first == request.written_for;
  });
  write_standard_output(written(settings_for(request.wishes, {}), reader->second));
  return 0;
}

namespace {

/** Sentences, which are not cut. */
void print_sentences(const RunRequest& request, const Answer& answer) {
  constexpr std::size_t kWhole = 1000;  // columns
  const Style style = request.wants_json ? Style::kJson : Style::kText;
  write_standard_output(written(answer, style, kWhole));
}

}  // namespace

int explain_words(const RunRequest& request) {
  const Explanation explanation = explain(request.text);
  print_sentences(request, explanation.answer);
  return explanation.has_mistake ? 1 : 0;
}

int inspect_program(const RunRequest& request) {
  const Inspection inspection = inspect(request.program);
  print_sentences(request, inspection.answer);
  return inspection.has_library ? 0 : 1;
}

}  // namespace qk::command

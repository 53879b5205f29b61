// The command qkmem: what a program has done with its memory.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <new>

#include "exports/exports.h"
#include "names/named_copy.h"
#include "options.h"
#include "output/file.h"
#include "output/words.h"
#include "page/page.h"
#include "program/launch.h"
#include "program/written_variables.h"
#include "qkmem/version.h"
#include "run.h"
#include "views/names.h"
#include "views/views.h"

namespace {

using namespace qk::command;

/** Beside 0. */
enum Exit : int { kFound = 1, kMistake = 2 };

struct Command {
  const char* name;
  const char* what;
  Found (*run)(const Query& query);
};

constexpr Command kCommands[] = {
    {"summary", "One screen: what is left, the peak, what churns, the level over time", &summarize},
    {"top", "Who has most", &show_top},
    {"leaks", "Who has blocks that were never released", &show_leaks},
    {"peak", "Who had most when most was in use", &show_peak},
    {"churn", "Who allocates and releases again soon", &show_churn},
    {"lives", "How long blocks live", &show_lives},
    {"sizes", "How large blocks are", &show_sizes},
    {"timeline", "The level over time", &show_timeline},
    {"tree", "Who has called what, by bytes", &show_tree},
    {"history", "All that happened at an address, or at a file:line", &show_history},
    {"diff", "What a second run has more or less than the first", &show_difference},
    {"check", "Whether the input is whole", &check_input},
};

constexpr const char* kSymbolize = "symbolize";

void add_input(CLI::App& subcommand, Request& request) {
  subcommand
      .add_option("input", request.query.input,
                  "A recording, a trace file or a profile's report as JSON, plain or compressed by "
                  "gzip or zstd; - for standard input")
      ->required();
}

void add_command(CLI::App& app, const Command& command, Request& request) {
  CLI::App* const subcommand = app.add_subcommand(command.name, command.what);
  if (command.run == &show_history) {
    subcommand->add_option("subject", request.query.subject, "An address, or a file:line")
        ->required();
  }
  add_input(*subcommand, request);
  if (command.run == &show_difference) {
    subcommand->add_option("later", request.query.other, "That of the second run")->required();
  }
  add_options(*subcommand, request);
}

void add_symbolize(CLI::App& app, Request& request) {
  CLI::App* const subcommand =
      app.add_subcommand(kSymbolize, "Copies a recording, and the names of functions into it");
  subcommand->add_option("input", request.query.input, "The recording; - for standard input")
      ->required();
  subcommand->add_option("-o,--output", request.output, "Write to this file")->required();
  subcommand->add_flag("-f,--force", request.may_overwrite, "Also if the file exists");
}

int symbolize(const Request& request) {
  const NamedCopy copy =
      write_named_copy(request.query.input, request.output, request.may_overwrite);
  Answer answer;
  answer.lines.push_back(fmt::format("{}: {} of {} named", request.output, count_text(copy.named),
                                     counted(copy.addresses, "call")));
  answer.remarks = copy.remarks;
  write_standard_output(written(answer, Style::kText, 0));
  return 0;
}

int run(const Command& command, Request& request) {
  settle(request);
  const Found found = command.run(request.query);
  const std::string text = written(found.answer, request.style(), request.query.width);
  if (request.output.empty()) {
    write_standard_output(text);
  } else {
    write_file(request.output, text, request.may_overwrite);
  }
  return found.is_found && request.fails_if_found ? kFound : 0;
}

constexpr const char* kExport = "export";

/** The name of a file as it can be pasted into a shell. */
std::string pasted(const std::string& name) {
  return as_shell_word(name.starts_with('-') ? "./" + name : name);
}

void add_export(CLI::App& app, Request& request) {
  CLI::App* const subcommand =
      app.add_subcommand(kExport, "Writes a file for pprof, heaptrack and other viewers");
  std::string names;
  for (const ExportFormat& format : export_formats()) {
    names.append(names.empty() ? "" : ", ").append(format.name);
  }
  subcommand->add_option("--to", request.format, "The format: " + names)->required();
  add_input(*subcommand, request);
  add_filters(*subcommand, request, "--until");
  add_moment(*subcommand, request,
             "The moment of a format that has only one; in pprof what counts as in use, in "
             "speedscope what is shown first: an event's number, a time, peak, end or ever");
  add_output(*subcommand, request);
}

/** The file that is asked for, or else a usual one; refused if it exists. "-" is standard output. */
std::string output_name(const Request& request, const std::string& usual) {
  std::string name = request.output.empty() ? usual : request.output;
  if (name != "-") refuse_existing(name, request.may_overwrite);
  return name;
}

/** Writes a file, and says how to look at it. */
void write_for_viewer(const Request& request, const std::string& name, std::string_view contents,
                      std::string_view viewer) {
  if (name == "-") {
    write_standard_output(contents);
    return;
  }
  write_file(name, contents, request.may_overwrite);
  fmt::print(stderr, "qkmem: {} {}\n", viewer, pasted(name));
}

int run_export(Request& request) {
  settle(request);
  const ExportFormat& format = export_format_named(request.format);
  const std::string name = output_name(request, default_name(format, request.query.input));
  const Export written = format.write(request.query);
  write_for_viewer(request, name, written.contents, format.viewer);
  for (const std::string& remark : written.remarks) fmt::print(stderr, "qkmem: {}\n", remark);
  return 0;
}

constexpr const char* kPage = "page";

void add_page(CLI::App& app, Request& request) {
  CLI::App* const subcommand = app.add_subcommand(
      kPage, "Writes a page to look at in a browser: the whole life of a program's memory");
  add_input(*subcommand, request);
  subcommand->add_option("later", request.query.other,
                         "That of a second run, whose difference to the first is shown");
  add_filters(*subcommand, request, "--to,--until");
  add_output(*subcommand, request);
}

int run_page(Request& request) {
  settle(request);
  const std::string& input =
      request.query.other.empty() ? request.query.input : request.query.other;
  const std::string name = output_name(request, std::string(stem_of(input)) + ".html");
  write_for_viewer(request, name, page_of(request.query), "xdg-open");
  return 0;
}

int run_chosen(const CLI::App& app, Request& request, RunRequest& run_request) {
  if (app.got_subcommand("run")) return run_program(run_request);
  if (app.got_subcommand("env")) return print_variables(run_request);
  if (app.got_subcommand("explain")) return explain_words(run_request);
  if (app.got_subcommand("doctor")) return inspect_program(run_request);
  if (app.got_subcommand(kSymbolize)) return symbolize(request);
  if (app.got_subcommand(kExport)) return run_export(request);
  if (app.got_subcommand(kPage)) return run_page(request);
  for (const Command& command : kCommands) {
    if (app.got_subcommand(command.name)) return run(command, request);
  }
  return kMistake;
}

int run_with(int argc, char** argv) {
  CLI::App app("Says what a program has done with its memory, from what qkmem wrote about it.");
  app.set_version_flag("--version", std::string("qkmem ") + QK_MEM_VERSION);
  app.require_subcommand(1);
  Request request;
  RunRequest run_request;
  add_run(app, run_request);
  add_env(app, run_request);
  add_explain(app, run_request);
  add_doctor(app, run_request);
  for (const Command& command : kCommands) add_command(app, command, request);
  add_export(app, request);
  add_page(app, request);
  add_symbolize(app, request);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked_for_help) {
    return app.exit(asked_for_help);
  }
  return run_chosen(app, request, run_request);
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  remove_unfinished_at_signals();
  // A program that is run can end with any code of its own but these.
  const bool runs = argc > 1 && std::string_view(argv[1]) == "run";
  try {
    return run_with(argc, argv);
  } catch (const NotStarted& not_started) {
    std::fprintf(stderr, "qkmem: %s\n", not_started.why.c_str());
    return static_cast<int>(not_started.failure);
  } catch (const std::bad_alloc&) {
    std::fputs("qkmem: no memory\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qkmem: %s\n", error.what());
  }
  return runs ? static_cast<int>(LaunchFailure::kOwn) : kMistake;
}

#ifndef QKMEM_TOOLS_RUN_H_
#define QKMEM_TOOLS_RUN_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "program/settings.h"

/** The subcommands about a program that uses the library, or may: run, env, explain and doctor. */
namespace qk::command {

/** What the user wants to run, and how. */
struct RunRequest {
  std::vector<std::string> words;  // the program's name, and its arguments
  Wishes wishes;
  std::string folder = ".";
  std::string written_for = "shell";
  std::string text;     // that is to be explained
  std::string program;  // that is to be looked at
  bool wants_json = false;
};

void add_run(CLI::App& app, RunRequest& request);
void add_env(CLI::App& app, RunRequest& request);
void add_explain(CLI::App& app, RunRequest& request);
void add_doctor(CLI::App& app, RunRequest& request);

/** Runs a program, and says what it has done with its memory. Returns the code to end with, if any. */
int run_program(RunRequest& request);

/** Prints the variables. */
int print_variables(RunRequest& request);

/** Says what an option string does. */
int explain_words(const RunRequest& request);

/** Says whether the library is in a program, and what reports can name. 1 if it isn't. */
int inspect_program(const RunRequest& request);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_RUN_H_

#ifndef QKMEM_TOOLS_OPTIONS_H_
#define QKMEM_TOOLS_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <string>

#include "output/sheet.h"
#include "views/query.h"

/** The options of the command. */
namespace qk::command {

/** What the user has asked for, in his words. */
struct Request {
  Query query;
  std::string by;
  std::string sort;
  std::string at;
  std::string from;
  std::string to;
  std::string output;
  std::string format;  // of an export
  bool may_overwrite = false;
  bool fails_if_found = false;
  bool wants_json = false;
  bool wants_csv = false;

  [[nodiscard]] Style style() const {
    if (wants_json) return Style::kJson;
    return wants_csv ? Style::kCsv : Style::kText;
  }
};

/** Adds the options that say which blocks count. `names_of_to` are those of the end of a time. */
void add_filters(CLI::App& app, Request& request, const char* names_of_to);

/** Adds --at, with what it means. */
void add_moment(CLI::App& app, Request& request, const char* meaning);

/** Adds the options that say where the output goes. */
void add_output(CLI::App& app, Request& request);

/** Adds these, and those of answers: how they are divided, ordered and written. */
void add_options(CLI::App& app, Request& request);

/** Takes what the options mean to the query, and what standard output is like. Throws UsageError. */
void settle(Request& request);

/** Takes what a file is like that the answer goes to: its columns, and the locale's characters. */
void suit_output(Query& query, int output);

/** An event's number, or a time such as "2.5s" or "300ms". Throws UsageError, which names the option. */
[[nodiscard]] Moment moment_in(const std::string& option, const std::string& text,
                               std::uint64_t other);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OPTIONS_H_

#include "options.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace qk::command {
namespace {

template <class Meaning>
struct Word {
  std::string_view text;
  Meaning meaning;
};

constexpr std::array<Word<By>, 7> kWays = {{{"site", By::kSite},
                                            {"file", By::kFile},
                                            {"function", By::kFunction},
                                            {"handle", By::kHandle},
                                            {"tag", By::kTag},
                                            {"thread", By::kThread},
                                            {"stack", By::kStack}}};

constexpr std::array<Word<Sort>, 5> kOrders = {{{"bytes", Sort::kBytes},
                                                {"blocks", Sort::kBlocks},
                                                {"made", Sort::kMade},
                                                {"peak", Sort::kPeak},
                                                {"short", Sort::kShort}}};

/** "site, file or handle". */
template <class Words>
std::string list_of(const Words& words) {
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i != 0) list += i + 1 == words.size() ? " or " : ", ";
    list += words[i].text;
  }
  return list;
}

template <class Words>
auto meaning_of(std::string_view option, std::string_view text, const Words& words) {
  for (const auto& word : words) {
    if (word.text == text) return word.meaning;
  }
  throw UsageError(fmt::format("{}: '{}' is not {}", option, text, list_of(words)));
}

/** Columns of the terminal; where there is none, what COLUMNS says. */
std::size_t width_of(int output) {
  constexpr std::size_t kUnlessKnown = 100;
  winsize size{};
  if (isatty(output) == 1 && ioctl(output, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
    return size.ws_col;
  }
  const char* const columns = std::getenv("COLUMNS");
  const std::size_t width = columns == nullptr ? 0 : std::strtoul(columns, nullptr, 10);
  return width == 0 ? kUnlessKnown : width;
}

}  // namespace

void add_filters(CLI::App& app, Request& request, const char* names_of_to) {
  Query& query = request.query;
  app.add_option("--tag", query.tags, "Only blocks on handles of this tag")
      ->allow_extra_args(false);
  app.add_option("--handle", query.handles, "Only blocks of this handle")->allow_extra_args(false);
  app.add_option("--file", query.files, "Only blocks of files that match, as in 'net*.c'")
      ->allow_extra_args(false);
  app.add_option("--site", query.sites, "Only blocks of lines that match, as in 'net.c:12'")
      ->allow_extra_args(false);
  app.add_option("--thread", query.threads, "Only blocks that this thread has made, from 1")
      ->allow_extra_args(false);
  app.add_option("--from", request.from,
                 "Only blocks made at this event or time, or later: 1200, 2.5s, 300ms");
  app.add_option(names_of_to, request.to, "Only blocks made at this event or time, or before");
}

void add_moment(CLI::App& app, Request& request, const char* meaning) {
  app.add_option("--at", request.at, meaning);
}

void add_output(CLI::App& app, Request& request) {
  app.add_option("-o,--output", request.output, "Write to this file");
  app.add_flag("-f,--force", request.may_overwrite, "Also if the file exists");
}

void add_options(CLI::App& app, Request& request) {
  add_filters(app, request, "--to,--until");
  add_moment(app, request,
             "The moment: an event's number, a time, peak, end, or ever for all that was made");
  app.add_option("--by", request.by, "What a row stands for: " + list_of(kWays));
  app.add_option("--sort", request.sort, "Order of rows: " + list_of(kOrders));
  app.add_option("-n", request.query.rows, "How many rows; 0 for all")->capture_default_str();
  app.add_flag("--json", request.wants_json, "As JSON");
  app.add_flag("--csv", request.wants_csv, "As comma-separated values")->excludes("--json");
  add_output(app, request);
  app.add_flag("--fail", request.fails_if_found, "End with 1 if there is anything to find");
}

void settle(Request& request) {
  Query& query = request.query;
  if (!request.by.empty()) query.by = meaning_of("--by", request.by, kWays);
  if (!request.sort.empty()) query.sort = meaning_of("--sort", request.sort, kOrders);
  if (!request.from.empty()) query.from = moment_in("--from", request.from, 0);
  if (!request.to.empty()) query.to = moment_in("--to", request.to, UINT64_MAX);
  if (request.at == "peak") {
    query.at = At::kPeak;
  } else if (request.at == "ever") {
    query.at = At::kEver;
  } else if (!request.at.empty() && request.at != "end") {
    query.at_moment = moment_in("--at", request.at, UINT64_MAX);
  }
  suit_output(query, STDOUT_FILENO);
}

void suit_output(Query& query, int output) {
  query.is_ascii = std::string_view(nl_langinfo(CODESET)) != "UTF-8";
  query.width = width_of(output);
}

Moment moment_in(const std::string& option, const std::string& text, std::uint64_t other) {
  const char* const end = text.data() + text.size();
  std::uint64_t event = 0;
  if (const auto [stop, error] = std::from_chars(text.data(), end, event);
      error == std::errc() && stop == end) {
    return {event, other};
  }
  double count = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  constexpr double kMost = 1e9;  // seconds
  for (const auto& [unit, seconds] :
       {std::pair{"s", 1.0}, {"ms", 1e-3}, {"us", 1e-6}, {"ns", 1e-9}}) {
    if (error != std::errc() || std::string_view(stop, end) != unit) continue;
    if (count < 0 || count * seconds > kMost) break;
    return {other, static_cast<std::uint64_t>(count * seconds * 1e9)};
  }
  throw UsageError(
      fmt::format("{}: '{}' is no event's number and no time, such as 2.5s", option, text));
}

}  // namespace qk::command

#include "page/page.h"

#include <fmt/format.h>

#include <span>
#include <utility>
#include <vector>

#include "output/html.h"
#include "page/packing.h"
#include "page/page_data.h"
#include "page/page_run.h"
#include "page/template.h"
#include "qkmem/version.h"
#include "views/names.h"
#include "views/sheets.h"
#include "views/views.h"

namespace qk::command {
namespace {

/** A place in the template and what comes there. */
using Filling = std::pair<std::string_view, std::string>;

/** What comes to a place is not looked through for others. */
std::string filled(std::string_view page, std::span<const Filling> fillings) {
  std::string text;
  for (const auto& [place, filling] : fillings) {
    const std::size_t at = page.find(place);
    text.append(page.substr(0, at)).append(filling);
    page.remove_prefix(at + place.size());
  }
  return text.append(page);
}

std::string paragraphs(std::span<const std::string> texts) {
  std::string html;
  for (const std::string& text : texts) {
    if (!text.empty()) html += "<p>" + as_html(text) + "</p>\n";
  }
  return html;
}

std::string tables_of(const std::vector<Sheet>& sheets) {
  std::string html;
  for (const Sheet& sheet : sheets) html += as_html(sheet);
  return html;
}

/** "./mailroom leaks, process 4711". */
std::string origin_of(const PageRun& run) {
  const Program& program = run.reading.ledger.program();
  if (program.process == 0) return program.command;
  const std::string process = fmt::format("process {}", program.process);
  return program.command.empty() ? process : program.command + ", " + process;
}

std::vector<std::string> origins_of(std::span<const PageRun> runs) {
  std::vector<std::string> origins;
  for (const PageRun& run : runs) origins.push_back(origin_of(run));
  return origins;
}

std::string levels_elements(std::span<const PageRun> runs) {
  std::string html;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    html += fmt::format("<script type=\"text/plain\" id=\"levels-{}\">{}</script>\n", i,
                        packed_levels_of(runs[i]));
  }
  return html;
}

/** What the page says without its script. */
struct Words {
  std::string heading;
  std::string verdict;
  std::vector<std::string> lines;
  std::vector<Sheet> sheets;
  std::vector<std::string> remarks;
};

Words words_of_run(const Query& query, const Reading& reading) {
  const Answer answer = summary_of(query, reading).answer;
  const std::vector<std::string>& lines = answer.lines;
  Words words = {
      lines[0], lines[1], {lines.begin() + 2, lines.end()}, answer.sheets, answer.remarks};
  Sheet sites = sheet_of_top(query, reading.ledger);
  sites.title = "who has most";
  words.sheets.push_back(std::move(sites));
  return words;
}

Words words_of_change(const Query& query, const Reading& before, const Reading& after) {
  const Answer answer = difference_of(query, before, after).answer;
  const std::vector<std::string>& lines = answer.lines;
  return {lines[0] + " -> " + lines[1], lines[2], {}, answer.sheets, answer.remarks};
}

}  // namespace

std::string page_of(const Query& asked) {
  Query query = asked;
  query.width = 80;
  query.is_ascii = false;
  std::vector<PageRun> runs;
  runs.push_back(read_page_run(query));
  if (!query.other.empty()) {
    Query later = query;
    later.input = query.other;
    runs.push_back(read_page_run(later));
  }
  const Words words = runs.size() == 1 ? words_of_run(query, runs[0].reading)
                                       : words_of_change(query, runs[0].reading, runs[1].reading);
  const std::string title(base_of(query.other.empty() ? query.input : query.other));
  const std::vector<Filling> fillings = {
      {"<!--title-->", as_html(title)},
      {"<!--heading-->", as_html(words.heading)},
      {"<!--verdict-->", as_html(words.verdict)},
      {"<!--about-->", paragraphs(origins_of(runs)) + paragraphs(words.remarks)},
      {"<!--tables-->", paragraphs(words.lines) + tables_of(words.sheets)},
      {"<!--footer-->", "Made by qkmem " QK_MEM_VERSION "."},
      {"<!--facts-->", packed(facts_of(runs))},
      {"<!--levels-->", levels_elements(runs)},
  };
  return filled(page_template(), fillings);
}

}  // namespace qk::command

#include "output/sheet.h"

#include <algorithm>

#include "formats/figures.h"
#include "formats/json.h"
#include "output/words.h"
#include "support/page_buffer.h"
#include "support/utf8.h"

namespace qk::command {
namespace {

using mem::JsonWriter;

std::int64_t difference_of(const Change& change) {
  return static_cast<std::int64_t>(change.after - change.before);
}

std::string figure(std::uint64_t number, Unit unit) {
  if (unit == Unit::kBytes) return size_text(number);
  if (unit == Unit::kDuration) return duration_text(number);
  return count_text(number);
}

/** Characters of UTF-8. All that a table shows is one place wide. */
std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

/** Bytes that a terminal would act on become question marks. */
std::string harmless(std::string_view text) {
  std::string safe;
  qk::put_as_utf8(text, [&safe](std::string_view piece) {
    for (const char c : piece) safe += static_cast<unsigned char>(c) < ' ' || c == '\x7F' ? '?' : c;
  });
  return safe;
}

/** Texts are not made narrower than this. */
constexpr std::size_t kLeastWidth = 12;

/** The last characters of a text that is too wide, which tell more than the first. Indents stay. */
std::string ended(std::string text, std::size_t width) {
  const std::string indent(std::min(text.find_first_not_of(' '), text.size()), ' ');
  text.erase(0, indent.size());
  width -= std::min(width, indent.size());
  std::size_t wide = width_of(text);
  width = std::max(width, kLeastWidth);
  if (wide <= width) return indent + text;
  std::size_t at = 0;
  while (wide > width - 2 || (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) --wide;
    ++at;
  }
  return indent + ".." + text.substr(at);
}

/** The first characters of a text that is too wide. */
std::string begun(const std::string& text, std::size_t width) {
  if (width_of(text) <= width) return text;
  std::size_t end = 0;
  for (std::size_t wide = 0; end < text.size(); ++end) {
    if ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) continue;
    if (wide++ + 2 == width) break;
  }
  return text.substr(0, end) + "..";
}

/** A text that is no wider than there is room, as far as that makes sense. */
std::string fitted(const std::string& text, Unit unit, std::size_t width) {
  width = std::max(width, kLeastWidth);
  return unit == Unit::kCallers ? begun(text, width) : ended(text, width);
}

/** A table with aligned columns. Texts of the last column are cut where the terminal ends. */
std::string table_of(const Sheet& sheet, std::size_t width) {
  std::vector<std::vector<std::string>> rows(1);
  for (const Column& column : sheet.columns) rows[0].emplace_back(column.title);
  for (const auto& cells : sheet.rows) {
    auto& row = rows.emplace_back();
    for (std::size_t i = 0; i < cells.size(); ++i) {
      row.push_back(harmless(cell_text(cells[i], sheet.columns[i].unit)));
    }
  }
  std::vector<std::size_t> widths(sheet.columns.size());
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (sheet.columns[i].title.empty()) continue;
      const bool is_last = i + 1 == row.size();
      const Unit unit = sheet.columns[i].unit;
      const bool is_left = is_text(unit);
      const std::string cell =
          is_last && is_left && width > used + 2 ? fitted(row[i], unit, width - used - 2) : row[i];
      const std::size_t gap = widths[i] - std::min(widths[i], width_of(cell));
      text.append("  ");
      if (!is_left) text.append(gap, ' ');
      text += cell;
      if (is_left && !is_last) text.append(gap, ' ');
      used += 2 + widths[i];
    }
    text += '\n';
  }
  return text;
}

std::string text_of(const Answer& answer, std::size_t width) {
  std::string text;
  for (const std::string& line : answer.lines) text += harmless(line) + '\n';
  for (const Sheet& sheet : answer.sheets) {
    if (sheet.rows.empty() && sheet.hides_if_empty) continue;
    if (!text.empty()) text += '\n';
    if (!sheet.title.empty()) text += sheet.title + '\n';
    if (sheet.rows.empty()) {
      text += "  none\n";
      continue;
    }
    text += table_of(sheet, width);
    if (sheet.left_out != 0) {
      text += "  " + figure(sheet.left_out, Unit::kCount) + " more: -n 0 shows all\n";
    }
  }
  if (!answer.remarks.empty()) text += '\n';
  for (const std::string& remark : answer.remarks) text += harmless(remark) + '\n';
  return text;
}

std::string quoted(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

std::string bare(const Cell& cell) {
  if (const auto* const text = std::get_if<std::string>(&cell)) return quoted(*text);
  if (const auto* const branch = std::get_if<Branch>(&cell)) return quoted(branch->text);
  if (const auto* const number = std::get_if<std::uint64_t>(&cell)) return std::to_string(*number);
  if (const auto* const change = std::get_if<Change>(&cell)) {
    return std::to_string(difference_of(*change));
  }
  return "";
}

/** A line of CSV, of what `text_of` gives for each column that is no share. */
template <class TextOf>
void put_csv_line(std::string& text, const Sheet& sheet, TextOf text_of) {
  std::string_view separator;
  for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
    if (sheet.columns[i].unit == Unit::kShare) continue;
    text.append(separator).append(text_of(i));
    separator = ",";
  }
  text += '\n';
}

/** The sheets, each with a line of keys, and an empty line between two. */
std::string csv_of(const Answer& answer) {
  std::string text;
  for (const Sheet& sheet : answer.sheets) {
    if (!text.empty()) text += '\n';
    put_csv_line(text, sheet, [&](std::size_t i) { return sheet.columns[i].key; });
    for (const auto& row : sheet.rows) {
      put_csv_line(text, sheet, [&](std::size_t i) { return bare(row[i]); });
    }
  }
  return text;
}

void put_cell(JsonWriter& json, const Cell& cell) {
  if (const auto* const text = std::get_if<std::string>(&cell)) {
    json.text(*text);
  } else if (const auto* const branch = std::get_if<Branch>(&cell)) {
    json.text(branch->text);
  } else if (const auto* const number = std::get_if<std::uint64_t>(&cell)) {
    json.number(*number);
  } else if (const auto* const truth = std::get_if<bool>(&cell)) {
    json.boolean(*truth);
  } else if (const auto* const change = std::get_if<Change>(&cell)) {
    json.signed_number(difference_of(*change));
  } else {
    json.null();
  }
}

std::string json_of(const Answer& answer) {
  qk::PageBuffer text;
  {
    JsonWriter json(text);
    json.begin_object().key("command").text(answer.command);
    for (const Fact& fact : answer.facts) put_cell(json.start_line().key(fact.key), fact.value);
    for (const Sheet& sheet : answer.sheets) {
      json.start_line().key(sheet.key).begin_array();
      for (const auto& row : sheet.rows) {
        json.start_line().begin_object();
        for (std::size_t i = 0; i < row.size(); ++i) {
          if (sheet.columns[i].unit != Unit::kShare) {
            put_cell(json.key(sheet.columns[i].key), row[i]);
          }
        }
        json.end_object();
      }
      json.end_array();
    }
    json.end_object();
    if (!json.is_complete()) throw std::bad_alloc();
  }
  return std::string(text.text()) + '\n';
}

}  // namespace

std::string cell_text(const Cell& cell, Unit unit) {
  if (const auto* const text = std::get_if<std::string>(&cell)) return *text;
  if (const auto* const number = std::get_if<std::uint64_t>(&cell)) return figure(*number, unit);
  if (const auto* const share = std::get_if<Share>(&cell)) {
    return std::string(mem::percent_figure(share->part, share->whole).text());
  }
  if (const auto* const change = std::get_if<Change>(&cell)) {
    const bool is_more = change->after >= change->before;
    return (is_more ? "+" : "-") +
           figure(is_more ? change->after - change->before : change->before - change->after, unit);
  }
  if (const auto* const branch = std::get_if<Branch>(&cell)) return branch->lead + branch->text;
  return "-";
}

std::string written(const Answer& answer, Style style, std::size_t width) {
  switch (style) {
    case Style::kCsv:
      return csv_of(answer);
    case Style::kJson:
      return json_of(answer);
    case Style::kText:
      break;
  }
  return text_of(answer, width);
}

}  // namespace qk::command

#include "output/html.h"

#include "support/utf8.h"

namespace qk::command {
namespace {

std::string_view escaped(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

/** Pages have no other control characters. */
bool is_control(char c) {
  return (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') || c == '\x7F';
}

/** A row of the cells that people see. Texts begin at the left. */
template <class TextOf>
std::string table_row(const Sheet& sheet, std::string_view tag, TextOf text_of) {
  std::string row = "<tr>";
  for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
    if (sheet.columns[i].title.empty()) continue;
    row.append("<").append(tag).append(is_text(sheet.columns[i].unit) ? " class=\"text\">" : ">");
    row.append(as_html(text_of(i))).append("</").append(tag).append(">");
  }
  return row + "</tr>\n";
}

}  // namespace

std::string as_html(std::string_view text) {
  std::string html;
  qk::put_as_utf8(text, [&html](std::string_view piece) {
    for (const char c : piece) {
      const std::string_view other = escaped(c);
      if (other.empty()) {
        html += is_control(c) ? '?' : c;
      } else {
        html += other;
      }
    }
  });
  return html;
}

std::string as_html(const Sheet& sheet) {
  if (sheet.rows.empty() && sheet.hides_if_empty) return {};
  std::string html = sheet.title.empty() ? "" : "<h2>" + as_html(sheet.title) + "</h2>\n";
  if (sheet.rows.empty()) return html + "<p>none</p>\n";
  html += "<table>\n<thead>";
  html += table_row(sheet, "th", [&](std::size_t i) { return sheet.columns[i].title; });
  html += "</thead>\n<tbody>\n";
  for (const auto& row : sheet.rows) {
    html += table_row(sheet, "td",
                      [&](std::size_t i) { return cell_text(row[i], sheet.columns[i].unit); });
  }
  return html + "</tbody>\n</table>\n";
}

}  // namespace qk::command

#include "formats/json.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "support/cursor.h"
#include "support/utf8.h"

namespace qk::mem {
namespace {

bool needs_escape(char c) { return c == '"' || c == '\\' || static_cast<unsigned char>(c) < ' '; }

/** The letter after the backslash for a character that has one, otherwise 0. */
char letter_of(char c) {
  switch (c) {
    case '"':
    case '\\':
      return c;
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

void put_escape(qk::PageWriter& out, char c) {
  char text[6 + qk::Cursor::kOverrun];
  qk::Cursor cursor(text);
  cursor.put('\\');
  if (const char letter = letter_of(c)) {
    cursor.put(letter);
  } else {
    cursor.put('u').hex(static_cast<unsigned char>(c), 4);
  }
  out.put(cursor.text());
}

}  // namespace

void JsonWriter::put_line_break() noexcept {
  if (std::exchange(starts_line_, false)) out_.put('\n');
}

/** What comes before a key, or before a value that has none. */
void JsonWriter::separate() noexcept {
  if (needs_comma_) out_.put(',');
  put_line_break();
  needs_comma_ = true;
}

JsonWriter& JsonWriter::begin(char bracket) noexcept {
  separate();
  out_.put(bracket);
  needs_comma_ = false;
  return *this;
}

JsonWriter& JsonWriter::end(char bracket) noexcept {
  put_line_break();
  out_.put(bracket);
  needs_comma_ = true;
  return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) noexcept {
  separate();
  put_quoted(name);
  out_.put(':');
  needs_comma_ = false;  // of the value
  return *this;
}

JsonWriter& JsonWriter::text(std::string_view text) noexcept {
  separate();
  put_quoted(text);
  return *this;
}

JsonWriter& JsonWriter::number(std::uint64_t value) noexcept {
  separate();
  out_.number(value);
  return *this;
}

JsonWriter& JsonWriter::signed_number(std::int64_t value) noexcept {
  separate();
  out_.signed_number(value);
  return *this;
}

JsonWriter& JsonWriter::decimal(std::int64_t value, int digits) noexcept {
  separate();
  if (value < 0) out_.put('-');
  const auto bits = static_cast<std::uint64_t>(value);
  char text[qk::Cursor::kLongestNumber + qk::Cursor::kOverrun];
  const std::string_view all = qk::Cursor(text).number(value < 0 ? 0 - bits : bits).text();
  const auto decimals = static_cast<std::size_t>(digits);
  const std::size_t whole = all.size() > decimals ? all.size() - decimals : 0;
  out_.put(whole == 0 ? "0" : all.substr(0, whole));
  if (decimals == 0) return *this;
  out_.put('.');
  for (std::size_t i = all.size(); i < decimals; ++i) out_.put('0');
  out_.put(all.substr(whole));
  return *this;
}

JsonWriter& JsonWriter::literal(std::string_view text) noexcept {
  separate();
  out_.put(text);
  return *this;
}

void JsonWriter::put_quoted(std::string_view text) noexcept {
  out_.put('"');
  qk::put_as_utf8(text, [this](std::string_view piece) { put_escaped(piece); });
  out_.put('"');
}

void JsonWriter::put_escaped(std::string_view utf8) noexcept {
  while (!utf8.empty()) {
    const auto found = std::find_if(utf8.begin(), utf8.end(), needs_escape);
    const auto plain = static_cast<std::size_t>(found - utf8.begin());
    out_.put(utf8.substr(0, plain));
    if (plain == utf8.size()) return;
    put_escape(out_, utf8[plain]);
    utf8.remove_prefix(plain + 1);
  }
}

}  // namespace qk::mem

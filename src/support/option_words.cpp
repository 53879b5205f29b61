#include "support/option_words.h"

#include <algorithm>
#include <cstring>

#include "support/text.h"

namespace qk {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

bool is_separator(char c) { return is_blank(c) || c == ','; }

}  // namespace

bool equal_ignoring_case(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char l, char r) { return lower(l) == lower(r); });
}

std::optional<OptionWord> OptionScanner::next_word() {
  while (is_separator(*next_)) ++next_;
  if (*next_ == '\0') return std::nullopt;
  const char* begin = next_;
  while (*next_ != '\0' && *next_ != '=' && !is_separator(*next_)) ++next_;
  OptionWord word{std::string_view(begin, static_cast<std::size_t>(next_ - begin)), *next_ == '=',
                  false, nullptr};
  if (word.has_equals) {
    ++next_;
    read_value(word);
  }
  return word;
}

void OptionScanner::read_value(OptionWord& word) {
  const char quote = *next_;
  const bool quoted = quote == '\'' || quote == '"';
  if (quoted) ++next_;
  char* const begin = next_;
  char* const end = quoted ? std::strchr(begin, quote) : end_of_plain_value();
  word.quote_open = end == nullptr;
  if (word.quote_open) return;
  next_ = *end == '\0' ? end : end + 1;
  *end = '\0';
  if (end != begin) word.value = begin;
}

char* OptionScanner::end_of_plain_value() const {
  char* end = next_;
  while (*end != '\0' && !is_blank(*end)) ++end;
  return end;
}

}  // namespace qk

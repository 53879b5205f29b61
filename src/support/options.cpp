#include "support/options.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "support/option_words.h"

namespace {

using Table = std::span<qk_option_keyword>;

/** The first word that doesn't match the table. The rest of the string is not read. */
struct Mismatch {
  std::int32_t code;
  std::string_view keyword;
};

std::string_view keyword_of(const qk_option_keyword& entry) {
  return {entry.keyword, strnlen(entry.keyword, sizeof entry.keyword)};
}

bool abbreviates(std::string_view word, const qk_option_keyword& entry) {
  return entry.abbrev != 0 && word.size() >= entry.abbrev &&
         qk::equal_ignoring_case(word, keyword_of(entry).substr(0, word.size()));
}

/** Returns null if no entry matches. */
qk_option_keyword* find_entry(Table table, std::string_view word) {
  if (word.empty()) return nullptr;
  for (qk_option_keyword& entry : table) {
    if (qk::equal_ignoring_case(word, keyword_of(entry))) return &entry;
  }
  for (qk_option_keyword& entry : table) {
    if (abbreviates(word, entry)) return &entry;
  }
  return nullptr;
}

/** Returns the error code of a word whose keyword is that of `entry`; 0 if there is no error. */
std::int32_t fault_of(const qk::OptionWord& word, const qk_option_keyword& entry) {
  if (entry.value_kind == qk::kNoValue && word.has_equals) return qk::kValueNotAllowed;
  if (word.quote_open) return qk::kQuoteNotClosed;
  if (entry.value_kind == qk::kRequiredValue && word.value == nullptr) return qk::kValueMissing;
  return 0;
}

std::optional<Mismatch> apply(const qk::OptionWord& word, Table table) {
  qk_option_keyword* const entry = find_entry(table, word.keyword);
  if (entry == nullptr) return Mismatch{qk::kUnknownKeyword, word.keyword};
  if (const std::int32_t fault = fault_of(word, *entry); fault != 0) {
    return Mismatch{fault, word.keyword};
  }
  entry->found = 1;
  entry->value = word.value;
  return std::nullopt;
}

void describe(const Mismatch& mismatch, qk_option_error& error) {
  const std::string_view shown = mismatch.keyword.empty() ? "=" : mismatch.keyword;
  const std::size_t length = shown.copy(error.text, sizeof error.text - 1);
  error.text[length] = '\0';
  error.code = mismatch.code;
}

int process(char* options, Table table, qk_option_error* error) {
  for (qk_option_keyword& entry : table) {
    entry.found = 0;
    entry.value = nullptr;
  }
  if (options == nullptr) return 0;
  qk::OptionScanner scanner(options);
  while (const std::optional<qk::OptionWord> word = scanner.next_word()) {
    const std::optional<Mismatch> mismatch = apply(*word, table);
    if (!mismatch) continue;
    if (error != nullptr) describe(*mismatch, *error);
    return -1;
  }
  const auto found = std::count_if(table.begin(), table.end(),
                                   [](const qk_option_keyword& entry) { return entry.found != 0; });
  return static_cast<int>(found);
}

}  // namespace

extern "C" {

int qk_process_options(char* options, qk_option_keyword* table, int count, qk_option_error* error) {
  if (table == nullptr || count < 0) count = 0;
  return process(options, Table(table, static_cast<std::size_t>(count)), error);
}

int qk_check_options(char* options, qk_option_keyword* table, int count, qk_option_error* error,
                     int /*mode*/) {
  return qk_process_options(options, table, count, error);
}

}  // extern "C"

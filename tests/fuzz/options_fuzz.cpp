// The option processor on its own: the first line is the table, the second the string.
#include <algorithm>
#include <cstring>
#include <vector>

#include "support/options.h"
#include "tests/fuzz/fuzzing.h"

namespace {

/** A letter for the kind of value, a digit for the abbreviation, and the keyword itself. */
qk_option_keyword entry_of(const std::string& word) {
  qk_option_keyword entry = {};
  entry.value_kind = word.empty() ? 0 : static_cast<std::uint8_t>(word[0] % 3);
  entry.abbrev = word.size() < 2 ? 0 : static_cast<std::uint8_t>(word[1] % 5);
  const std::size_t length = word.size() < 2 ? 0 : std::min(word.size() - 2, sizeof entry.keyword);
  if (length > 0) std::memcpy(entry.keyword, word.data() + 2, length);
  return entry;
}

std::vector<qk_option_keyword> table_of(const std::string& line) {
  std::vector<qk_option_keyword> table;
  std::size_t begin = 0;
  while (begin < line.size() && table.size() < 20) {
    const std::size_t end = std::min(line.find(' ', begin), line.size());
    table.push_back(entry_of(line.substr(begin, end - begin)));
    begin = end + 1;
  }
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Lines lines(data, size);
  std::vector<qk_option_keyword> table = table_of(lines.next());
  const std::string options = lines.next();
  fuzz::ExactText text(options);
  qk_option_error error = {};
  const int found =
      qk_process_options(text.begin(), table.data(), static_cast<int>(table.size()), &error);
  if (found < 0) {
    fuzz::require(error.code >= qk::kUnknownKeyword && error.code <= qk::kQuoteNotClosed, "code");
    fuzz::require(std::strlen(error.text) < sizeof error.text, "the word is not terminated");
    return 0;
  }
  int counted = 0;
  for (const qk_option_keyword& entry : table) {
    counted += entry.found;
    if (entry.value == nullptr) continue;
    const auto offset = static_cast<std::size_t>(entry.value - text.begin());
    fuzz::require(entry.found == 1 && offset <= options.size(), "a value is outside the text");
    const std::string value = entry.value;
    fuzz::require(!value.empty(), "an empty value is set");
    fuzz::require(options.compare(offset, value.size(), value) == 0, "a wrong value");
    fuzz::require(entry.value_kind != qk::kNoValue, "a value where none is allowed");
  }
  fuzz::require(counted == found, "a wrong number of keywords");
  return 0;
}

#ifndef SUPPORT_OPTION_WORDS_H_
#define SUPPORT_OPTION_WORDS_H_

#include <optional>
#include <string_view>

namespace qk {

/** A keyword of an option string and what follows its equals sign, as in the string. */
struct OptionWord {
  std::string_view keyword;
  bool has_equals;
  bool quote_open;
  char* value;  // null when there is none
};

/**
 * Splits an option string into words, see support/options.h. Terminates each value in place when it
 * reaches it.
 */
class OptionScanner {
 public:
  explicit OptionScanner(char* options) : next_(options) {}

  [[nodiscard]] std::optional<OptionWord> next_word();

 private:
  void read_value(OptionWord& word);
  [[nodiscard]] char* end_of_plain_value() const;

  char* next_;
};

[[nodiscard]] bool equal_ignoring_case(std::string_view left, std::string_view right);

}  // namespace qk

#endif  // SUPPORT_OPTION_WORDS_H_

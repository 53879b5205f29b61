#ifndef QKMEM_CONFIG_PROFILE_WORDS_H_
#define QKMEM_CONFIG_PROFILE_WORDS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

#include "config/word_rules.h"
#include "support/nearest_name.h"
#include "support/option_words.h"
#include "support/options.h"

/** Option strings of the profile: each mistake is named on standard error. */
namespace qk::mem {

/** What options come from, and what follows from a mistake in them, for the messages. */
struct WordSource {
  const char* name;
  const char* consequence = "The rest is used.";
};

/** A keyword, and how it changes what is configured. */
template <class Target>
struct ProfileKeyword {
  std::string_view name;
  std::uint8_t value_kind;
  bool (*set)(Target& target, const char* value);  // false if the value is not understood
};

/** Names a word that is no keyword, and the one that may be meant. Returns the code. */
std::int32_t name_unknown_word(const WordSource& source, std::string_view word,
                               std::string_view nearest);

/** Names what is wrong with the form of a word. Returns the code, or 0. */
std::int32_t check_word(const WordSource& source, std::string_view keyword, std::uint8_t value_kind,
                        const OptionWord& word);

/** Names a value that is not understood. Returns the code. */
std::int32_t name_bad_value(const WordSource& source, std::string_view keyword, const char* value);

/** Applies a word. Returns the code of its mistake, or 0. */
template <class Target>
std::int32_t apply_word(const WordSource& source, const OptionWord& word,
                        std::span<const ProfileKeyword<Target>> keywords, Target& target) {
  qk::NearestName nearest(word.keyword);
  for (const ProfileKeyword<Target>& keyword : keywords) {
    nearest.try_name(keyword.name);
    if (!equal_ignoring_case(word.keyword, keyword.name)) continue;
    const std::int32_t mistake = check_word(source, keyword.name, keyword.value_kind, word);
    if (mistake != 0 || keyword.set(target, word.value)) return mistake;
    return name_bad_value(source, keyword.name, word.value);
  }
  return name_unknown_word(source, word.keyword, nearest.name());
}

/** Applies all words of a text, which is written into. Returns the code of the first mistake. */
template <class Target>
std::int32_t read_profile_words(const WordSource& source, char* text,
                                std::span<const ProfileKeyword<Target>> keywords, Target& target) {
  std::int32_t first_mistake = 0;
  qk::OptionScanner scanner(text);
  while (const auto word = scanner.next_word()) {
    const std::int32_t mistake = apply_word(source, *word, keywords, target);
    if (first_mistake == 0) first_mistake = mistake;
    if (word->quote_open) break;
  }
  return first_mistake;
}

/** The rules of some keywords. @tparam keywords  a static array. */
template <class Target, const auto& keywords>
[[nodiscard]] WordRules rules_of_words() {
  static constexpr auto kForms = [] {
    std::array<WordForm, std::size(keywords)> forms;
    for (std::size_t i = 0; i < forms.size(); ++i) {
      forms[i] = {keywords[i].name, keywords[i].value_kind};
    }
    return forms;
  }();
  return {kForms, [](std::size_t word, const char* value) {
            Target target = {};
            return keywords[word].set(target, value);
          }};
}

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_PROFILE_WORDS_H_

#ifndef QKMEM_CONFIG_WORD_RULES_H_
#define QKMEM_CONFIG_WORD_RULES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/**
 * What option strings can have, for who looks at them before a program runs. The library itself
 * reads them by the same tables.
 */
namespace qk::mem {

/** A keyword, and what can follow it. */
struct WordForm {
  std::string_view name;
  std::uint8_t value_kind = 0;  // as in support/options.h
  std::uint8_t shortest = 0;    // characters of its begin that are enough; 0 if it must be whole
};

/** The keywords of a string. */
struct WordRules {
  std::span<const WordForm> words;
  /** Whether a value is understood, of the keyword at a place in `words`; null if each one is. */
  bool (*accepts)(std::size_t word, const char* value) = nullptr;
};

/** Of the environment variables. */
[[nodiscard]] WordRules debug_word_rules();
[[nodiscard]] WordRules dump_word_rules();
[[nodiscard]] WordRules module_word_rules();
[[nodiscard]] WordRules profile_word_rules();
[[nodiscard]] WordRules check_word_rules();

/** Of the sections that the one keyword of a dump has as its value. */
[[nodiscard]] WordRules section_word_rules();

/** What the lists of routines can have. */
[[nodiscard]] std::span<const std::string_view> listed_routines();

/** The keywords of a table, as rules have them. */
template <class Table>
[[nodiscard]] constexpr auto forms_of(const Table& table) {
  std::array<WordForm, std::size(Table{})> forms;
  for (std::size_t i = 0; i < forms.size(); ++i) {
    forms[i] = {table[i].keyword, table[i].value_kind, table[i].abbrev};
  }
  return forms;
}

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_WORD_RULES_H_

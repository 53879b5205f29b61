#ifndef QKMEM_TOOLS_PROGRAM_VARIABLES_H_
#define QKMEM_TOOLS_PROGRAM_VARIABLES_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "config/word_rules.h"

/** The environment variables that the library reads, and what their words mean. */
namespace qk::command {

/** What a word does, for the user. "{}" stands for its value. */
struct Meaning {
  /** What its value is a list of. */
  enum class List : std::uint8_t { kNone, kRoutines, kSections };

  std::string_view word;
  std::string_view alone;       // empty if it needs a value
  std::string_view with_value;  // empty if it takes none
  List list = List::kNone;
};

struct Variable {
  const char* name;  // "QK_MEM_DEBUG"
  mem::WordRules rules;
  std::span<const Meaning> meanings;
  bool is_cut;  // behind mem's longest option string
};

/** All of them, in the order in which a string that names none is tried. */
[[nodiscard]] std::span<const Variable> variables();

/** The one of a name, in either case; null if there is none. */
[[nodiscard]] const Variable* variable_named(std::string_view name);

/** A word of a variable's text. */
struct CheckedWord {
  std::string text;          // as written, without quotes
  std::string_view keyword;  // as the library calls it; empty if there is none
  std::optional<std::string> value;
  std::string mistake;          // for the user: "unknown word SUMARY"; empty if it is understood
  std::string advice;           // "did you mean SUMMARY?"
  bool is_in_routines = false;  // the mistake: such lists are read last
};

/** Reads a text as the library would, and what is wrong with it. */
[[nodiscard]] std::vector<CheckedWord> checked_words(const Variable& variable,
                                                     std::string_view text);

/** What a word that is understood does. */
[[nodiscard]] std::string meaning_of(const Variable& variable, const CheckedWord& word);

/** The first mistake in a text: "unknown word SUMARY in --debug; did you mean SUMMARY?". */
[[nodiscard]] std::optional<std::string> mistake_in(const Variable& variable, std::string_view text,
                                                    std::string_view where);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_VARIABLES_H_

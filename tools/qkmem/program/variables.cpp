#include "program/variables.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "program/meanings.h"
#include "support/nearest_name.h"
#include "support/option_words.h"
#include "support/options.h"

namespace qk::command {
namespace {

using mem::WordForm;
using mem::WordRules;

/** "did you mean SUMMARY?" */
std::string advice_for(std::string_view word, std::span<const std::string_view> names) {
  NearestName nearest(word);
  for (const std::string_view name : names) nearest.try_name(name);
  return nearest.name().empty() ? std::string() : fmt::format("did you mean {}?", nearest.name());
}

std::vector<std::string_view> names_of(const WordRules& rules) {
  std::vector<std::string_view> names;
  for (const WordForm& form : rules.words) names.push_back(form.name);
  return names;
}

bool is_begin_of(std::string_view word, const WordForm& form) {
  return form.shortest != 0 && word.size() >= form.shortest && word.size() <= form.name.size() &&
         equal_ignoring_case(word, form.name.substr(0, word.size()));
}

/** The keyword that is meant: a whole one before the begin of one. */
const WordForm* form_of(std::string_view word, const WordRules& rules) {
  for (const WordForm& form : rules.words) {
    if (equal_ignoring_case(word, form.name)) return &form;
  }
  const auto found = std::find_if(rules.words.begin(), rules.words.end(),
                                  [&](const WordForm& form) { return is_begin_of(word, form); });
  return found != rules.words.end() ? &*found : nullptr;
}

void note_mistake(CheckedWord& checked, std::string mistake, std::string advice = {}) {
  checked.mistake = std::move(mistake);
  checked.advice = std::move(advice);
}

/** "all routines but qk_ifree", "qk_imalloc and qk_ifree". */
std::string routines_in_words(std::string list) {
  std::string before;
  std::vector<std::string> names;
  char* rest = nullptr;
  for (char* name = strtok_r(list.data(), ", ", &rest); name != nullptr;
       name = strtok_r(nullptr, ", ", &rest)) {
    if (equal_ignoring_case(name, "not")) {
      before = "all routines but ";
    } else {
      names.emplace_back(name);
    }
  }
  std::string text = before;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i != 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

/** The list of routines behind a keyword of the log. */
void check_routines(CheckedWord& checked) {
  std::string list = *checked.value;
  char* rest = nullptr;
  bool is_first = true;
  for (char* name = strtok_r(list.data(), ", ", &rest); name != nullptr;
       name = strtok_r(nullptr, ", ", &rest), is_first = false) {
    if (is_first && equal_ignoring_case(name, "not")) continue;
    const auto routines = mem::listed_routines();
    const auto is_name = [name](std::string_view one) { return equal_ignoring_case(one, name); };
    if (std::any_of(routines.begin(), routines.end(), is_name)) continue;
    if (equal_ignoring_case(name, "not")) {
      return note_mistake(
          checked, fmt::format("'not' in {} is not the first word of its list", checked.keyword));
    }
    return note_mistake(checked, fmt::format("unknown routine {}", name),
                        advice_for(name, routines));
  }
}

/** The sections behind the keyword of a dump. */
void check_sections(CheckedWord& checked) {
  const WordRules rules = mem::section_word_rules();
  std::string list = *checked.value;
  OptionScanner scanner(list.data());
  while (const auto word = scanner.next_word()) {
    if (form_of(word->keyword, rules) != nullptr && !word->has_equals) continue;
    return note_mistake(checked, fmt::format("unknown section {}", word->keyword),
                        advice_for(word->keyword, names_of(rules)));
  }
}

const Meaning* find_meaning(const Variable& variable, std::string_view keyword) {
  for (const Meaning& meaning : variable.meanings) {
    if (meaning.word == keyword) return &meaning;
  }
  return nullptr;
}

void check_value(CheckedWord& checked, const Variable& variable, std::size_t place) {
  const std::string& value = *checked.value;
  if (variable.rules.accepts != nullptr && !variable.rules.accepts(place, value.c_str())) {
    return note_mistake(checked, fmt::format("{} can't be '{}'", checked.keyword, value));
  }
  const Meaning* const meaning = find_meaning(variable, checked.keyword);
  if (meaning == nullptr) return;
  if (meaning->list == Meaning::List::kRoutines) {
    check_routines(checked);
    checked.is_in_routines = !checked.mistake.empty();
  }
  if (meaning->list == Meaning::List::kSections) check_sections(checked);
}

CheckedWord checked(const OptionWord& word, const Variable& variable) {
  CheckedWord result;
  result.text = word.keyword;
  if (word.value != nullptr) {
    result.value = word.value;
    result.text += fmt::format("={}", word.value);
  }
  const WordForm* const form = form_of(word.keyword, variable.rules);
  if (form == nullptr) {
    note_mistake(result, fmt::format("unknown word {}", word.keyword),
                 advice_for(word.keyword, names_of(variable.rules)));
    return result;
  }
  result.keyword = form->name;
  const auto place = static_cast<std::size_t>(form - variable.rules.words.data());
  if (form->value_kind == kNoValue && word.has_equals) {
    note_mistake(result, fmt::format("{} takes no value", form->name));
  } else if (word.quote_open) {
    note_mistake(result, fmt::format("{} has a quote that is not closed", form->name));
  } else if (form->value_kind == kRequiredValue && word.value == nullptr) {
    note_mistake(result, fmt::format("{} needs a value", form->name));
  } else if (word.value != nullptr) {
    check_value(result, variable, place);
  }
  return result;
}

}  // namespace

std::span<const Variable> variables() {
  static const std::array<Variable, 5> all = {
      {{"QK_MEM_DEBUG", mem::debug_word_rules(), kDebugMeanings, true},
       {"QK_MEM_PROFILE", mem::profile_word_rules(), kProfileMeanings, false},
       {"QK_MEM_CHECK", mem::check_word_rules(), kCheckMeanings, false},
       {"QK_MEM_OPTIONS", mem::module_word_rules(), kModuleMeanings, true},
       {"QK_MEM_DUMP", mem::dump_word_rules(), kDumpMeanings, true}}};
  return all;
}

const Variable* variable_named(std::string_view name) {
  for (const Variable& variable : variables()) {
    if (equal_ignoring_case(variable.name, name)) return &variable;
  }
  return nullptr;
}

std::vector<CheckedWord> checked_words(const Variable& variable, std::string_view text) {
  std::vector<CheckedWord> words;
  std::string copy(text);
  OptionScanner scanner(copy.data());
  while (const auto word = scanner.next_word()) {
    words.push_back(checked(*word, variable));
    if (word->quote_open) break;
  }
  return words;
}

std::string meaning_of(const Variable& variable, const CheckedWord& word) {
  const Meaning* const meaning = find_meaning(variable, word.keyword);
  if (meaning == nullptr) return {};
  if (!word.value || meaning->with_value.empty()) return std::string(meaning->alone);
  const bool is_list = meaning->list == Meaning::List::kRoutines;
  return fmt::format(fmt::runtime(meaning->with_value),
                     is_list ? routines_in_words(*word.value) : *word.value);
}

std::optional<std::string> mistake_in(const Variable& variable, std::string_view text,
                                      std::string_view where) {
  for (const CheckedWord& word : checked_words(variable, text)) {
    if (word.mistake.empty()) continue;
    std::string mistake = fmt::format("{} in {}", word.mistake, where);
    if (!word.advice.empty()) mistake += "; " + word.advice;
    return mistake;
  }
  if (variable.is_cut && text.size() > kMaxOptions) {
    return fmt::format("{} has {} characters, and the library reads {}", where, text.size(),
                       kMaxOptions);
  }
  return std::nullopt;
}

}  // namespace qk::command

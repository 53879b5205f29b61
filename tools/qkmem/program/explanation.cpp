#include "program/explanation.h"

#include <fmt/format.h>

#include <algorithm>

#include "program/variables.h"
#include "support/options.h"

namespace qk::command {
namespace {

/** A text, and the variable that it is for. */
struct Subject {
  const Variable* variable;
  std::string text;
};

std::string without_quotes(std::string text) {
  const bool is_quoted = text.size() >= 2 && text.front() == text.back() &&
                         (text.front() == '"' || text.front() == '\'');
  return is_quoted ? text.substr(1, text.size() - 2) : text;
}

std::ptrdiff_t mistakes_in(const Variable& variable, const std::string& text) {
  const auto words = checked_words(variable, text);
  return std::count_if(words.begin(), words.end(),
                       [](const CheckedWord& word) { return !word.mistake.empty(); });
}

Subject subject_of(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals != std::string::npos) {
    const Variable* const named = variable_named(text.substr(0, equals));
    if (named != nullptr) return {named, without_quotes(text.substr(equals + 1))};
  }
  const auto all = variables();
  return {&*std::min_element(all.begin(), all.end(),
                             [&](const Variable& one, const Variable& other) {
                               return mistakes_in(one, text) < mistakes_in(other, text);
                             }),
          text};
}

bool has(const std::vector<CheckedWord>& words, std::string_view keyword) {
  return std::any_of(words.begin(), words.end(),
                     [&](const CheckedWord& word) { return word.keyword == keyword; });
}

bool has_any(const std::vector<CheckedWord>& words,
             std::initializer_list<std::string_view> keywords) {
  return std::any_of(keywords.begin(), keywords.end(),
                     [&](std::string_view keyword) { return has(words, keyword); });
}

/** Whether the library finds a mistake only when it has used some words already. */
bool is_any_used(const std::vector<CheckedWord>& words) {
  return std::all_of(words.begin(), words.end(), [](const CheckedWord& word) {
    return word.mistake.empty() || word.is_in_routines;
  });
}

/** What a string does as a whole that none of its words says. */
std::vector<std::string> remarks_on(const Subject& subject, const std::vector<CheckedWord>& words,
                                    bool has_mistake) {
  const std::string_view name = subject.variable->name;
  std::vector<std::string> remarks;
  if (name == "QK_MEM_DEBUG") {
    const bool is_watching =
        has_any(words, {"SUMMARY", "EXCEPTIONS", "DEBUG", "CTRLBLKS", "TRACE"});
    if (has(words, "OFF") && is_watching) {
      remarks.emplace_back("OFF is refused beside words that watch something");
    } else if (!is_watching && !has(words, "OFF") && !has_mistake) {
      remarks.emplace_back(
          "nothing is watched without SUMMARY, EXCEPTIONS, DEBUG, CTRLBLKS or TRACE");
    }
  }
  if (name == "QK_MEM_PROFILE" && has(words, "RECORD") && has(words, "SAMPLE")) {
    remarks.emplace_back("SAMPLE is left out, because a recording has all blocks");
  }
  if (subject.variable->is_cut && subject.text.size() > kMaxOptions) {
    remarks.push_back(fmt::format("only the first {} of its {} characters are read", kMaxOptions,
                                  subject.text.size()));
  }
  if (!has_mistake) return remarks;
  if (name == "QK_MEM_OPTIONS") {
    remarks.emplace_back("with a mistake in it the library stops its start-up without a word");
  } else if (is_any_used(words)) {
    remarks.emplace_back("a list with a mistake ends the reading; what was read before is used");
  } else if (subject.variable->is_cut) {
    remarks.emplace_back("with a mistake in it nothing of it is used");
  } else {
    remarks.emplace_back("the library names the mistake, and uses the rest");
  }
  return remarks;
}

}  // namespace

Explanation explain(const std::string& text) {
  const Subject subject = subject_of(text);
  const auto words = checked_words(*subject.variable, subject.text);
  Explanation result;
  Sheet sheet;
  sheet.key = "words";
  sheet.columns = {{"word", "word"}, {"", "mistake"}, {"does", "meaning"}};
  for (const CheckedWord& word : words) {
    const bool is_understood = word.mistake.empty();
    std::string mistake = word.mistake;
    if (!word.advice.empty()) mistake += "; " + word.advice;
    result.has_mistake = result.has_mistake || !is_understood;
    if (is_understood) {
      sheet.add(word.text, std::monostate(), meaning_of(*subject.variable, word));
    } else {
      sheet.add(word.text, mistake, "not understood: " + mistake);
    }
  }
  Answer& answer = result.answer;
  answer.command = "explain";
  answer.lines = {subject.variable->name};
  answer.facts = {{"variable", std::string(subject.variable->name)}};
  answer.sheets.push_back(std::move(sheet));
  answer.remarks = remarks_on(subject, words, result.has_mistake);
  return result;
}

}  // namespace qk::command

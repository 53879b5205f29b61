#ifndef TESTS_KIT_TEXT_H_
#define TESTS_KIT_TEXT_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/** Regular expressions behind plain functions, because compiling <regex> takes seconds. */
namespace kit {

/** Returns a text with all matches of a pattern replaced, where "$1" stands for its first group. */
[[nodiscard]] std::string replaced(const std::string& text, const char* pattern,
                                   const std::string& replacement);

/** A match in a text. */
struct Match {
  std::size_t position;
  std::vector<std::string> groups;  // the first is the whole match; empty if one has no part in it
};

/** Returns a text with all matches of a pattern replaced by what `replacement_of` returns. */
[[nodiscard]] std::string replaced_each(
    const std::string& text, const char* pattern,
    const std::function<std::string(const Match&)>& replacement_of);

/** Whether a part of the text matches. */
[[nodiscard]] bool has_match(const std::string& text, const char* pattern);

}  // namespace kit

#endif  // TESTS_KIT_TEXT_H_

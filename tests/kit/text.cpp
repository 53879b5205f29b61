#include "tests/kit/text.h"

#include <map>
#include <regex>

namespace kit {
namespace {

/** Each pattern is compiled once. */
const std::regex& compiled(const char* pattern) {
  static std::map<std::string, std::regex> all;
  return all.try_emplace(pattern, pattern).first->second;
}

}  // namespace

std::string replaced(const std::string& text, const char* pattern, const std::string& replacement) {
  return std::regex_replace(text, compiled(pattern), replacement);
}

std::string replaced_each(const std::string& text, const char* pattern,
                          const std::function<std::string(const Match&)>& replacement_of) {
  std::string result;
  auto rest = text.cbegin();
  for (std::sregex_iterator it(text.begin(), text.end(), compiled(pattern)), end; it != end; ++it) {
    const auto position = static_cast<std::size_t>(it->position());
    result.append(rest, (*it)[0].first);
    result += replacement_of({position, {it->begin(), it->end()}});
    rest = (*it)[0].second;
  }
  return result.append(rest, text.cend());
}

bool has_match(const std::string& text, const char* pattern) {
  return std::regex_search(text, compiled(pattern));
}

}  // namespace kit

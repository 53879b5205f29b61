#include "program/written_variables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace qk::command {
namespace {

/** The text with something in front of some of its characters. */
std::string escaped(const std::string& text, const char* characters, char in_front) {
  std::string result;
  for (const char c : text) {
    if (std::strchr(characters, c) != nullptr) result += in_front;
    result += c;
  }
  return result;
}

std::string line_of(const Setting& setting, WrittenFor reader) {
  switch (reader) {
    case WrittenFor::kShell:
      return fmt::format("export {}={}\n", setting.name, as_shell_word(setting.text));
    case WrittenFor::kSystemd: {
      // There "%" begins a specifier, which two of them are not.
      const std::string text = escaped(escaped(setting.text, "\\\"", '\\'), "%", '%');
      return fmt::format("Environment=\"{}={}\"\n", setting.name, text);
    }
    case WrittenFor::kDocker:
      return fmt::format("ENV {}=\"{}\"\n", setting.name, escaped(setting.text, "\\\"$", '\\'));
  }
  return {};
}

}  // namespace

std::string written(const std::vector<Setting>& settings, WrittenFor reader) {
  std::string text;
  for (const Setting& setting : settings) text += line_of(setting, reader);
  return text;
}

std::string as_shell_word(const std::string& text) {
  const auto is_plain = [](unsigned char c) {
    return std::isalnum(c) != 0 || std::strchr("._/-+,%=:", c) != nullptr;
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), is_plain)) return text;
  std::string word = text;
  for (std::size_t at = word.find('\''); at != std::string::npos; at = word.find('\'', at + 4)) {
    word.replace(at, 1, "'\\''");
  }
  return "'" + word + "'";
}

}  // namespace qk::command

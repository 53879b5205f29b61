#include "program/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "program/variables.h"

namespace qk::command {
namespace {

/** Words with blanks between them. */
class Words {
 public:
  void add(std::string_view word) {
    if (word.empty()) return;
    if (!text_.empty()) text_ += ' ';
    text_ += word;
  }
  void add_if(bool is_wanted, std::string_view word) {
    if (is_wanted) add(word);
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/** A value as it stands behind the equals sign. */
std::string quoted(const std::string& value) {
  if (value.find_first_of(" \t'\"") == std::string::npos) return value;
  if (value.find('\'') == std::string::npos) return "'" + value + "'";
  if (value.find('"') == std::string::npos) return '"' + value + '"';
  throw SettingsError(value + ": a name can't have both kinds of quotes");
}

bool has_word(const char* variable, const std::string& text, std::string_view keyword) {
  const auto words = checked_words(*variable_named(variable), text);
  return std::any_of(words.begin(), words.end(),
                     [&](const CheckedWord& word) { return word.keyword == keyword; });
}

std::string profile_words(const Wishes& wishes, const Places& places) {
  constexpr const char* kVariable = "QK_MEM_PROFILE";
  Words words;
  words.add_if(wishes.leaks, "SITES");
  words.add_if(wishes.peak, "PEAK");
  if (wishes.stacks) words.add(fmt::format("STACKS={}", *wishes.stacks));
  words.add_if(wishes.fails, "LEAKS=FAIL");
  if (wishes.record && !has_word(kVariable, wishes.profile, "RECORD")) {
    words.add(places.recording.empty() ? "RECORD" : "RECORD=" + quoted(places.recording));
  }
  if (!places.report.empty()) {
    words.add_if(!has_word(kVariable, wishes.profile, "FORMAT"), "FORMAT=JSON");
    if (!has_word(kVariable, wishes.profile, "REPORT")) {
      words.add("REPORT=" + quoted(places.report));
    }
  }
  words.add(wishes.profile);
  return words.text();
}

std::string check_words(const Wishes& wishes) {
  Words words;
  words.add_if(wishes.check, "GUARD FILL QUARANTINE");
  const bool is_on = wishes.check || !wishes.checks.empty();
  words.add_if(wishes.fails && is_on && !has_word("QK_MEM_CHECK", wishes.checks, "FINDINGS"),
               "FINDINGS=FAIL");
  words.add(wishes.checks);
  return words.text();
}

/** Adds a variable, if there is something to say. */
void add(std::vector<Setting>& settings, const char* name, const std::string& text,
         const std::string& by_user, const char* option) {
  if (const auto mistake = mistake_in(*variable_named(name), by_user, option)) {
    throw SettingsError(*mistake);
  }
  if (!text.empty()) settings.push_back({name, text});
}

}  // namespace

std::vector<Setting> settings_for(const Wishes& wishes, const Places& places) {
  std::vector<Setting> settings;
  add(settings, "QK_MEM_PROFILE", profile_words(wishes, places), wishes.profile, "--profile");
  add(settings, "QK_MEM_CHECK", check_words(wishes), wishes.checks, "--checks");
  add(settings, "QK_MEM_DEBUG", wishes.debug, wishes.debug, "--debug");
  add(settings, "QK_MEM_DUMP", wishes.dump, wishes.dump, "--dump");
  add(settings, "QK_MEM_OPTIONS", wishes.options, wishes.options, "--options");
  return settings;
}

bool has_own_places(const Wishes& wishes) {
  constexpr std::array kWords = {"REPORT", "FORMAT", "RECORD"};
  return std::any_of(
             kWords.begin(), kWords.end(),
             [&](const char* word) { return has_word("QK_MEM_PROFILE", wishes.profile, word); }) ||
         has_word("QK_MEM_CHECK", wishes.checks, "REPORT");
}

std::string as_pattern(const std::string& name) {
  std::string pattern;
  for (const char c : name) {
    pattern += c;
    if (c == '%') pattern += c;
  }
  return pattern;
}

}  // namespace qk::command

#ifndef QKMEM_TOOLS_PROGRAM_SETTINGS_H_
#define QKMEM_TOOLS_PROGRAM_SETTINGS_H_

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "program/launch.h"

/** What a program is run with. */
namespace qk::command {

/** Wishes that can't be met. The text is for the user. */
class SettingsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** What the user wants to know of a program, in words of his. */
struct Wishes {
  bool leaks = false;
  bool peak = false;
  bool check = false;
  bool record = false;
  bool fails = false;
  std::optional<int> stacks;  // calls
  std::string profile;        // words of the variables, beside what follows from the others
  std::string checks;
  std::string debug;
  std::string dump;
  std::string options;
};

/** Where what is written goes, as patterns of the library's; empty for its usual places. */
struct Places {
  std::string report;     // as JSON
  std::string recording;  // empty: %n.%p.qkm
};

/**
 * The variables that meet wishes. The library's words are looked at one by one. Throws SettingsError,
 * which says which option can't be and why.
 */
[[nodiscard]] std::vector<Setting> settings_for(const Wishes& wishes, const Places& places);

/** Whether what a program writes doesn't go where it would by itself, or in another form. */
[[nodiscard]] bool has_own_places(const Wishes& wishes);

/** A name as part of a pattern of the library's. */
[[nodiscard]] std::string as_pattern(const std::string& name);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_SETTINGS_H_

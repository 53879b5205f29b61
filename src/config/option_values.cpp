#include "config/option_values.h"

#include <linux/limits.h>

#include <array>
#include <charconv>

#include "support/file_names.h"
#include "support/option_words.h"
#include "support/text.h"

namespace qk::mem {

std::optional<std::uint64_t> read_number(std::string_view text, std::uint64_t most) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most) {
    return std::nullopt;
  }
  return number;
}

std::optional<std::uint64_t> read_bytes(std::string_view text) {
  constexpr std::string_view kUnits = "KMG";
  int shift = 0;
  if (!text.empty()) {
    const std::size_t unit = kUnits.find(static_cast<char>(qk::upper(text.back())));
    if (unit != std::string_view::npos) {
      shift = 10 * (static_cast<int>(unit) + 1);
      text.remove_suffix(1);
    }
  }
  const auto number = read_number(text, UINT64_MAX >> shift);
  if (!number) return std::nullopt;
  return *number << shift;
}

std::optional<std::uint8_t> read_failing_code(std::string_view text) {
  constexpr std::string_view kFail = "FAIL";
  constexpr std::string_view kUsualCode = "=23";
  if (!equal_ignoring_case(text.substr(0, kFail.size()), kFail)) return std::nullopt;
  std::string_view code = text.substr(kFail.size());
  if (code.empty()) code = kUsualCode;
  if (code.front() != '=') return std::nullopt;
  const auto number = read_number(code.substr(1), UINT8_MAX);
  if (!number || *number == 0) return std::nullopt;
  return static_cast<std::uint8_t>(*number);
}

bool is_report_name(const char* name) {
  std::array<char, PATH_MAX> expanded_name = {};
  // A pattern with a conversion that there isn't must not become the name of a file unnoticed.
  const qk::ExpandedName expanded = qk::expand_file_name(name, {}, expanded_name);
  return expanded.fits && expanded.unknown.empty();
}

}  // namespace qk::mem

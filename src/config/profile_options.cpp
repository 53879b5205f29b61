#include "config/profile_options.h"

#include <linux/limits.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "support/file_names.h"
#include "support/line.h"
#include "support/option_words.h"
#include "support/options.h"
#include "support/own_message.h"
#include "support/system.h"
#include "support/text.h"

namespace qk::mem {
namespace {

using profile::Format;
using profile::Options;
using profile::Sort;

/** A number without a sign, up to `most`. */
std::optional<std::uint64_t> read_number(std::string_view text, std::uint64_t most) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most) {
    return std::nullopt;
  }
  return number;
}

/** Bytes, with K, M or G for the powers of 1,024. */
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

/** One of several words, by its position. */
template <std::size_t N>
std::optional<std::size_t> read_choice(std::string_view text,
                                       const std::array<std::string_view, N>& choices) {
  for (std::size_t i = 0; i < N; ++i) {
    if (equal_ignoring_case(text, choices[i])) return i;
  }
  return std::nullopt;
}

bool set_depth(Options& options, const char* value) {
  const auto depth = read_number(value == nullptr ? "16" : value, profile::kMaxDepth);
  if (!depth || *depth == 0) return false;
  options.depth = static_cast<std::uint32_t>(*depth);
  return true;
}

bool set_top(Options& options, const char* value) {
  const auto top = read_number(value, UINT32_MAX);
  if (top) options.top = static_cast<std::uint32_t>(*top);
  return top.has_value();
}

bool set_sort(Options& options, const char* value) {
  constexpr std::array<std::string_view, 5> kSorts = {"BYTES", "BLOCKS", "PEAK", "MADE", "SHORT"};
  const auto sort = read_choice(value, kSorts);
  if (sort) options.sort = static_cast<Sort>(*sort);
  return sort.has_value();
}

bool set_format(Options& options, const char* value) {
  constexpr std::array<std::string_view, 4> kFormats = {"TEXT", "JSON", "PPROF", "OPENMETRICS"};
  const auto format = read_choice(value, kFormats);
  if (format) options.format = static_cast<Format>(*format);
  return format.has_value();
}

/** A pattern with a conversion that there isn't must not become the name of a file unnoticed. */
bool set_report(Options& options, const char* value) {
  std::array<char, PATH_MAX> name = {};
  const qk::ExpandedName expanded = qk::expand_file_name(value, {}, name);
  if (!expanded.fits || !expanded.unknown.empty()) return false;
  options.report = value;
  return true;
}

bool set_skip(Options& options, const char* value) {
  options.skip = value;
  return true;
}

bool set_every(Options& options, const char* value) {
  constexpr std::uint64_t kCentury = std::uint64_t{100} * 366 * 86400;
  const auto seconds = read_number(value, kCentury);
  if (!seconds || *seconds == 0) return false;
  options.every_seconds = *seconds;
  return true;
}

bool set_control(Options& options, const char* value) {
  options.control = value;
  return true;
}

bool set_max(Options& options, const char* value) {
  const auto bytes = read_bytes(value);
  if (bytes) options.max_bytes = *bytes;
  return bytes.has_value();
}

bool set_sites(Options& /*options*/, const char* /*value*/) { return true; }

bool set_peak(Options& options, const char* /*value*/) {
  options.peak = true;
  return true;
}

constexpr char kStacks[] = "STACKS";

struct Keyword {
  std::string_view name;
  std::uint8_t value_kind;
  bool (*set)(Options& options, const char* value);  // false if the value is not understood
};

constexpr std::array<Keyword, 11> kKeywords = {{
    {"SITES", qk::kNoValue, set_sites},
    {kStacks, qk::kOptionalValue, set_depth},
    {"PEAK", qk::kNoValue, set_peak},
    {"TOP", qk::kRequiredValue, set_top},
    {"SORT", qk::kRequiredValue, set_sort},
    {"REPORT", qk::kRequiredValue, set_report},
    {"FORMAT", qk::kRequiredValue, set_format},
    {"SKIP", qk::kRequiredValue, set_skip},
    {"EVERY", qk::kRequiredValue, set_every},
    {"CONTROL", qk::kRequiredValue, set_control},
    {"MAX", qk::kRequiredValue, set_max},
}};

/** How many letters have to be changed, added or removed to make one word of another. */
std::size_t distance(std::string_view word, std::string_view name) {
  constexpr std::size_t kLongest = 16;
  if (word.size() > kLongest) return kLongest;
  std::array<std::size_t, kLongest + 1> row = {};
  for (std::size_t i = 0; i <= word.size(); ++i) row[i] = i;
  for (std::size_t j = 0; j < name.size(); ++j) {
    std::size_t diagonal = row[0];
    row[0] = j + 1;
    for (std::size_t i = 0; i < word.size(); ++i) {
      const bool same = qk::lower(word[i]) == qk::lower(name[j]);
      const std::size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[i + 1];
      row[i + 1] = std::min({replaced, row[i] + 1, diagonal + 1});
    }
  }
  return row[word.size()];
}

std::string_view nearest_keyword(std::string_view word) {
  const auto* const nearest = std::min_element(
      kKeywords.begin(), kKeywords.end(), [word](const Keyword& left, const Keyword& right) {
        return distance(word, left.name) < distance(word, right.name);
      });
  return nearest->name;
}

const Keyword* find_keyword(std::string_view word) {
  for (const Keyword& keyword : kKeywords) {
    if (equal_ignoring_case(word, keyword.name)) return &keyword;
  }
  return nullptr;
}

std::int32_t name_unknown(const char* source, std::string_view word) {
  Line line;
  line.put("qkmem: ").put(source).put(": unknown keyword '").put(word).put("'; is ");
  line.put(nearest_keyword(word)).put(" meant? The rest is used.\n");
  write_message(line.finish());
  return qk::kUnknownKeyword;
}

std::int32_t name_mistake(const char* source, std::string_view keyword, std::string_view mistake,
                          std::int32_t code) {
  Line line;
  line.put("qkmem: ").put(source).put(": ").put(keyword).put(" ").put(mistake);
  line.put(". The rest is used.\n");
  write_message(line.finish());
  return code;
}

/** Applies a word. Returns its mistake. */
std::int32_t apply(const char* source, const OptionWord& word, Options& options) {
  const Keyword* const keyword = find_keyword(word.keyword);
  if (keyword == nullptr) return name_unknown(source, word.keyword);
  if (keyword->value_kind == qk::kNoValue && word.has_equals) {
    return name_mistake(source, keyword->name, "takes no value", qk::kValueNotAllowed);
  }
  if (word.quote_open) {
    return name_mistake(source, keyword->name, "has a quote that is not closed",
                        qk::kQuoteNotClosed);
  }
  if (keyword->value_kind == qk::kRequiredValue && word.value == nullptr) {
    return name_mistake(source, keyword->name, "needs a value", qk::kValueMissing);
  }
  if (keyword->set(options, word.value)) return 0;
  Line mistake;
  mistake.put("can't be '").put(word.value).put("'");
  return name_mistake(source, keyword->name, mistake.finish(), qk_error_no(EINVAL));
}

}  // namespace

bool mentions_stacks(const char* text) { return ::strcasestr(text, kStacks) != nullptr; }

std::int32_t read_profile_options(const char* source, char* text, Options& options) {
  options = {};
  std::int32_t first_mistake = 0;
  qk::OptionScanner scanner(text);
  while (const auto word = scanner.next_word()) {
    const std::int32_t mistake = apply(source, *word, options);
    if (first_mistake == 0) first_mistake = mistake;
    if (word->quote_open) break;
  }
  return first_mistake;
}

}  // namespace qk::mem

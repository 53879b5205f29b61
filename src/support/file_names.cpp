#include "support/file_names.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "support/cursor.h"
#include "support/system.h"

namespace qk {
namespace {

/** A text in memory of a fixed size, and whether it fits. */
class FixedText {
 public:
  explicit FixedText(std::span<char> memory) : memory_(memory) {}

  void put(char c) {
    if (length_ < memory_.size()) {
      memory_[length_++] = c;
    } else {
      is_cut_ = true;
    }
  }
  void put(std::string_view text) {
    for (const char c : text) put(c);
  }
  /** A text that must not lead to another folder. */
  void put_component(std::string_view text) {
    for (const char c : text) put(c == '/' ? '_' : c);
  }
  /** @param digits  the least number of them. */
  void put_number(std::uint64_t number, std::size_t digits = 1) {
    char text[Cursor::kLongestNumber + Cursor::kOverrun];
    const std::string_view all = Cursor(text).number(number).text();
    for (std::size_t i = all.size(); i < digits; ++i) put('0');
    put(all);
  }

  [[nodiscard]] bool is_cut() const { return is_cut_; }

 private:
  std::span<char> memory_;
  std::size_t length_ = 0;
  bool is_cut_ = false;
};

struct Date {
  std::int64_t year;
  std::int64_t month;
  std::int64_t day;
};

/**
 * The date of a day after 1970-01-01, which gmtime_r() must not be asked for in a signal handler.
 * Years are counted from March, so that a leap day is the last of its year.
 */
Date date_of(std::int64_t days) {
  constexpr std::int64_t kDaysToMarchOfYear0 = 719468;
  constexpr std::int64_t kDaysOf400Years = 146097;
  const std::int64_t since_year_0 = days + kDaysToMarchOfYear0;
  const std::int64_t day_of_era = since_year_0 % kDaysOf400Years;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t month_from_march = (5 * day_of_year + 2) / 153;
  const std::int64_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  const std::int64_t year = 400 * (since_year_0 / kDaysOf400Years) + year_of_era;
  return {month <= 2 ? year + 1 : year, month, day_of_year - (153 * month_from_march + 2) / 5 + 1};
}

/** Times before 1970 count as 1970. */
void put_time(FixedText& text, std::int64_t seconds) {
  const std::int64_t since_1970 = seconds < 0 ? 0 : seconds;
  const Date date = date_of(since_1970 / 86400);
  const auto put = [&text](std::int64_t number, std::size_t digits) {
    text.put_number(static_cast<std::uint64_t>(number), digits);
  };
  put(date.year, 4);
  put(date.month, 2);
  put(date.day, 2);
  text.put('T');
  put(since_1970 / 3600 % 24, 2);
  put(since_1970 / 60 % 60, 2);
  put(since_1970 % 60, 2);
}

void put_program(FixedText& text) {
  const std::string_view name = program_invocation_short_name;
  text.put_component(name.empty() ? "program" : name);
}

void put_host(FixedText& text) {
  char name[256];
  qk_hostname_r(name, sizeof name);
  text.put_component(name);
}

/** Returns false if there is no such conversion. */
bool put_conversion(FixedText& text, std::string_view conversion, const FileNameFacts& facts) {
  switch (conversion.size() == 2 ? conversion[1] : '\0') {
    case 'p':
      text.put_number(static_cast<std::uint64_t>(::getpid()));
      return true;
    case 'n':
      put_program(text);
      return true;
    case 'h':
      put_host(text);
      return true;
    case 't':
      put_time(text, facts.start);
      return true;
    case 'i':
      text.put_number(facts.number);
      return true;
    case '%':
      text.put('%');
      return true;
    default:
      return false;
  }
}

}  // namespace

ExpandedName expand_file_name(std::string_view pattern, const FileNameFacts& facts,
                              std::span<char> name) noexcept {
  FixedText text(name);
  ExpandedName result;
  while (!pattern.empty()) {
    const std::size_t plain = std::min(pattern.find('%'), pattern.size());
    const std::string_view conversion = pattern.substr(plain, 2);
    text.put(pattern.substr(0, plain));
    pattern.remove_prefix(plain + conversion.size());
    if (conversion.empty() || put_conversion(text, conversion, facts)) continue;
    text.put(conversion);
    if (result.unknown.empty()) result.unknown = conversion;
  }
  text.put('\0');
  result.fits = !text.is_cut();
  return result;
}

}  // namespace qk

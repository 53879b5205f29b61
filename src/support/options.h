#ifndef SUPPORT_OPTIONS_H_
#define SUPPORT_OPTIONS_H_

#include <cstdint>

/**
 * Option strings: keywords, some with a value, that are matched against a table.
 *
 *     LOG=trace.log DEBUG='not qk_ifree' FLUSH
 *
 * Keywords are separated by blanks, tabs or commas, and match in either case. They match as a
 * whole, or, if `abbrev` is not 0, by a prefix of at least `abbrev` characters. A whole match takes
 * precedence over a prefix, and then the first in the table.
 *
 * A value follows an equals sign and ends at the next blank or tab; it can contain commas. A ' or "
 * right after the equals sign quotes it: the value is the text between the two marks, and the next
 * word begins after the second one. An empty value counts as none. If a keyword is repeated, the
 * last one counts.
 */
namespace qk {

/** qk_option_keyword::value_kind. */
enum : std::uint8_t { kNoValue, kRequiredValue, kOptionalValue };

/** Characters of the longest option string that a call accepts. */
inline constexpr std::size_t kMaxOptions = 256;

/** qk_option_error::code; the first is left by callers, which see the length of the string. */
enum : std::int32_t {
  kOptionsTooLong = 10037,
  kUnknownKeyword = 10041,
  kValueNotAllowed = 10042,  // an equals sign is enough
  kValueMissing = 10043,
  kQuoteNotClosed = 10044
};

}  // namespace qk

/** Entry of a keyword table. The caller sets the first five members; the other two are results. */
struct qk_option_keyword {
  std::uint8_t control;  // no effect, like mark
  char keyword[33];      // in either case; not terminated if it has 33 characters
  std::uint8_t abbrev;
  std::uint8_t mark;
  std::uint8_t value_kind;
  char* value;         // inside the option string; null if the keyword has no value
  std::uint8_t found;  // 1 if the keyword occurs, else 0
};

/** Why a string doesn't match its table. */
struct qk_option_error {
  std::int32_t code;
  char text[257];  // the keyword as spelled in the string; "=" if it has no name
};

extern "C" {

/**
 * Matches an option string against a table.
 *
 * @param options  the string. Values are terminated IN PLACE, so a string can be read only once,
 *                 and the table points into it afterwards. Nothing outside it is written. Null
 *                 counts as "".
 * @param table    `count` entries, whose results are reset first. Null counts as empty.
 * @param error    filled on failure only; may be null.
 * @return the number of different keywords found, 0 or more. Negative if the string doesn't match:
 *         `error` then has the first word that doesn't, and the results are incomplete.
 *
 * Allocates nothing. Threads: any, each with its own string and table.
 */
int qk_process_options(char* options, qk_option_keyword* table, int count, qk_option_error* error);

/**
 * Same as qk_process_options(), for callers that only check whether a string matches. `mode` is
 * ignored.
 */
int qk_check_options(char* options, qk_option_keyword* table, int count, qk_option_error* error,
                     int mode);

}  // extern "C"

#endif  // SUPPORT_OPTIONS_H_

#ifndef SUPPORT_OPTIONS_H_
#define SUPPORT_OPTIONS_H_

#include <cstdint>

/**
 * Option strings: keywords, some with a value, read against a table of the keywords that fit.
 *
 *     LOG=trace.log DEBUG='not qk_ifree' FLUSH
 *
 * Keywords are separated by blanks, tabs or commas, and match in either case: whole, or by a prefix
 * of at least `abbrev` characters where `abbrev` is not 0. A whole match wins over a prefix, then
 * the order of the table decides.
 *
 * A value follows an equals sign and runs to the next blank or tab; it may contain commas. A ' or "
 * right behind the equals sign quotes it: the value is what stands between the two marks, and the
 * next word begins behind the second one. An empty value is no value. Of a keyword given twice the
 * last counts.
 */
namespace qk {

/** qk_option_keyword::value_kind. */
enum : std::uint8_t { kNoValue, kRequiredValue, kOptionalValue };

/** qk_option_error::code. */
enum : std::int32_t {
  kUnknownKeyword = 10041,
  kValueNotAllowed = 10042,  // already an equals sign is too much
  kValueMissing = 10043,
  kQuoteNotClosed = 10044
};

}  // namespace qk

/** Entry of a keyword table: the first five members are the caller's, the other two the result. */
struct qk_option_keyword {
  std::uint8_t control;  // without effect, as is mark
  char keyword[33];      // in either case; needs no terminator when all 33 characters count
  std::uint8_t abbrev;
  std::uint8_t mark;
  std::uint8_t value_kind;
  char* value;         // inside the option string; null when the keyword has no value there
  std::uint8_t found;  // 1 when the keyword occurs, else 0
};

/** Why a string doesn't fit its table. */
struct qk_option_error {
  std::int32_t code;
  char text[257];  // the offending keyword as the string spells it; "=" where one has no name
};

extern "C" {

/**
 * Reads an option string against a table.
 *
 * @param options  the string. Values are terminated IN PLACE, so a string can be read only once;
 *                 the table points into it afterwards. Nothing outside it is written. Null counts
 *                 as "".
 * @param table    `count` entries, whose results are reset first. Null counts as empty.
 * @param error    filled on failure only; may be null.
 * @return  the number of different keywords found, 0 upward. Negative when the string doesn't fit:
 *          the first word that doesn't is in `error`, and the results in the table are incomplete.
 *
 * Allocates nothing. Threads: any, on strings and tables of their own.
 */
int qk_process_options(char* options, qk_option_keyword* table, int count, qk_option_error* error);

/**
 * Same as qk_process_options(), for callers that only ask whether a string fits; `mode` is
 * ignored.
 */
int qk_check_options(char* options, qk_option_keyword* table, int count, qk_option_error* error,
                     int mode);

}  // extern "C"

#endif  // SUPPORT_OPTIONS_H_

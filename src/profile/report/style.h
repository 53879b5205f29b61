#ifndef QKMEM_PROFILE_REPORT_STYLE_H_
#define QKMEM_PROFILE_REPORT_STYLE_H_

#include <string_view>

namespace qk::mem::profile {

/** What makes parts of the text report stand out on a terminal. It takes no column. */
struct Style {
  std::string_view verdict{};  // before the line that says what is held
  std::string_view aside{};    // before headings and callers
  std::string_view end{};      // after each of them
};

inline constexpr Style kPlainStyle;
inline constexpr Style kTerminalStyle = {
    .verdict = "\x1b[1m", .aside = "\x1b[2m", .end = "\x1b[0m"};

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_STYLE_H_

#ifndef QKMEM_CORE_OPTION_CALL_H_
#define QKMEM_CORE_OPTION_CALL_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "qkmem/qkmem.h"
#include "support/options.h"
#include "support/text.h"

/**
 * Parses the option strings that calls take: each is copied, then parsed against a keyword table.
 */
namespace qk::mem {

using qk::kMaxOptions;
static_assert(int{qk::kOptionsTooLong} == QK_MEM_ERROR_LONG_OPTIONS);

/** A private copy of an option string, because the parser writes into it. */
class OptionText {
 public:
  explicit OptionText(const char* options) : length_(qk_strlen(options)) {
    qk::copy_text(text_, sizeof text_, options);
  }

  [[nodiscard]] bool too_long() const { return length_ > kMaxOptions; }
  /** The length of the caller's string, which the copy may cut. */
  [[nodiscard]] int length() const { return static_cast<int>(length_); }
  [[nodiscard]] char* text() { return text_; }

  /** Accepts a string that is too long as what the copy has of it. */
  void accept_cut() { length_ = qk_strlen(text_); }

 private:
  std::size_t length_;
  char text_[kMaxOptions + 1] = {};
};

[[nodiscard]] constexpr qk_option_keyword keyword(const char* name, int value_kind, int abbrev = 0,
                                                  int control = 0, int mark = 0) {
  qk_option_keyword entry = {};
  entry.control = static_cast<std::uint8_t>(control);
  entry.abbrev = static_cast<std::uint8_t>(abbrev);
  entry.mark = static_cast<std::uint8_t>(mark);
  entry.value_kind = static_cast<std::uint8_t>(value_kind);
  for (std::size_t i = 0; name[i] != '\0'; ++i) entry.keyword[i] = name[i];
  return entry;
}

/**
 * One parsing of an option string against a keyword table.
 *
 * @tparam N  entries of the table. The caller names their indices, by an enum for instance.
 */
template <std::size_t N>
class OptionCall {
 public:
  explicit OptionCall(const std::array<qk_option_keyword, N>& table) : table_(table) {}

  /** Parses `text`. False leaves the reason in error(). The values point into `text`. */
  [[nodiscard]] bool process(OptionText& text) {
    if (text.too_long()) {
      error_.code = qk::kOptionsTooLong;
      qk::copy_text(error_.text, sizeof error_.text, "options");
      return false;
    }
    return process(text.text());
  }

  [[nodiscard]] bool process(char* text) {
    return accept(qk_process_options(text, table_.data(), static_cast<int>(N), &error_));
  }

  /** Parses `text` only to see whether it fits the table. */
  [[nodiscard]] bool check(OptionText& text) {
    constexpr int kValidateOnly = 2;
    return accept(
        qk_check_options(text.text(), table_.data(), static_cast<int>(N), &error_, kValidateOnly));
  }

  [[nodiscard]] int found() const { return found_; }
  [[nodiscard]] const qk_option_error& error() const { return error_; }

  template <class Index>
  [[nodiscard]] bool has(Index index) const {
    return table_[static_cast<std::size_t>(index)].found != 0;
  }

  /** Null if the keyword was not found or has no value. */
  template <class Index>
  [[nodiscard]] char* value(Index index) const {
    return table_[static_cast<std::size_t>(index)].value;
  }

 private:
  bool accept(int result) {
    found_ = result < 0 ? 0 : result;
    return result >= 0;
  }

  std::array<qk_option_keyword, N> table_;
  qk_option_error error_ = {};
  int found_ = 0;
};

}  // namespace qk::mem

#endif  // QKMEM_CORE_OPTION_CALL_H_

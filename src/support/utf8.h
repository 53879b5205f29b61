#ifndef SUPPORT_UTF8_H_
#define SUPPORT_UTF8_H_

#include <cstddef>
#include <string_view>

/** Texts that come from programs and file systems can be any bytes; formats want UTF-8. */
namespace qk {

/** U+FFFD, which stands for bytes that are not UTF-8. */
inline constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/** The front of a text: bytes that are UTF-8, or bytes that one U+FFFD stands for. */
struct Utf8Piece {
  std::size_t length;
  bool is_valid;
};

/**
 * Returns the longest front of a text that is all UTF-8, or else the bytes before the next one that
 * can begin a character. Those are split as browsers and Python do. The text must not be empty.
 */
[[nodiscard]] Utf8Piece first_utf8_piece(std::string_view text) noexcept;

/** Calls `put` with pieces that are UTF-8 together, and equal the text if that is UTF-8. */
template <class Put>
void put_as_utf8(std::string_view text, Put&& put) {
  while (!text.empty()) {
    const Utf8Piece piece = first_utf8_piece(text);
    put(piece.is_valid ? text.substr(0, piece.length) : kReplacement);
    text.remove_prefix(piece.length);
  }
}

}  // namespace qk

#endif  // SUPPORT_UTF8_H_

#include "support/utf8.h"

namespace qk {
namespace {

/** What may follow the first byte of a character. Later bytes are always 80 to BF. */
struct Sequence {
  std::size_t length = 0;  // 0 if the byte begins no character
  unsigned char least = 0x80;
  unsigned char most = 0xBF;
};

Sequence sequence_of(unsigned char first) {
  if (first < 0x80) return {1};
  if (first < 0xC2) return {};
  if (first < 0xE0) return {2};
  if (first == 0xE0) return {3, 0xA0};        // not what fits in fewer bytes
  if (first == 0xED) return {3, 0x80, 0x9F};  // not the halves of pairs of UTF-16
  if (first < 0xF0) return {3};
  if (first == 0xF0) return {4, 0x90};
  if (first < 0xF4) return {4};
  if (first == 0xF4) return {4, 0x80, 0x8F};  // not beyond U+10FFFF
  return {};
}

Utf8Piece first_character(std::string_view text) {
  Sequence sequence = sequence_of(static_cast<unsigned char>(text[0]));
  if (sequence.length == 0) return {1, false};
  for (std::size_t i = 1; i < sequence.length; ++i) {
    if (i == text.size()) return {i, false};
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < sequence.least || byte > sequence.most) return {i, false};
    sequence.least = 0x80;
    sequence.most = 0xBF;
  }
  return {sequence.length, true};
}

}  // namespace

Utf8Piece first_utf8_piece(std::string_view text) noexcept {
  std::size_t length = 0;
  while (length < text.size()) {
    const Utf8Piece character = first_character(text.substr(length));
    if (!character.is_valid) return length == 0 ? character : Utf8Piece{length, true};
    length += character.length;
  }
  return {length, true};
}

}  // namespace qk

#include "support/text.h"

#include <cstring>

namespace {

int lower_byte(char c) noexcept { return static_cast<unsigned char>(qk::lower(c)); }

}  // namespace

extern "C" {

int qk_stricmp(const char* left, const char* right) {
  if (left == nullptr) left = "";
  if (right == nullptr) right = "";
  while (*left != '\0' && lower_byte(*left) == lower_byte(*right)) {
    ++left;
    ++right;
  }
  return lower_byte(*left) - lower_byte(*right);
}

std::size_t qk_strlen(const char* text) { return text == nullptr ? 0 : std::strlen(text); }

const char* qk_file_name_only(const char* path) { return qk::file_name_only(path); }

}  // extern "C"

namespace qk {

void lower_case(char* text) noexcept {
  if (text == nullptr) return;
  for (; *text != '\0'; ++text) *text = lower(*text);
}

void upper_case(char* text) noexcept {
  if (text == nullptr) return;
  for (; *text != '\0'; ++text) *text = upper(*text);
}

void copy_text(char* to, std::size_t size, const char* from) noexcept {
  if (to == nullptr || size == 0) return;
  const std::size_t length = from == nullptr ? 0 : strnlen(from, size - 1);
  if (length != 0) std::memcpy(to, from, length);
  to[length] = '\0';
}

}  // namespace qk

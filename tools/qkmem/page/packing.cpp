#include "page/packing.h"

#include <zlib.h>

#include <new>

namespace qk::command {
namespace {

std::string compressed(std::string_view bytes) {
  uLongf size = compressBound(bytes.size());
  std::string out(size, '\0');
  if (compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(),
                Z_BEST_COMPRESSION) != Z_OK) {
    throw std::bad_alloc();
  }
  out.resize(size);
  return out;
}

std::string in_base64(std::string_view bytes) {
  constexpr std::string_view kLetters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t bits = 0;
    for (std::size_t j = i; j < i + 3; ++j) {
      bits = bits << 8 | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      text += i + j <= bytes.size() ? kLetters[bits >> (18 - 6 * j) & 0x3F] : '=';
    }
  }
  return text;
}

}  // namespace

std::string packed(std::string_view bytes) { return in_base64(compressed(bytes)); }

}  // namespace qk::command

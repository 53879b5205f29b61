#ifndef SYMBOLS_BUILD_ID_H_
#define SYMBOLS_BUILD_ID_H_

#include <cstddef>
#include <string_view>

namespace qk {

/**
 * What the linker notes in a file to tell it from every other one, in hexadecimal digits; empty if
 * there is none. Debug information in a file of its own is found by it.
 */
class BuildId {
 public:
  constexpr BuildId() noexcept = default;

  /** Looks for it in the notes of an ELF file, which are aligned to `alignment`. */
  BuildId(std::string_view notes, std::size_t alignment) noexcept;

  /** One of these bytes, of which only the first are taken if there are too many. */
  [[nodiscard]] static BuildId of(std::string_view bytes) noexcept;

  [[nodiscard]] std::string_view text() const noexcept { return {digits_, length_}; }

 private:
  static constexpr std::size_t kMostBytes = 32;  // 20 are usual

  std::size_t length_ = 0;
  char digits_[2 * kMostBytes] = {};
};

}  // namespace qk

#endif  // SYMBOLS_BUILD_ID_H_

#ifndef QKMEM_CONFIG_OPTION_COPY_H_
#define QKMEM_CONFIG_OPTION_COPY_H_

#include <string_view>

#include "support/mapped_array.h"

namespace qk::mem {

/** A copy of an option string of any length, to be written into. In pages of its own. */
class OptionCopy {
 public:
  explicit OptionCopy(std::string_view text) : bytes_(text.size() + 1) {
    if (bytes_.capacity() != 0) text.copy(bytes_.begin(), text.size());
  }
  explicit OptionCopy(const char* text)
      : OptionCopy(text == nullptr ? std::string_view() : std::string_view(text)) {}

  /** Null if there was no memory. */
  [[nodiscard]] char* text() { return bytes_.begin(); }

 private:
  qk::MappedArray<char> bytes_;
};

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_OPTION_COPY_H_

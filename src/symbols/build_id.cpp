#include "symbols/build_id.h"

#include <elf.h>

#include "symbols/elf_note.h"

namespace qk {

BuildId::BuildId(std::string_view notes, std::size_t alignment) noexcept {
  constexpr std::string_view kOwner = {"GNU", sizeof "GNU"};
  const std::string_view bytes = find_note(notes, alignment, kOwner, NT_GNU_BUILD_ID);
  for (const char byte : bytes.substr(0, kMostBytes)) {
    const auto value = static_cast<unsigned char>(byte);
    digits_[length_++] = "0123456789abcdef"[value / 16];
    digits_[length_++] = "0123456789abcdef"[value % 16];
  }
}

}  // namespace qk

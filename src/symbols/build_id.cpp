#include "symbols/build_id.h"

#include <elf.h>

#include "symbols/elf_note.h"

namespace qk {

BuildId::BuildId(std::string_view notes, std::size_t alignment) noexcept {
  constexpr std::string_view kOwner = {"GNU", sizeof "GNU"};
  *this = of(find_note(notes, alignment, kOwner, NT_GNU_BUILD_ID));
}

BuildId BuildId::of(std::string_view bytes) noexcept {
  BuildId id;
  for (const char byte : bytes.substr(0, kMostBytes)) {
    const auto value = static_cast<unsigned char>(byte);
    id.digits_[id.length_++] = "0123456789abcdef"[value / 16];
    id.digits_[id.length_++] = "0123456789abcdef"[value % 16];
  }
  return id;
}

}  // namespace qk

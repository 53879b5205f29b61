#include "symbols/build_id.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

namespace qk {
namespace {

constexpr std::string_view kOwner = {"GNU", sizeof "GNU"};

std::size_t round_up(std::size_t bytes, std::size_t alignment) {
  return (bytes + alignment - 1) / alignment * alignment;
}

}  // namespace

BuildId::BuildId(std::string_view notes, std::size_t alignment) noexcept {
  const std::size_t step = alignment == 8 ? 8 : 4;
  while (notes.size() >= sizeof(Elf64_Nhdr)) {
    Elf64_Nhdr header;
    std::memcpy(&header, notes.data(), sizeof header);
    const std::size_t text_at = sizeof header + round_up(header.n_namesz, step);
    const std::size_t next = text_at + round_up(header.n_descsz, step);
    if (text_at + header.n_descsz > notes.size()) return;
    if (header.n_type == NT_GNU_BUILD_ID &&
        notes.substr(sizeof header, header.n_namesz) == kOwner) {
      for (const char byte :
           notes.substr(text_at, std::min<std::size_t>(header.n_descsz, kMostBytes))) {
        const auto value = static_cast<unsigned char>(byte);
        digits_[length_++] = "0123456789abcdef"[value / 16];
        digits_[length_++] = "0123456789abcdef"[value % 16];
      }
      return;
    }
    notes.remove_prefix(std::min(next, notes.size()));
  }
}

}  // namespace qk

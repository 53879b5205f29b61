#include "symbols/elf_note.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

namespace qk {
namespace {

std::size_t round_up(std::size_t bytes, std::size_t alignment) {
  return (bytes + alignment - 1) / alignment * alignment;
}

}  // namespace

std::string_view find_note(std::string_view notes, std::size_t alignment, std::string_view owner,
                           std::uint32_t type) noexcept {
  const std::size_t step = alignment == 8 ? 8 : 4;
  while (notes.size() >= sizeof(Elf64_Nhdr)) {
    Elf64_Nhdr header;
    std::memcpy(&header, notes.data(), sizeof header);
    const std::size_t text_at = sizeof header + round_up(header.n_namesz, step);
    const std::size_t next = text_at + round_up(header.n_descsz, step);
    if (text_at + header.n_descsz > notes.size()) return {};
    if (header.n_type == type && notes.substr(sizeof header, header.n_namesz) == owner) {
      return notes.substr(text_at, header.n_descsz);
    }
    notes.remove_prefix(std::min(next, notes.size()));
  }
  return {};
}

}  // namespace qk

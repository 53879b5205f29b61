#include "symbols/elf_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "support/keep_errno.h"

namespace qk {
namespace {

/** The bytes of a file; empty if it can't be mapped. */
std::string_view map_file(const char* path) {
  // A FIFO must not keep its reader waiting.
  const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {};
  struct stat about = {};
  std::string_view bytes;
  if (fstat(file, &about) == 0 && S_ISREG(about.st_mode) && about.st_size > 0) {
    const auto size = static_cast<std::size_t>(about.st_size);
    void* const pages = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    if (pages != MAP_FAILED) bytes = {static_cast<const char*>(pages), size};
  }
  ::close(file);
  return bytes;
}

void unmap(std::string_view bytes) {
  if (!bytes.empty()) munmap(const_cast<char*>(bytes.data()), bytes.size());
}

bool is_elf(std::string_view bytes) {
  constexpr char kOrder =
      std::endian::native == std::endian::little ? char{ELFDATA2LSB} : char{ELFDATA2MSB};
  return bytes.size() >= sizeof(Elf64_Ehdr) && bytes.starts_with(ELFMAG) &&
         bytes[EI_CLASS] == char{ELFCLASS64} && bytes[EI_DATA] == kOrder;
}

bool is_function(const Elf64_Sym& symbol) {
  return ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF;
}

bool is_variable(const Elf64_Sym& symbol) {
  return ELF64_ST_TYPE(symbol.st_info) == STT_OBJECT && symbol.st_shndx != SHN_UNDEF;
}

/** Of several names of a function, how well one suits: names that others call, of any strength. */
int rank(const Elf64_Sym& symbol, std::string_view name) {
  const unsigned char binding = ELF64_ST_BIND(symbol.st_info);
  const int strength = binding == STB_GLOBAL ? 2 : binding == STB_WEAK ? 1 : 0;
  return 2 * strength + (name.starts_with("__") ? 0 : 1);
}

}  // namespace

bool ElfFile::open(const char* path) noexcept {
  const KeepErrno keep;
  const std::string_view bytes = map_file(path);
  if (is_elf(bytes)) {
    bytes_ = bytes;
  } else {
    unmap(bytes);
  }
  return is_open();
}

void ElfFile::close() noexcept {
  const KeepErrno keep;
  unmap(bytes_);
  bytes_ = {};
  is_sorted_ = false;
  symbols_ = {};
  names_ = {};
  functions_ = {};
}

template <class Item>
ElfFile::Row<Item> ElfFile::row(std::uint64_t offset, std::uint64_t bytes) const noexcept {
  if (offset > bytes_.size() || bytes > bytes_.size() - offset) return {};
  if (offset % alignof(Item) != 0) return {};
  return {reinterpret_cast<const Item*>(bytes_.data() + offset), bytes / sizeof(Item)};
}

ElfFile::Row<Elf64_Shdr> ElfFile::sections() const noexcept {
  if (!is_open()) return {};
  const Row<Elf64_Ehdr> header = row<Elf64_Ehdr>(0, sizeof(Elf64_Ehdr));
  if (header.items->e_shentsize != sizeof(Elf64_Shdr)) return {};
  return row<Elf64_Shdr>(header.items->e_shoff,
                         std::uint64_t{header.items->e_shnum} * sizeof(Elf64_Shdr));
}

const Elf64_Shdr* ElfFile::section_of(std::uint32_t type) const noexcept {
  const Row<Elf64_Shdr> all = sections();
  const Elf64_Shdr* const end = all.items + all.count;
  const Elf64_Shdr* const found = std::find_if(
      all.items, end, [type](const Elf64_Shdr& section) { return section.sh_type == type; });
  return found == end ? nullptr : found;
}

BuildId ElfFile::build_id() const noexcept {
  const Row<Elf64_Shdr> all = sections();
  for (std::size_t i = 0; i < all.count; ++i) {
    const Elf64_Shdr& section = all.items[i];
    if (section.sh_type != SHT_NOTE) continue;
    const Row<char> notes = row<char>(section.sh_offset, section.sh_size);
    const BuildId id({notes.items, notes.count}, section.sh_addralign);
    if (!id.text().empty()) return id;
  }
  return {};
}

std::string_view ElfFile::section(std::string_view name) const noexcept {
  const Row<Elf64_Shdr> all = sections();
  if (all.count == 0) return {};
  const std::size_t names_index = row<Elf64_Ehdr>(0, sizeof(Elf64_Ehdr)).items->e_shstrndx;
  if (names_index >= all.count) return {};
  const Elf64_Shdr& of_names = all.items[names_index];
  const Row<char> text = row<char>(of_names.sh_offset, of_names.sh_size);
  const std::string_view names(text.items, text.count);
  for (std::size_t i = 0; i < all.count; ++i) {
    const Elf64_Shdr& section = all.items[i];
    if (section.sh_type == SHT_NOBITS || section.sh_name >= names.size()) continue;
    const std::string_view rest = names.substr(section.sh_name);
    if (rest.substr(0, rest.find('\0')) != name) continue;
    const Row<char> bytes = row<char>(section.sh_offset, section.sh_size);
    return {bytes.items, bytes.count};
  }
  return {};
}

bool ElfFile::has_all_functions() const noexcept { return section_of(SHT_SYMTAB) != nullptr; }

std::string_view ElfFile::name_of(const Elf64_Sym& symbol) const noexcept {
  if (symbol.st_name >= names_.size()) return {};
  const std::string_view rest = names_.substr(symbol.st_name);
  return rest.substr(0, rest.find('\0'));
}

/** Code written in assembler may have no size, and lasts until the next function. */
std::uint64_t ElfFile::end_of(const Elf64_Sym& symbol) const noexcept {
  if (symbol.st_size != 0) return symbol.st_value + symbol.st_size;
  const Row<Elf64_Shdr> all = sections();
  if (symbol.st_shndx >= all.count) return 0;
  const Elf64_Shdr& section = all.items[symbol.st_shndx];
  return section.sh_addr + section.sh_size;
}

bool ElfFile::find_symbols() noexcept {
  const Elf64_Shdr* const table =
      has_all_functions() ? section_of(SHT_SYMTAB) : section_of(SHT_DYNSYM);
  const Row<Elf64_Shdr> all = sections();
  if (table == nullptr || table->sh_link >= all.count) return false;
  const Elf64_Shdr& text = all.items[table->sh_link];
  const Row<char> names = row<char>(text.sh_offset, text.sh_size);
  symbols_ = row<Elf64_Sym>(table->sh_offset, table->sh_size);
  names_ = {names.items, names.count};
  return true;
}

void ElfFile::sort_functions(PageArena& arena) noexcept {
  if (!find_symbols()) return;
  const auto count = static_cast<std::size_t>(
      std::count_if(symbols_.items, symbols_.items + symbols_.count, is_function));
  auto* const indices = static_cast<std::uint32_t*>(arena.take(count * sizeof(std::uint32_t)));
  if (count == 0 || indices == nullptr) return;
  std::size_t used = 0;
  for (std::size_t i = 0; i < symbols_.count; ++i) {
    if (is_function(symbols_.items[i])) indices[used++] = static_cast<std::uint32_t>(i);
  }
  std::sort(indices, indices + used, [this](std::uint32_t left, std::uint32_t right) {
    const Elf64_Sym& one = symbols_.items[left];
    const Elf64_Sym& other = symbols_.items[right];
    if (one.st_value != other.st_value) return one.st_value < other.st_value;
    const int ranks = rank(one, name_of(one)) - rank(other, name_of(other));
    return ranks == 0 ? left > right : ranks < 0;
  });
  functions_ = {indices, used};
}

std::string_view ElfFile::function_at(std::uint64_t address, PageArena& arena) noexcept {
  if (!is_sorted_) sort_functions(arena);
  is_sorted_ = true;
  const std::uint32_t* const end = functions_.items + functions_.count;
  const std::uint32_t* const behind = std::upper_bound(
      functions_.items, end, address, [this](std::uint64_t wanted, std::uint32_t index) {
        return wanted < symbols_.items[index].st_value;
      });
  if (behind == functions_.items) return {};
  const Elf64_Sym& symbol = symbols_.items[behind[-1]];
  return address < end_of(symbol) ? name_of(symbol) : std::string_view();
}

ElfFile::Symbol ElfFile::symbol_at(std::uint64_t address) noexcept {
  Symbol best;
  int best_rank = -1;
  if (!find_symbols()) return best;
  for (std::size_t i = 0; i < symbols_.count; ++i) {
    const Elf64_Sym& symbol = symbols_.items[i];
    if (!is_function(symbol) && !is_variable(symbol)) continue;
    if (address < symbol.st_value || address - symbol.st_value >= symbol.st_size) continue;
    const std::string_view name = name_of(symbol);
    if (rank(symbol, name) <= best_rank) continue;
    best = {name, address - symbol.st_value};
    best_rank = rank(symbol, name);
  }
  return best;
}

}  // namespace qk

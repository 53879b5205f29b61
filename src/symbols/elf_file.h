#ifndef SYMBOLS_ELF_FILE_H_
#define SYMBOLS_ELF_FILE_H_

#include <elf.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/page_arena.h"
#include "symbols/build_id.h"

namespace qk {

/**
 * A program or a shared library as a file: its build id and the names of its functions. It is
 * mapped, and uses no heap. Damaged files have no names, and harm nothing. One thread at a time.
 */
class ElfFile {
 public:
  constexpr ElfFile() noexcept = default;
  ElfFile(const ElfFile&) = delete;
  ElfFile& operator=(const ElfFile&) = delete;

  /**
   * Opens a 64-bit ELF file of this machine's byte order. Returns false, with nothing opened, if it
   * is none or can't be read. Close what was opened before.
   */
  [[nodiscard]] bool open(const char* path) noexcept;

  /** Does nothing if no file is open. What was found in the file is gone then. */
  void close() noexcept;

  [[nodiscard]] bool is_open() const noexcept { return !bytes_.empty(); }

  [[nodiscard]] BuildId build_id() const noexcept;

  /** The bytes of a section; empty if there is none of that name, or if it takes no room in the file. */
  [[nodiscard]] std::string_view section(std::string_view name) const noexcept;

  /** Whether it has the names of all functions, and not just of those that others call. */
  [[nodiscard]] bool has_all_functions() const noexcept;

  /**
   * The function at an address of the file, as the linker knows it; empty if there is none. The
   * first call sorts the functions, in memory of the arena, without which there are none.
   */
  [[nodiscard]] std::string_view function_at(std::uint64_t address, PageArena& arena) noexcept;

  /** A function or a variable, as the linker knows it. */
  struct Symbol {
    std::string_view name;     // empty if there is none; valid until the file is closed
    std::uint64_t offset = 0;  // in it
  };

  /** What is at an address of the file. Looks at all symbols, and needs no memory. */
  [[nodiscard]] Symbol symbol_at(std::uint64_t address) noexcept;

 private:
  template <class Item>
  struct Row {
    const Item* items = nullptr;
    std::size_t count = 0;
  };

  template <class Item>
  [[nodiscard]] Row<Item> row(std::uint64_t offset, std::uint64_t bytes) const noexcept;
  [[nodiscard]] Row<Elf64_Shdr> sections() const noexcept;
  [[nodiscard]] const Elf64_Shdr* section_of(std::uint32_t type) const noexcept;
  [[nodiscard]] std::string_view name_of(const Elf64_Sym& symbol) const noexcept;
  [[nodiscard]] std::uint64_t end_of(const Elf64_Sym& symbol) const noexcept;
  [[nodiscard]] bool find_symbols() noexcept;
  void sort_functions(PageArena& arena) noexcept;

  std::string_view bytes_;  // the mapping
  bool is_sorted_ = false;
  Row<Elf64_Sym> symbols_;
  std::string_view names_;
  Row<std::uint32_t> functions_;  // indices of symbols, by address and the better one last
};

}  // namespace qk

#endif  // SYMBOLS_ELF_FILE_H_

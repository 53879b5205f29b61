#ifndef SYMBOLS_DEBUG_INFO_H_
#define SYMBOLS_DEBUG_INFO_H_

#include <cstddef>
#include <cstdint>

#include "support/page_arena.h"
#include "symbols/arena_row.h"
#include "symbols/libdw.h"

namespace qk {

/** A function at an address, as the compiler noted it. The texts are null if unknown. */
struct SourceFrame {
  const char* linkage_name;  // mangled; null for what has no mangled name, as in C
  const char* name;
  const char* file;
  int line;  // 0 if unknown
};

/** The debug information of an ELF file, read as far as it is needed. One thread at a time. */
class DebugInfo {
 public:
  constexpr DebugInfo() noexcept = default;
  DebugInfo(const DebugInfo&) = delete;
  DebugInfo& operator=(const DebugInfo&) = delete;

  /**
   * Opens a file. Uses the heap, by libdw, and memory of the arena, both until close(). Returns
   * false, with nothing opened, if it has no debug information. Close what was opened before.
   */
  [[nodiscard]] bool open(const char* path, const dwarf::Functions& libdw,
                          PageArena& arena) noexcept;

  /** Does nothing if no file is open. The texts of frames end with it. */
  void close() noexcept;

  [[nodiscard]] bool is_open() const noexcept { return session_ != nullptr; }

  /**
   * Writes the functions at an address of the file, innermost first, at most `most`: the last one
   * is there for the machine, those before it were inlined. If there are more, outer ones are left
   * out. Returns how many there are.
   */
  [[nodiscard]] int frames_at(std::uint64_t address, SourceFrame* frames, int most) noexcept;

 private:
  struct Chain;

  /** Addresses, and what has code there. */
  struct Range {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t owner;  // the index of a unit, or where the entry of a function is
  };

  /** What was compiled at once. Its functions are read when the first one is wanted. */
  struct Unit {
    std::uint64_t entry;
    bool is_read;
    ArenaRow<Range> functions;
  };

  static void sort(ArenaRow<Range>& ranges) noexcept;
  [[nodiscard]] static const Range* range_at(const ArenaRow<Range>& ranges,
                                             std::uint64_t address) noexcept;
  void read_units() noexcept;
  void add_ranges(dwarf::Die& die, std::uint64_t owner, ArenaRow<Range>& ranges) noexcept;
  void read_functions(dwarf::Die& parent, int depth, ArenaRow<Range>& functions) noexcept;
  [[nodiscard]] const Range* function_at(Unit& unit, dwarf::Die& die,
                                         std::uint64_t address) noexcept;
  void descend(std::uint64_t address, Chain& chain) noexcept;

  const dwarf::Functions* libdw_ = nullptr;
  PageArena* arena_ = nullptr;
  dwarf::Session* session_ = nullptr;
  int file_ = -1;
  ArenaRow<Unit> units_;
  ArenaRow<Range> ranges_;  // of all units
};

}  // namespace qk

#endif  // SYMBOLS_DEBUG_INFO_H_

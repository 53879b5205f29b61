#ifndef SYMBOLS_NAMES_H_
#define SYMBOLS_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/line.h"
#include "support/page_arena.h"
#include "symbols/module_list.h"

namespace qk {

/** A function in a stack of calls. */
struct Frame {
  std::string_view function;            // with its parameters in C++; empty if unknown
  std::string_view file;                // the source, as the compiler noted it; empty if unknown
  int line = 0;                         // 0 if unknown
  const KnownModule* module = nullptr;  // null if no known module had the code
  std::uintptr_t offset = 0;            // in the module's file, in the call's instruction
};

/** A return address by the list alone, without names, for signal handlers. Threads: any. */
[[nodiscard]] Frame plain_frame(const ModuleList& modules, std::uintptr_t address) noexcept;

/** Appends the function or, if that is unknown, the place: "libfoo.so.1+0x1234". */
void put_function(Line& line, const Frame& frame) noexcept;

/** How frames get their names. */
enum class NamedBy {
  kDebugInfo,     // libdw if there is one, or as the following; uses the heap
  kSymbolTables,  // the linker's names, mangled, without the heap
};

/**
 * Names the frames of return addresses, and keeps the names. One thread at a time, and not for
 * signal handlers. Constant initialized and never destroyed; what it keeps is not in the heap.
 *
 * It reads the files of modules, and separate debug information by build id in the folder that
 * packages put it in. A file that isn't the one that was loaded, by its build id, is left alone.
 */
class Names {
 public:
  /** List and folder, that of separate debug information, are the caller's and stay. */
  explicit constexpr Names(const ModuleList& modules,
                           const char* debug_folder = "/usr/lib/debug") noexcept
      : modules_(&modules), debug_folder_(debug_folder) {}
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;

  /** For frames from now on; kDebugInfo unless it is called. */
  void set_named_by(NamedBy named_by) noexcept { named_by_ = named_by; }

  /**
   * Writes the frames of return addresses, innermost first: inlined functions before the one that
   * they are in. Writes at most `most`. Returns how many there are, at least one for each address
   * unless there is no room. Their texts stay.
   */
  int frames_of(const std::uintptr_t* addresses, int depth, Frame* frames, int most) noexcept;

  /** Closes all files. Call it at the end of a report. What is known by then is kept. */
  void close() noexcept;

  /** Bytes of its own memory. */
  [[nodiscard]] std::uint64_t mapped() const noexcept { return arena_.mapped(); }

 private:
  struct Named;
  struct Opened;

  [[nodiscard]] const Named* name(std::uintptr_t address) noexcept;
  [[nodiscard]] bool is_current(Named& named) noexcept;
  [[nodiscard]] Named** place_of(std::uintptr_t address) noexcept;
  [[nodiscard]] bool ensure_room() noexcept;
  [[nodiscard]] Named* look_up(std::uintptr_t address) noexcept;
  int frames_by_debug_info(Opened& opened, const Frame& plain, Frame* frames) noexcept;
  [[nodiscard]] Opened* open(const KnownModule& module) noexcept;
  void open_files(Opened& opened) noexcept;
  [[nodiscard]] std::string_view function_at(Opened& opened, std::uintptr_t offset) noexcept;
  [[nodiscard]] std::string_view readable(std::string_view function) noexcept;
  [[nodiscard]] std::string_view keep(std::string_view text) noexcept;

  const ModuleList* modules_;
  const char* debug_folder_;
  NamedBy named_by_ = NamedBy::kDebugInfo;
  PageArena arena_;
  Opened* opened_ = nullptr;
  Named** table_ = nullptr;  // by address
  std::size_t size_ = 0;
  std::size_t used_ = 0;
};

}  // namespace qk

#endif  // SYMBOLS_NAMES_H_

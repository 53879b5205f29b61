#ifndef SYMBOLS_MODULE_LIST_H_
#define SYMBOLS_MODULE_LIST_H_

#include <link.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/modules.h"
#include "support/page_arena.h"
#include "symbols/build_id.h"

namespace qk {

/** A program or a shared library that is or was loaded. */
struct KnownModule {
  static constexpr int kMostCodeRanges = 4;

  const char* path = "";  // the program's too; absolute, but for what has no file
  BuildId build_id;
  std::uintptr_t base = 0;  // an address in memory is this plus the one in the file
  AddressRange code[kMostCodeRanges] = {};
  int code_ranges = 0;
  AddressRange whole;                      // with all that it has beside its code
  bool is_loaded = true;                   // shared
  KnownModule* next = nullptr;             // the one that was found before it
  std::uint64_t last_seen_in_refresh = 0;  // for the list itself

  [[nodiscard]] bool has_code_at(std::uintptr_t address) const noexcept;

  /** The path without its folders. */
  [[nodiscard]] std::string_view name() const noexcept;
};

/**
 * The modules of the process, or of another one that has written down its own. It also keeps those
 * that were unloaded, so that addresses of then can still be named. It knows what refresh() has seen; to miss nothing, refresh it whenever something
 * keeps an address of a module that it doesn't know.
 *
 * Reading takes no lock and allocates nothing: a signal handler can do it, also one that interrupts
 * refresh(). Entries neither move nor end. The list's memory is its own, not of the heap. Constant
 * initialized and never destroyed. Threads: any.
 */
class ModuleList {
 public:
  constexpr ModuleList() noexcept = default;
  ModuleList(const ModuleList&) = delete;
  ModuleList& operator=(const ModuleList&) = delete;

  /**
   * Brings the list up to date; takes some 100 ns if nothing was loaded or unloaded. Does nothing
   * while another thread does it, in a child of a fork as well.
   *
   * Takes a lock of the dynamic linker. So it is not for signal handlers, nor for callers with a
   * lock that a thread inside the dynamic linker can wait for.
   */
  void refresh() noexcept;

  /**
   * Adds a module of another process, which keeps its addresses. For lists that are never refreshed,
   * and one thread at a time. Copies the path. Returns false if there is no memory.
   */
  [[nodiscard]] bool add(KnownModule module) noexcept;

  /**
   * The module with `address` in its code, null if there is none. Of several that had it one after
   * another, the one that is loaded, or else the one that came last.
   */
  [[nodiscard]] const KnownModule* find(std::uintptr_t address) const noexcept;

  /** As above, for an address anywhere in the module: of code, of a literal, or of a variable. */
  [[nodiscard]] const KnownModule* find_owner(std::uintptr_t address) const noexcept;

  /** The module that came last, or null; `next` leads to the others. */
  [[nodiscard]] const KnownModule* newest() const noexcept;

  /** A number that changes whenever find() can answer differently. */
  [[nodiscard]] std::uint64_t version() const noexcept;

  /**
   * Whether a module was loaded where another one had been. libunwind keeps what it has learned of
   * code by its address: stacks through the new module can then be wrong, and the run-time's
   * unwinder is the one to use. Threads: any.
   */
  [[nodiscard]] bool reuses_addresses() const noexcept;

  /** Bytes of the list's own memory. */
  [[nodiscard]] std::uint64_t mapped() const noexcept { return arena_.mapped(); }

 private:
  [[nodiscard]] static int visit(dl_phdr_info* info, std::size_t size, void* data) noexcept;
  [[nodiscard]] bool note(const dl_phdr_info& info) noexcept;
  [[nodiscard]] bool overlaps_known(const KnownModule& module) const noexcept;
  template <class Has>
  [[nodiscard]] const KnownModule* find_if(Has has) const noexcept;
  [[nodiscard]] KnownModule* find_same(const KnownModule& module) noexcept;

  PageArena arena_;
  KnownModule* newest_ = nullptr;
  std::uint64_t version_ = 0;
  bool reuses_addresses_ = false;
  std::atomic<bool> is_refreshing_ = false;
  // Only refresh() uses these.
  std::uint64_t refreshes_ = 0;
  unsigned long long loads_seen_ = 0;
  unsigned long long unloads_seen_ = 0;
};

}  // namespace qk

#endif  // SYMBOLS_MODULE_LIST_H_

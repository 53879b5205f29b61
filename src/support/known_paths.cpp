#include "support/known_paths.h"

#include <link.h>
#include <sys/auxv.h>

namespace qk {

constinit KnownPath known_paths[kKnownPaths];

namespace {

/** The addresses of the program's literals, once they are known. */
constinit std::atomic<std::uintptr_t> literals_begin = 0;
constinit std::atomic<std::uintptr_t> literals_size = 0;

using Header = ElfW(Phdr);

/** How much higher the program lies than its headers say. */
std::uintptr_t load_offset(const Header* headers, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (headers[i].p_type == PT_PHDR) {
      return reinterpret_cast<std::uintptr_t>(headers) - headers[i].p_vaddr;
    }
  }
  return 0;
}

/** The segments in front of the first writable one lie side by side. */
void find_literals() {
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const auto* headers = reinterpret_cast<const Header*>(getauxval(AT_PHDR));
  const std::size_t count = getauxval(AT_PHNUM);
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Header& header = headers[i];
    if (header.p_type != PT_LOAD) continue;
    if ((header.p_flags & PF_W) != 0) break;
    if (end == 0) begin = header.p_vaddr;
    end = header.p_vaddr + header.p_memsz;
  }
  literals_begin.store(load_offset(headers, count) + begin, std::memory_order_relaxed);
  literals_size.store(end - begin, std::memory_order_release);
}

bool is_literal(std::uintptr_t address) {
  if (literals_size.load(std::memory_order_acquire) == 0) find_literals();
  return address - literals_begin.load(std::memory_order_relaxed) <
         literals_size.load(std::memory_order_relaxed);
}

}  // namespace

const char* search_path(const char* path) noexcept {
  const char* const name = file_name_only(path);
  const auto address = reinterpret_cast<std::uintptr_t>(path);
  if (!is_literal(address)) return name;
  const auto offset = static_cast<std::uint64_t>(name - path);
  if (offset <= 0xFFFF && address >> 47 == 0) {
    known_path_at(address).store(address << 16 | offset, std::memory_order_relaxed);
  }
  return name;
}

const char* known_path_of(const char* name) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(name);
  for (const KnownPath& path : known_paths) {
    const std::uint64_t known = path.load(std::memory_order_relaxed);
    if (~known != 0 && (known >> 16) + (known & 0xFFFF) == address) return name - (known & 0xFFFF);
  }
  return name;
}

}  // namespace qk

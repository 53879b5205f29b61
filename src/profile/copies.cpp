#include "profile/copies.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "profile/stacks.h"
#include "support/shared_variable.h"
#include "symbols/elf_note.h"

extern "C" {
/** How many copies have joined, as far as this one was told. */
[[gnu::visibility("hidden"), gnu::used]] constinit std::uint32_t qk_mem_copies_joined = 0;
}

// A note in the module of each copy leads the others to that number: it contains the distance to
// it. A symbol would do only if all of them exported it under one name, and then all would be taken
// for one.
asm(R"(
  .pushsection .note.qkmem, "a", %note
  .balign 4
  .4byte 6, 4, 1
  .asciz "qkmem"
  .balign 4
  .4byte qk_mem_copies_joined - .
  .popsection
)");

namespace qk::mem::profile {
namespace {

constexpr std::string_view kOwner = {"qkmem", sizeof "qkmem"};
constexpr std::uint32_t kType = 1;

constinit std::uint8_t has_joined = 0;
constinit std::uint32_t own_number = 1;
constinit const qk::KnownModule* own_module = nullptr;

/** The number in a copy of the library that a module contains; null if it contains none. */
std::uint32_t* number_in(const dl_phdr_info& info) {
  for (int i = 0; i < info.dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = info.dlpi_phdr[i];
    if (header.p_type != PT_NOTE) continue;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const auto* const notes = reinterpret_cast<const char*>(info.dlpi_addr + header.p_vaddr);
    const std::string_view note =
        qk::find_note({notes, header.p_memsz}, header.p_align, kOwner, kType);
    std::int32_t distance = 0;
    if (note.size() != sizeof distance) continue;
    std::memcpy(&distance, note.data(), sizeof distance);
    const auto place = reinterpret_cast<std::uintptr_t>(note.data());
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<std::uint32_t*>(place + static_cast<std::uintptr_t>(distance));
  }
  return nullptr;
}

/**
 * Modules come in the order in which they were loaded, and none is unloaded meanwhile. The first
 * copy counts, and what it has counted is stored in all others, so that it is known when the first
 * one is unloaded.
 */
int join(dl_phdr_info* info, std::size_t /*size*/, void* data) {
  auto& joined = *static_cast<std::uint32_t*>(data);
  std::uint32_t* const number = number_in(*info);
  if (number == nullptr) return 0;
  if (joined == 0) {
    joined = qk::add(*number, 1, false);
  } else {
    qk::store(*number, joined);  // the linker's lock lets in one after the other
  }
  return 0;
}

}  // namespace

void join_copies() {
  if (qk::set_flag(has_joined)) return;
  std::uint32_t joined = 0;
  dl_iterate_phdr(join, &joined);
  modules.refresh();
  qk::publish(own_module, modules.find(reinterpret_cast<std::uintptr_t>(&join_copies)));
  qk::store(own_number, std::max<std::uint32_t>(joined, 1));
}

std::uint32_t copies() { return std::max<std::uint32_t>(qk::load(qk_mem_copies_joined), 1); }

std::uint32_t number_of_this_copy() { return qk::load(own_number); }

std::string_view module_of_this_copy() {
  const qk::KnownModule* const module = qk::acquire(own_module);
  return module == nullptr ? "a module without a name" : module->name();
}

}  // namespace qk::mem::profile

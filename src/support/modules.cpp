#include "support/modules.h"

#include <elf.h>
#include <link.h>

#include <cstddef>

namespace qk {
namespace {

struct Search {
  std::uintptr_t address;
  Module found;
};

Module module_of(const dl_phdr_info& info, std::uintptr_t address) {
  Module module;
  for (int i = 0; i < info.dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = info.dlpi_phdr[i];
    if (header.p_type != PT_LOAD) continue;
    const std::uintptr_t begin = info.dlpi_addr + header.p_vaddr;
    const AddressRange range = {begin, begin + header.p_memsz};
    if ((header.p_flags & PF_X) != 0 && range.has(address)) module.code = range;
    if ((header.p_flags & PF_W) != 0) module.data = range;
  }
  if (info.dlpi_name != nullptr) module.path = info.dlpi_name;
  module.is_program = module.path[0] == '\0';
  return module;
}

int visit_module(dl_phdr_info* info, std::size_t /*size*/, void* data) {
  auto& search = *static_cast<Search*>(data);
  const Module module = module_of(*info, search.address);
  if (!module.code.has(search.address)) return 0;
  search.found = module;
  return 1;
}

}  // namespace

Module module_with(std::uintptr_t address) noexcept {
  Search search = {address, {}};
  dl_iterate_phdr(visit_module, &search);
  return search.found;
}

}  // namespace qk

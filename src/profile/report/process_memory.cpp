#include "profile/report/process_memory.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "profile/stacks.h"
#include "support/memory_map.h"
#include "support/shared_variable.h"
#include "support/text.h"
#include "support/thread_pointer.h"
#include "support/thread_stack.h"
#include "symbols/elf_file.h"

namespace qk::mem::profile {
namespace {

using qk::Mapping;

/** Longer names, such as those of templates, are cut. */
constexpr std::size_t kMostOfName = 200;

const Mapping* mapping_with(const qk::MemoryMap& map, std::uintptr_t address) {
  for (std::size_t i = 0; i < map.count(); ++i) {
    if (map.at(i).range.has(address)) return &map.at(i);
  }
  return nullptr;
}

bool is_anonymous(const Mapping& mapping) {
  return mapping.path.empty() || mapping.path.starts_with("[anon");
}

/**
 * Whether an address is on the stack that this function runs on. What is behind a thread's own data
 * is another mapping, which the system shows as one with it.
 */
bool is_on_own_stack(const Mapping& mapping, std::uintptr_t address) {
  const auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  if (!mapping.range.has(frame)) return false;
  if (mapping.path == "[stack]") return true;
  const std::uintptr_t thread = qk::thread_pointer();
  return is_anonymous(mapping) && mapping.range.has(thread) && address < thread + qk::kMostOfThread;
}

bool is_on_other_stack(const Mapping& mapping) {
  if (mapping.path == "[stack]") return true;
  return is_anonymous(mapping) && mapping.is_writable && !mapping.is_shared &&
         qk::is_stack_of_thread(mapping.range);
}

AddressKind kind_of(const Mapping& mapping, std::uintptr_t address) {
  if (!mapping.is_accessible()) return AddressKind::kInaccessible;
  if (is_on_own_stack(mapping, address)) return AddressKind::kOwnStack;
  if (is_on_other_stack(mapping)) return AddressKind::kOtherStack;
  if (mapping.path == "[heap]") return AddressKind::kHeap;
  return is_anonymous(mapping) ? AddressKind::kUnknown : AddressKind::kMappedFile;
}

const qk::KnownModule* module_with(std::uintptr_t address) {
  modules.refresh();
  const qk::KnownModule* const module = modules.find_owner(address);
  return module != nullptr && qk::load(module->is_loaded) ? module : nullptr;
}

void put_symbol(qk::Line& line, const qk::KnownModule& module, std::uintptr_t address) {
  qk::ElfFile file;
  if (!file.open(module.path)) return;
  if (file.build_id().text() == module.build_id.text()) {
    const qk::ElfFile::Symbol symbol = file.symbol_at(address - module.base);
    if (!symbol.name.empty()) line.put(": ").put(symbol.name.substr(0, kMostOfName));
    if (symbol.offset != 0) line.put('+').number(symbol.offset);
  }
  file.close();
}

}  // namespace

ProcessMemory find_in_process(const void* address) {
  const auto number = reinterpret_cast<std::uintptr_t>(address);
  const qk::MemoryMap map;
  const Mapping* const mapping = mapping_with(map, number);
  if (map.is_complete() && mapping == nullptr) return {AddressKind::kUnmapped};
  const qk::KnownModule* const module = module_with(number);
  if (module != nullptr && (mapping == nullptr || mapping->is_accessible())) {
    return {module->has_code_at(number) ? AddressKind::kCode : AddressKind::kStatic, module};
  }
  if (mapping == nullptr) return {AddressKind::kUnknown};
  ProcessMemory memory = {kind_of(*mapping, number)};
  if (memory.kind != AddressKind::kMappedFile) return memory;
  const std::string_view path = mapping->path;
  const std::string_view file = path.substr(path.rfind('/') + 1);
  std::copy_n(file.data(), std::min(file.size(), sizeof memory.file - 1), memory.file);
  return memory;
}

void put_process_memory(qk::Line& line, const ProcessMemory& memory, const void* address) {
  switch (memory.kind) {
    case AddressKind::kCode:
      line.put("in code of ").put(memory.module->name());
      break;
    case AddressKind::kStatic:
      line.put("in static data of ").put(memory.module->name());
      break;
    case AddressKind::kOwnStack:
      line.put("on the stack of the calling thread");
      break;
    case AddressKind::kOtherStack:
      line.put("on the stack of another thread");
      break;
    case AddressKind::kMappedFile:
      line.put("in the mapping of ").put(memory.file);
      break;
    case AddressKind::kHeap:
      line.put("unknown: in the heap, but in no record of a handle");
      break;
    case AddressKind::kUnmapped:
      line.put("unknown: not mapped, no memory at all");
      break;
    case AddressKind::kInaccessible:
      line.put("unknown: in memory that can't be accessed");
      break;
    default:
      line.put("unknown: in no record of a handle");
  }
  if (memory.module != nullptr) {
    put_symbol(line, *memory.module, reinterpret_cast<std::uintptr_t>(address));
  }
}

}  // namespace qk::mem::profile

#include "symbols/module_list.h"

#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "support/keep_errno.h"
#include "support/shared_variable.h"
#include "support/system_memory.h"
#include "support/text.h"

namespace qk {
namespace {

/** A path of any module. */
struct Path {
  char text[2 * PATH_MAX];
};

/**
 * Copies a name of the dynamic linker, under whose lock it is written and read: the thread sanitizer
 * sees nothing of that lock, but would see a function of the C library.
 */
[[gnu::no_sanitize("thread")]] void copy_name(char* to, std::size_t size, const char* name) {
  const volatile char* from = name;
  while (--size != 0 && *from != '\0') *to++ = *from++;
  *to = '\0';
}

/** The path of a module: the program's by a link of the system, a relative one made absolute. */
void find_path(const dl_phdr_info& info, Path& path) {
  char name[PATH_MAX];
  copy_name(name, sizeof name, info.dlpi_name == nullptr ? "" : info.dlpi_name);
  if (name[0] == '\0') {
    const ssize_t length = readlink("/proc/self/exe", path.text, PATH_MAX);
    path.text[std::max<ssize_t>(length, 0)] = '\0';
    return;
  }
  std::size_t length = 0;
  if (name[0] != '/' && std::strchr(name, '/') != nullptr &&
      getcwd(path.text, PATH_MAX) != nullptr) {
    length = std::strlen(path.text);
    path.text[length++] = '/';
  }
  copy_text(path.text + length, sizeof path.text - length, name);
}

/** More ranges than there is room for become part of the last one. */
void add_code(KnownModule& module, const AddressRange& range) {
  if (module.code_ranges < KnownModule::kMostCodeRanges) {
    module.code[module.code_ranges++] = range;
  } else {
    AddressRange& last = module.code[module.code_ranges - 1];
    last = {std::min(last.begin, range.begin), std::max(last.end, range.end)};
  }
}

void extend(AddressRange& whole, const AddressRange& range) {
  if (whole.end == 0) whole = range;
  whole = {std::min(whole.begin, range.begin), std::max(whole.end, range.end)};
}

void describe(const dl_phdr_info& info, KnownModule& module) {
  module.base = info.dlpi_addr;
  for (int i = 0; i < info.dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = info.dlpi_phdr[i];
    const std::uintptr_t begin = info.dlpi_addr + header.p_vaddr;
    if (header.p_type == PT_LOAD) extend(module.whole, {begin, begin + header.p_memsz});
    if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
      add_code(module, {begin, begin + header.p_memsz});
    } else if (header.p_type == PT_NOTE && module.build_id.text().empty()) {
      // NOLINTNEXTLINE(performance-no-int-to-ptr)
      const auto* const notes = reinterpret_cast<const char*>(begin);
      module.build_id = BuildId({notes, header.p_memsz}, header.p_align);
    }
  }
}

bool is_same(const KnownModule& one, const KnownModule& other) {
  return one.base == other.base && one.code[0].begin == other.code[0].begin &&
         one.code[0].end == other.code[0].end && one.build_id.text() == other.build_id.text() &&
         std::strcmp(one.path, other.path) == 0;
}

bool overlap(const KnownModule& one, const KnownModule& other) {
  const auto meets_other = [&other](const AddressRange& range) {
    return std::any_of(other.code, other.code + other.code_ranges, [&range](const auto& another) {
      return range.begin < another.end && another.begin < range.end;
    });
  };
  return std::any_of(one.code, one.code + one.code_ranges, meets_other);
}

struct Refresh {
  ModuleList* list;
  bool is_first = true;
  bool is_complete = true;
  unsigned long long loads = 0;
  unsigned long long unloads = 0;
};

}  // namespace

bool KnownModule::has_code_at(std::uintptr_t address) const noexcept {
  return std::any_of(code, code + code_ranges,
                     [address](const AddressRange& range) { return range.has(address); });
}

std::string_view KnownModule::name() const noexcept { return file_name_only(path); }

int ModuleList::visit(dl_phdr_info* info, std::size_t size, void* data) noexcept {
  auto& refresh = *static_cast<Refresh*>(data);
  const bool is_first = refresh.is_first;
  refresh.is_first = false;
  if (is_first && size >= offsetof(dl_phdr_info, dlpi_subs) + sizeof info->dlpi_subs) {
    refresh.loads = info->dlpi_adds;
    refresh.unloads = info->dlpi_subs;
    if (refresh.loads == refresh.list->loads_seen_ &&
        refresh.unloads == refresh.list->unloads_seen_) {
      return 1;
    }
  }
  if (is_first) ++refresh.list->refreshes_;
  if (!refresh.list->note(*info)) refresh.is_complete = false;
  return 0;
}

void ModuleList::refresh() noexcept {
  if (is_refreshing_.exchange(true, std::memory_order_acquire)) return;
  const KeepErrno keep;
  Refresh refresh = {this};
  const bool is_unchanged = dl_iterate_phdr(visit, &refresh) != 0;
  if (!is_unchanged) {
    for (KnownModule* module = newest_; module != nullptr; module = module->next) {
      store(module->is_loaded, module->last_seen_in_refresh == refreshes_);
    }
    if (refresh.is_complete) {
      loads_seen_ = refresh.loads;
      unloads_seen_ = refresh.unloads;
    }
    publish(version_, refreshes_);
  }
  is_refreshing_.store(false, std::memory_order_release);
}

/** Returns false if there is no memory for a new module. */
bool ModuleList::note(const dl_phdr_info& info) noexcept {
  Path path;
  find_path(info, path);
  KnownModule module;
  module.path = path.text;
  describe(info, module);
  KnownModule* const known = find_same(module);
  if (known == nullptr) return add(module);
  known->last_seen_in_refresh = refreshes_;
  return true;
}

bool ModuleList::overlaps_known(const KnownModule& module) const noexcept {
  const KnownModule* known = newest_;
  while (known != nullptr && !overlap(*known, module)) known = known->next;
  return known != nullptr;
}

KnownModule* ModuleList::find_same(const KnownModule& module) noexcept {
  KnownModule* known = newest_;
  while (known != nullptr && !is_same(*known, module)) {
    known = known->next;
  }
  return known;
}

bool ModuleList::add(KnownModule module) noexcept {
  const std::size_t bytes = std::strlen(module.path) + 1;
  void* const path = arena_.take(bytes);
  void* const memory = arena_.take(sizeof module);
  if (path == nullptr || memory == nullptr) {
    arena_.give_back(path, bytes);
    arena_.give_back(memory, sizeof module);
    return false;
  }
  if (overlaps_known(module)) store(reuses_addresses_, true);
  module.path = static_cast<const char*>(std::memcpy(path, module.path, bytes));
  module.next = newest_;
  module.last_seen_in_refresh = refreshes_;
  publish(newest_, own_memory::make_in<KnownModule>(memory, module));
  return true;
}

template <class Has>
const KnownModule* ModuleList::find_if(Has has) const noexcept {
  const KnownModule* unloaded = nullptr;
  for (const KnownModule* module = newest(); module != nullptr; module = module->next) {
    if (!has(*module)) continue;
    if (load(module->is_loaded)) return module;
    if (unloaded == nullptr) unloaded = module;
  }
  return unloaded;
}

const KnownModule* ModuleList::find(std::uintptr_t address) const noexcept {
  return find_if([address](const KnownModule& module) { return module.has_code_at(address); });
}

const KnownModule* ModuleList::find_owner(std::uintptr_t address) const noexcept {
  return find_if([address](const KnownModule& module) { return module.whole.has(address); });
}

const KnownModule* ModuleList::newest() const noexcept { return acquire(newest_); }

bool ModuleList::reuses_addresses() const noexcept { return load(reuses_addresses_); }

std::uint64_t ModuleList::version() const noexcept { return acquire(version_); }

}  // namespace qk

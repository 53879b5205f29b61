#include "symbols/names.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstring>

#include "support/system_memory.h"
#include "symbols/debug_info.h"
#include "symbols/elf_file.h"

namespace qk {
namespace {

constexpr int kMostAtOnce = 64;  // functions at one address, one inlined in another

/** The number of places of the first table. */
constexpr std::size_t kFirstSize = 1024;

std::string_view view_of(const char* text) { return text == nullptr ? "" : text; }

bool is_mangled(std::string_view function) { return function.starts_with("_Z"); }

/** Without what compilers append to the names of a function's parts and variants. */
std::string_view without_variant(std::string_view function) {
  for (const std::string_view variant :
       {" [clone ", ".cold", ".constprop.", ".isra.", ".part.", ".lto_priv.", ".llvm.", "@"}) {
    function = function.substr(0, function.find(variant));
  }
  return function;
}

/** The path of separate debug information; empty without a build id. */
class DebugPath {
 public:
  DebugPath(std::string_view folder, const BuildId& id) {
    const std::string_view digits = id.text();
    if (digits.size() < 4) return;
    line_.put(folder).put("/.build-id/").put(digits.substr(0, 2)).put('/');
    line_.put(digits.substr(2)).put(".debug").put('\0');
  }

  [[nodiscard]] const char* text() {
    const std::string_view text = line_.finish();
    return text.ends_with('\0') ? text.data() : "";
  }

 private:
  Line line_;
};

}  // namespace

/** What is known of an address. The frames follow. */
struct Names::Named {
  std::uintptr_t address;
  std::uint64_t count;
  std::uint64_t version;  // the list's when the module was looked up

  [[nodiscard]] Frame* frames() { return reinterpret_cast<Frame*>(this + 1); }
  [[nodiscard]] const Frame* frames() const { return reinterpret_cast<const Frame*>(this + 1); }
};

/** The files of a module. */
struct Names::Opened {
  const KnownModule* module = nullptr;
  Opened* next = nullptr;
  bool are_open = false;
  ElfFile file;
  ElfFile separate;
  DebugInfo debug_info;
};

Frame plain_frame(const ModuleList& modules, std::uintptr_t address) noexcept {
  Frame frame;
  const std::uintptr_t call = address == 0 ? 0 : address - 1;
  frame.module = modules.find(call);
  frame.offset = frame.module == nullptr ? call : call - frame.module->base;
  return frame;
}

void put_function(Line& line, const Frame& frame) noexcept {
  if (!frame.function.empty()) {
    line.put(frame.function);
    return;
  }
  if (frame.module != nullptr) line.put(frame.module->name()).put('+');
  line.put("0x").hex(frame.offset, 1);
}

int Names::frames_of(const std::uintptr_t* addresses, int depth, Frame* frames, int most) noexcept {
  int count = 0;
  for (int i = 0; i < depth && count < most; ++i) {
    const Named* const named = name(addresses[i]);
    if (named == nullptr) {
      frames[count++] = plain_frame(*modules_, addresses[i]);
      continue;
    }
    const int fitting = std::min(most - count, static_cast<int>(named->count));
    std::copy_n(named->frames(), fitting, frames + count);
    count += fitting;
  }
  return count;
}

void Names::close() noexcept {
  for (Opened* opened = opened_; opened != nullptr; opened = opened->next) {
    opened->file.close();
    opened->separate.close();
    opened->debug_info.close();
    opened->are_open = false;
  }
}

/** Returns null if there is no memory. */
const Names::Named* Names::name(std::uintptr_t address) noexcept {
  if (!ensure_room()) return nullptr;
  Named** const place = place_of(address);
  if (*place != nullptr && is_current(**place)) return *place;
  Named* const named = look_up(address);
  if (named == nullptr) return nullptr;
  if (*place == nullptr) ++used_;
  *place = named;
  return named;
}

/** Another module can have been loaded where one was. */
bool Names::is_current(Named& named) noexcept {
  const std::uint64_t version = modules_->version();
  if (named.version == version) return true;
  if (plain_frame(*modules_, named.address).module != named.frames()->module) return false;
  named.version = version;
  return true;
}

/** The place of an address in the table, or where it would be. */
Names::Named** Names::place_of(std::uintptr_t address) noexcept {
  const std::size_t mask = size_ - 1;
  std::size_t place = (address * 0x9E3779B97F4A7C15) >> 32 & mask;
  while (table_[place] != nullptr && table_[place]->address != address) place = (place + 1) & mask;
  return &table_[place];
}

/** Room for one more address, with half of the table free. */
bool Names::ensure_room() noexcept {
  if (used_ < size_ / 2) return true;
  const std::size_t old_size = size_;
  const std::size_t size = std::max(2 * size_, kFirstSize);
  auto** const table = static_cast<Named**>(arena_.take(size * sizeof(Named*)));
  if (table == nullptr) return false;
  Named** const old = table_;
  table_ = table;
  size_ = size;
  for (std::size_t i = 0; i < old_size; ++i) {
    if (old[i] != nullptr) *place_of(old[i]->address) = old[i];
  }
  arena_.give_back(old, old_size * sizeof(Named*));
  return true;
}

Names::Named* Names::look_up(std::uintptr_t address) noexcept {
  const std::uint64_t version = modules_->version();
  Frame frames[kMostAtOnce] = {plain_frame(*modules_, address)};
  int count = 0;
  Opened* const opened = frames[0].module == nullptr ? nullptr : open(*frames[0].module);
  if (opened != nullptr) {
    const Frame plain = frames[0];
    count = frames_by_debug_info(*opened, plain, frames);
    if (count == 0) frames[0].function = readable(function_at(*opened, plain.offset));
  }
  count = std::max(count, 1);
  const auto bytes = static_cast<std::size_t>(count) * sizeof(Frame);
  auto* const named = static_cast<Named*>(arena_.take(sizeof(Named) + bytes));
  if (named == nullptr) return nullptr;
  named->address = address;
  named->count = static_cast<std::uint64_t>(count);
  named->version = version;
  std::copy_n(frames, count, named->frames());
  return named;
}

/** Writes at most kMostAtOnce frames, and returns how many. */
int Names::frames_by_debug_info(Opened& opened, const Frame& plain, Frame* frames) noexcept {
  if (!opened.debug_info.is_open()) return 0;
  SourceFrame found[kMostAtOnce];
  const int count = opened.debug_info.frames_at(plain.offset, found, kMostAtOnce);
  std::transform(found, found + count, frames, [&](const SourceFrame& source) {
    Frame frame = plain;
    const bool is_linked = source.linkage_name != nullptr;
    frame.function = readable(view_of(is_linked ? source.linkage_name : source.name));
    frame.file = keep(view_of(source.file));
    frame.line = source.line;
    return frame;
  });
  if (count == 0 || found[count - 1].linkage_name != nullptr) return count;
  // It may have no name, or in C++ one without its scope. The linker's name has that.
  const std::string_view linked = function_at(opened, plain.offset);
  if (found[count - 1].name == nullptr || is_mangled(linked)) {
    frames[count - 1].function = readable(linked);
  }
  return count;
}

/** Returns null if there is no memory. */
Names::Opened* Names::open(const KnownModule& module) noexcept {
  Opened* opened = opened_;
  while (opened != nullptr && opened->module != &module) opened = opened->next;
  if (opened == nullptr) {
    void* const memory = arena_.take(sizeof(Opened));
    if (memory == nullptr) return nullptr;
    opened = own_memory::make_in<Opened>(memory);
    opened->module = &module;
    opened->next = opened_;
    opened_ = opened;
  }
  if (!opened->are_open) open_files(*opened);
  opened->are_open = true;
  return opened;
}

void Names::open_files(Opened& opened) noexcept {
  const BuildId& id = opened.module->build_id;
  const char* const path = opened.module->path;
  if (opened.file.open(path) && opened.file.build_id().text() != id.text()) opened.file.close();
  DebugPath separate(debug_folder_, id);
  if (opened.separate.open(separate.text()) && opened.separate.build_id().text() != id.text()) {
    opened.separate.close();
  }
  const dwarf::Functions* const libdw = named_by_ == NamedBy::kDebugInfo ? dwarf::load() : nullptr;
  if (libdw == nullptr) return;
  if (opened.file.is_open() && opened.debug_info.open(path, *libdw, arena_)) return;
  if (opened.separate.is_open()) {
    (void)opened.debug_info.open(separate.text(), *libdw, arena_);
  }
}

/** The linker's name of a function, empty if it is unknown. */
std::string_view Names::function_at(Opened& opened, std::uintptr_t offset) noexcept {
  ElfFile& file = opened.separate.has_all_functions() && !opened.file.has_all_functions()
                      ? opened.separate
                      : opened.file;
  return file.function_at(offset, arena_);
}

/** A copy of a linker's name, demangled if the heap may be used. */
std::string_view Names::readable(std::string_view function) noexcept {
  const std::string_view linked = keep(function);
  if (!is_mangled(linked) || named_by_ != NamedBy::kDebugInfo) return without_variant(linked);
  int status = 0;
  // It ends where the text does: keep() has terminated it.
  char* const demangled = abi::__cxa_demangle(linked.data(), nullptr, nullptr, &status);
  if (demangled == nullptr) return linked;
  const std::string_view kept = keep(without_variant(demangled));
  own_memory::release(demangled);
  return kept;
}

/** A terminated copy; empty if there is no memory. */
std::string_view Names::keep(std::string_view text) noexcept {
  if (text.empty()) return {};
  auto* const copy = static_cast<char*>(arena_.take(text.size() + 1));
  if (copy == nullptr) return {};
  std::memcpy(copy, text.data(), text.size());
  return {copy, text.size()};
}

}  // namespace qk

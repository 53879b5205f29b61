#include "symbols/debug_info.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "support/keep_errno.h"

namespace qk {
namespace {

using dwarf::Attribute;
using dwarf::Die;
using dwarf::Functions;

const char* text_of(const Functions& libdw, Die& die, unsigned int name) {
  Attribute attribute = {};
  if (libdw.attr_integrate(&die, name, &attribute) == nullptr) return nullptr;
  return libdw.formstring(&attribute);
}

std::uint64_t number_of(const Functions& libdw, Die& die, unsigned int name) {
  Attribute attribute = {};
  std::uint64_t value = 0;
  if (libdw.attr_integrate(&die, name, &attribute) == nullptr) return 0;
  return libdw.formudata(&attribute, &value) == 0 ? value : 0;
}

/** A place in a source file. */
struct Place {
  const char* file = nullptr;
  int line = 0;
};

Place place_at(const Functions& libdw, Die& unit, std::uint64_t address) {
  dwarf::Line* const line = libdw.getsrc_die(&unit, address);
  Place place;
  if (line == nullptr || libdw.lineno(line, &place.line) != 0) return {};
  place.file = libdw.linesrc(line, nullptr, nullptr);
  return place;
}

/** Where an inlined function was called. */
Place call_of(const Functions& libdw, Die& unit, Die& inlined) {
  dwarf::Files* files = nullptr;
  std::size_t count = 0;
  const std::uint64_t file = number_of(libdw, inlined, dwarf::kCallFile);
  Place place;
  if (libdw.getsrcfiles(&unit, &files, &count) == 0 && file < count) {
    place.file = libdw.filesrc(files, file, nullptr, nullptr);
  }
  place.line = static_cast<int>(number_of(libdw, inlined, dwarf::kCallLine));
  return place;
}

/** Whether functions with code are also looked for inside an entry. */
bool can_have_functions(int tag) {
  return tag == dwarf::kTagNamespace || tag == dwarf::kTagStructure || tag == dwarf::kTagClass ||
         tag == dwarf::kTagUnion || tag == dwarf::kTagModule;
}

/**
 * libdw crashes here and there when it gets no memory. It needs several times the size of a file
 * with compressed parts.
 */
bool has_memory_for(int file) {
  constexpr std::size_t kLeast = std::size_t{64} << 20;
  struct stat status = {};
  if (::fstat(file, &status) != 0) return false;
  const std::size_t bytes = kLeast + 8 * static_cast<std::size_t>(status.st_size);
  void* const pages =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) return false;
  munmap(pages, bytes);
  return true;
}

constexpr int kMostNested = 32;  // scopes in scopes; damaged files can have any number

}  // namespace

/** The functions at an address, outermost first. Room for more is a matter of damaged files. */
struct DebugInfo::Chain {
  static constexpr int kMost = 64;

  Die functions[kMost];
  int count = 0;
};

bool DebugInfo::open(const char* path, const Functions& libdw, PageArena& arena) noexcept {
  const KeepErrno keep;
  file_ = ::open(path, O_RDONLY | O_CLOEXEC);
  if (file_ < 0) return false;
  constexpr int kRead = 0;
  libdw_ = &libdw;
  arena_ = &arena;
  if (has_memory_for(file_)) session_ = libdw.begin(file_, kRead);
  if (session_ != nullptr) read_units();
  if (ranges_.size() == 0) close();
  return is_open();
}

void DebugInfo::close() noexcept {
  const KeepErrno keep;
  if (session_ != nullptr) libdw_->end(session_);
  if (file_ >= 0) ::close(file_);
  session_ = nullptr;
  file_ = -1;
  if (arena_ == nullptr) return;
  for (Unit& unit : units_) unit.functions.clear(*arena_);
  units_.clear(*arena_);
  ranges_.clear(*arena_);
}

void DebugInfo::sort(ArenaRow<Range>& ranges) noexcept {
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& left, const Range& right) { return left.begin < right.begin; });
}

/** Returns null if there is none. */
const DebugInfo::Range* DebugInfo::range_at(const ArenaRow<Range>& ranges,
                                            std::uint64_t address) noexcept {
  const Range* const behind = std::upper_bound(
      ranges.begin(), ranges.end(), address,
      [](std::uint64_t wanted, const Range& range) { return wanted < range.begin; });
  if (behind == ranges.begin() || address >= behind[-1].end) return nullptr;
  return &behind[-1];
}

/** Asks each unit: compilers don't always write the table of all units' addresses. */
void DebugInfo::read_units() noexcept {
  std::uint64_t next = 0;
  std::size_t header = 0;
  for (std::uint64_t offset = 0;
       libdw_->nextcu(session_, offset, &next, &header, nullptr, nullptr, nullptr) == 0;
       offset = next) {
    Die die = {};
    const Unit unit = {offset + header, false, {}};
    if (libdw_->offdie(session_, unit.entry, &die) == nullptr) continue;
    add_ranges(die, units_.size(), ranges_);
    if (!units_.add(unit, *arena_)) return;
  }
  sort(ranges_);
}

void DebugInfo::add_ranges(Die& die, std::uint64_t owner, ArenaRow<Range>& ranges) noexcept {
  std::uint64_t base = 0;
  std::ptrdiff_t next = 0;
  Range range = {0, 0, owner};
  while ((next = libdw_->ranges(&die, next, &base, &range.begin, &range.end)) > 0) {
    if (!ranges.add(range, *arena_)) return;
  }
}

void DebugInfo::read_functions(Die& parent, int depth, ArenaRow<Range>& functions) noexcept {
  Die die = {};
  if (depth == kMostNested || libdw_->child(&parent, &die) != 0) return;
  do {
    const int tag = libdw_->tag(&die);
    if (tag == dwarf::kTagFunction) {
      add_ranges(die, libdw_->dieoffset(&die), functions);
    } else if (can_have_functions(tag)) {
      read_functions(die, depth + 1, functions);
    }
  } while (libdw_->siblingof(&die, &die) == 0);
}

/** Returns null if there is none. */
const DebugInfo::Range* DebugInfo::function_at(Unit& unit, Die& die,
                                               std::uint64_t address) noexcept {
  if (!unit.is_read) {
    unit.is_read = true;
    read_functions(die, 0, unit.functions);
    sort(unit.functions);
  }
  return range_at(unit.functions, address);
}

/** From the function in the chain to what was inlined in it at the address. */
void DebugInfo::descend(std::uint64_t address, Chain& chain) noexcept {
  Die inside = chain.functions[0];
  Die die = {};
  int depth = 0;
  while (depth < kMostNested * 2 && libdw_->child(&inside, &die) == 0) {
    bool is_inside = false;
    do {
      const int tag = libdw_->tag(&die);
      const bool is_scope = tag == dwarf::kTagInlined || tag == dwarf::kTagBlock;
      is_inside = is_scope && libdw_->haspc(&die, address) == 1;
      if (!is_inside) continue;
      if (tag == dwarf::kTagInlined && chain.count < Chain::kMost) {
        chain.functions[chain.count++] = die;
      }
      inside = die;
      ++depth;
    } while (!is_inside && libdw_->siblingof(&die, &die) == 0);
    if (!is_inside) return;
  }
}

int DebugInfo::frames_at(std::uint64_t address, SourceFrame* frames, int most) noexcept {
  const Range* const range = range_at(ranges_, address);
  if (most <= 0 || range == nullptr) return 0;
  Unit& unit = units_[range->owner];
  Die die = {};
  if (libdw_->offdie(session_, unit.entry, &die) == nullptr) return 0;
  Place place = place_at(*libdw_, die, address);
  Chain chain;
  const Range* const function = function_at(unit, die, address);
  if (function == nullptr ||
      libdw_->offdie(session_, function->owner, &chain.functions[0]) == nullptr) {
    frames[0] = {nullptr, nullptr, place.file, place.line};
    return 1;
  }
  chain.count = 1;
  descend(address, chain);
  int count = 0;
  while (chain.count > 0 && count < most) {
    Die& called = chain.functions[--chain.count];
    frames[count++] = {text_of(*libdw_, called, dwarf::kLinkageName),
                       text_of(*libdw_, called, dwarf::kName), place.file, place.line};
    if (chain.count > 0) place = call_of(*libdw_, die, called);
  }
  return count;
}

}  // namespace qk

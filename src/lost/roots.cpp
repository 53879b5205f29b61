#include "lost/roots.h"

#include <algorithm>

#include "support/ending_signals.h"
#include "support/thread_stack.h"
#include "support/tolerant_reading.h"

namespace qk::mem::lost {
namespace {

using qk::AddressRange;
using qk::Mapping;
using qk::glibc::Chunk;
using qk::glibc::Heap;

/** Functions may use so much below the stack pointer. */
constexpr std::uintptr_t kRedZone = 128;

/** From this size on it is worth asking which pages of a mapping were ever written. */
constexpr std::uintptr_t kMayBeSparse = std::uintptr_t{16} << 20;

bool is_anonymous(const Mapping& mapping) {
  return mapping.path.empty() || mapping.path.starts_with("[anon");
}

/** Memory that processes share lies in files of the system. Other files hold no addresses. */
bool is_shared_memory(std::string_view path) {
  return path.starts_with("/memfd:") || path.starts_with("/dev/shm/") ||
         path.starts_with("/dev/zero") || path.starts_with("/SYSV");
}

bool is_root(const Mapping& mapping) {
  if (!mapping.is_readable) return false;
  if (mapping.is_of_file()) {
    return mapping.is_writable && (is_shared_memory(mapping.path) ||
                                   (!mapping.is_shared && !mapping.path.starts_with("/dev/")));
  }
  return is_anonymous(mapping) || mapping.path == "[heap]" || mapping.path == "[stack]";
}

bool is_between(const AddressRange& range, std::uintptr_t address) {
  return address > range.begin && address < range.end;
}

}  // namespace

Roots::Roots(const qk::MemoryMap& map, const Areas& areas, Ranges& own,
             const Process& process) noexcept
    : map_(map), areas_(areas), own_(own), process_(process), fast_chunks_([&] {
        find_main_arena();
        std::size_t count = 0;
        if (main_arena_ != 0) count += qk::glibc::fast_chunks_of(main_arena_);
        for_each_heap([&count](const Heap& heap) {
          if (heap.arena != 0) count += qk::glibc::fast_chunks_of(heap.arena);
        });
        return count;
      }()) {
  static_cast<void>(own.push_back(unused_of_signal_stack()));
  if (main_arena_ != 0) {
    static_cast<void>(own.push_back(qk::glibc::own_data_of(main_arena_)));
  }
  std::sort(own.begin(), own.end(), [](const AddressRange& left, const AddressRange& right) {
    return left.begin < right.begin;
  });
  find_fast_chunks();
}

/** Calls `visit` with all heaps that are recognized. */
template <class Visit>
void Roots::for_each_heap(Visit visit) const {
  for (std::size_t i = 0; i < map_.count(); ++i) {
    const AddressRange& range = map_.at(i).range;
    for (auto heap = next_heap(i, range.begin); heap; heap = next_heap(i, heap->all.end)) {
      visit(*heap);
    }
  }
}

/** The first heap of a mapping from an address on. */
std::optional<Heap> Roots::next_heap(std::size_t mapping, std::uintptr_t from) const {
  const Mapping& m = map_.at(mapping);
  if (!m.is_readable || !m.is_writable || m.is_shared) return std::nullopt;
  if (m.path == "[heap]") {
    if (from != m.range.begin) return std::nullopt;
    const std::uint32_t area = areas_.first_behind(m.range.begin);
    return qk::glibc::main_heap_in(m.range,
                                   area < areas_.count() ? areas_.at(area).range.begin : 0);
  }
  return is_anonymous(m) ? qk::glibc::other_heap_in(m.range, from) : std::nullopt;
}

void Roots::find_main_arena() {
  for_each_heap([this](const Heap& heap) {
    if (heap.arena != 0 || main_arena_ != 0) return;
    const std::uintptr_t last = qk::glibc::last_chunk_of(heap);
    for (std::size_t i = 0; i < map_.count() && main_arena_ == 0; ++i) {
      if (is_data(i)) main_arena_ = qk::glibc::find_main_arena(last, map_.at(i).range);
    }
  });
}

void Roots::find_fast_chunks() {
  if (main_arena_ != 0) qk::glibc::add_fast_chunks(main_arena_, fast_chunks_);
  for_each_heap([this](const Heap& heap) {
    if (heap.arena != 0) qk::glibc::add_fast_chunks(heap.arena, fast_chunks_);
  });
  std::sort(fast_chunks_.begin(), fast_chunks_.end());
}

/** Variables of a module: those with a value are its file's, the others follow. */
bool Roots::is_data(std::size_t mapping) const {
  const Mapping& m = map_.at(mapping);
  if (!m.is_readable || !m.is_writable || m.is_shared) return false;
  if (m.is_of_file()) return true;
  if (!m.path.empty() || mapping == 0) return false;
  const Mapping& before = map_.at(mapping - 1);
  return before.range.end == m.range.begin && before.is_writable && before.is_of_file() &&
         !before.is_shared;
}

/** The C library puts a page that nobody can touch below each. */
bool Roots::is_stack_of_thread(std::size_t mapping) const {
  const Mapping& m = map_.at(mapping);
  if (mapping == 0 || !is_anonymous(m) || !m.is_writable || m.is_shared) return false;
  const Mapping& before = map_.at(mapping - 1);
  return before.range.end == m.range.begin && !before.is_accessible();
}

/** 0 if there is none. */
std::uintptr_t Roots::lowest_stack_pointer_in(AddressRange range) const {
  std::uintptr_t lowest = UINTPTR_MAX;
  const auto consider = [&](std::uintptr_t stack_pointer) {
    if (is_between(range, stack_pointer)) lowest = std::min(lowest, stack_pointer);
  };
  for (const std::uintptr_t stack_pointer : process_.caller.stack_pointers) consider(stack_pointer);
  for (const qk::ThreadState& other : process_.others) consider(other.stack_pointer);
  return lowest == UINTPTR_MAX ? 0 : lowest;
}

/** This search, which looks at addresses of blocks, can be at work there. */
AddressRange Roots::unused_of_signal_stack() const {
  AddressRange stack = qk::signal_stack();
  const std::uintptr_t stack_pointer = lowest_stack_pointer_in(stack);
  if (stack_pointer != 0) stack.end = stack_pointer;
  return stack;
}

bool Roots::is_alive(std::uintptr_t thread_pointer) const {
  if (thread_pointer == process_.caller.thread_pointer) return true;
  if (!process_.knows_threads) return !qk::has_thread_ended(thread_pointer);
  return std::any_of(
      process_.others.begin(), process_.others.end(),
      [=](const qk::ThreadState& other) { return other.thread_pointer == thread_pointer; });
}

/** Where what is in use of a mapping begins: what is below may be left from earlier calls. */
std::uintptr_t Roots::begin_of_use(std::size_t mapping) const {
  const Mapping& m = map_.at(mapping);
  const bool is_main_stack = m.path == "[stack]";
  if (!is_main_stack && !is_stack_of_thread(mapping)) return m.range.begin;
  const std::uintptr_t thread = is_main_stack ? m.range.end : qk::thread_of_stack(m.range);
  if (thread == 0) return m.range.begin;
  if (!is_main_stack && !is_alive(thread)) return thread;
  const std::uintptr_t stack_pointer = lowest_stack_pointer_in({m.range.begin, thread});
  return stack_pointer == 0 ? m.range.begin : std::max(stack_pointer - kRedZone, m.range.begin);
}

void Roots::keep(Search& search) {
  for (const qk::ThreadState& other : process_.others) {
    const auto registers = reinterpret_cast<std::uintptr_t>(other.registers);
    search.keep_from({registers, registers + other.words * sizeof other.registers[0]});
  }
  struct Rest {
    Roots& roots;
    Search& search;
  } rest = {*this, search};
  while (next_mapping_ < map_.count()) {
    qk::read_as_far_as_possible(
        [](void* data) {
          Roots& roots = static_cast<Rest*>(data)->roots;
          while (roots.next_mapping_ < roots.map_.count()) {
            roots.keep_from_mapping(static_cast<Rest*>(data)->search, roots.next_mapping_++);
          }
        },
        &rest);
  }
}

void Roots::keep_from_mapping(Search& search, std::size_t mapping) {
  const Mapping& m = map_.at(mapping);
  if (!is_root(m)) return;
  if (is_data(mapping)) return keep_from(search, m.range, Placed::kForGood);
  std::uintptr_t at = begin_of_use(mapping);
  if (m.path == "[stack]") return keep_from(search, {at, m.range.end}, Placed::kForGood);
  for (auto heap = next_heap(mapping, at); heap; heap = next_heap(mapping, at)) {
    knows_heap_ = true;
    keep_from(search, {at, heap->all.begin}, Placed::kOnHeap);
    keep_from_heap(search, *heap);
    at = heap->all.end;
  }
  const AddressRange rest = {at, m.range.end};
  if (rest.end - rest.begin >= kMayBeSparse && is_anonymous(m) && !m.is_shared) {
    keep_from_sparse(search, rest);
  } else {
    keep_from(search, rest, Placed::kOnHeap);
  }
}

void Roots::keep_from_sparse(Search& search, AddressRange range) {
  constexpr std::uintptr_t kPage = 4096;
  const std::uintptr_t pages = (range.begin + kPage - 1) & ~(kPage - 1);
  keep_from(search, {range.begin, pages}, Placed::kOnHeap);
  for (AddressRange rest = {pages, range.end}; rest.begin < rest.end;) {
    const AddressRange part = resident_.first_in(rest);
    keep_from(search, part, Placed::kOnHeap);
    rest.begin = part.end;
  }
}

void Roots::keep_from_heap(Search& search, const Heap& heap) {
  // What is in front of the first chunk of a static program is other data.
  if (heap.arena == 0) keep_from(search, {heap.all.begin, heap.chunks.begin}, Placed::kOnHeap);
  for (std::uintptr_t at = heap.chunks.begin; at < heap.chunks.end;) {
    const Chunk chunk = qk::glibc::chunk_at(heap, at);
    at = chunk.next();
    if (!is_in_use(chunk)) continue;
    // What a block doesn't use of its chunk is left from the block that was there before.
    const std::uint32_t area = areas_.find(chunk.memory().begin);
    if (area != kNoArea && areas_.at(area).range.begin == chunk.memory().begin) continue;
    keep_from(search, chunk.memory(), Placed::kOnHeap);
  }
}

bool Roots::is_in_use(const Chunk& chunk) const {
  return !chunk.is_free && !qk::glibc::is_cached(chunk, process_.cache_key) &&
         !std::binary_search(fast_chunks_.begin(), fast_chunks_.end(), chunk.address);
}

/** Leaves out the library's own memory, and blocks, which count only once they are reached. */
void Roots::keep_from(Search& search, AddressRange range, Placed placed) {
  while (next_area_ < areas_.count() && areas_.at(next_area_).range.end <= range.begin)
    ++next_area_;
  while (next_own_ < own_.size() && own_[next_own_].end <= range.begin) ++next_own_;
  std::uint32_t area = next_area_;
  std::size_t own = next_own_;
  while (range.begin < range.end) {
    AddressRange gap = {range.end, range.end};
    if (own < own_.size() && own_[own].begin < gap.begin) gap = own_[own];
    const bool is_block = area < areas_.count() && areas_.at(area).range.begin < gap.begin;
    if (is_block) {
      gap = areas_.at(area).range;
      if (placed == Placed::kForGood) search.keep(area);
      ++area;
    } else {
      ++own;
    }
    search.keep_from({range.begin, std::max(range.begin, gap.begin)});
    range.begin = std::max(range.begin, gap.end);
  }
}

}  // namespace qk::mem::lost

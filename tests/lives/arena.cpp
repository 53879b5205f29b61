#include "tests/lives/arena.h"

#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace lives::arena {
namespace {

constexpr std::uintptr_t kBase = 0x100000000000;
constexpr std::size_t kRegion = std::size_t{1} << 30;
constexpr unsigned kFiles = 1024;
constexpr int kClasses = 32;
constexpr std::size_t kLargest = std::size_t{1} << 28;

/** Memory of one owner, of 2 to the power of `size_class` bytes each. */
struct Region {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  std::size_t made = 0;
  std::vector<void*> released;
};

struct Memory {
  Region* region;
  std::size_t size;
  bool is_users;
};

struct State {
  std::map<std::uintptr_t, Region> regions;
  std::unordered_map<const void*, Memory> allocated;
  std::set<const void*> pinned;
  std::size_t heap = 0;
  unsigned spread = 8;
  unsigned requests_left = 0;
  unsigned percent_of_indexes = 0;
  std::uint32_t random = 1;
};

/** Never destroyed: the library releases memory after the last destructor. */
State& state() {
  static State& instance = *new State;
  return instance;
}

std::string_view name_of(std::string_view path) { return path.substr(path.rfind('/') + 1); }

/** 2 to the power of this is enough for a request, and for some words that a shortcut adds to it. */
int class_of(std::size_t size) {
  return std::max(4, static_cast<int>(std::bit_width(size == 0 ? 0 : size - 1)));
}

std::uintptr_t start_of(std::string_view owner, int size_class) {
  std::uint32_t hash = 2166136261;
  for (const char c : owner) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619;
  return kBase +
         (std::uintptr_t{hash % kFiles} * kClasses + static_cast<unsigned>(size_class)) * kRegion;
}

Region& region_of(std::string_view owner, int size_class) {
  const std::uintptr_t start = start_of(owner, size_class);
  Region& region = state().regions[start];
  if (region.begin == 0) {
    void* mapped = mmap(reinterpret_cast<void*>(start), kRegion, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (mapped != reinterpret_cast<void*>(start)) std::abort();
    region.begin = region.end = start;
  }
  return region;
}

/** Memory that was never used. Its address takes the values of bits 4 to 6 in turn. */
void* carve(Region& region, int size_class) {
  const std::size_t stride = (std::size_t{1} << std::max(size_class, 7)) + 128;
  const std::size_t offset = 16 * (region.made++ * 5 % 8 % state().spread);
  if (region.end + stride > region.begin + kRegion) return nullptr;
  void* memory = reinterpret_cast<void*>(region.end + offset);
  region.end += stride;
  return memory;
}

bool is_index(std::string_view name) {
  return name == "slot_index.cpp" || name == "block_index.cpp";
}

/** Whether a failure of a file's request is part of what is compared. */
bool is_seen(std::string_view name) {
  return name == kUser || name == "blocks.cpp" || name == "pointer_array.cpp" ||
         name == "create.cpp";
}

bool fails(std::string_view name) {
  State& all = state();
  if (is_index(name) && all.percent_of_indexes != 0) {
    all.random = all.random * 1103515245 + 12345;
    return (all.random >> 16) % 100 < all.percent_of_indexes;
  }
  return is_seen(name) && all.requests_left != 0 && --all.requests_left == 0;
}

void* out_of_memory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

void* allocate(std::size_t size, const char* owner) {
  const std::string_view name = name_of(owner);
  if (fails(name) || size > kLargest) return out_of_memory();
  const int size_class = class_of(size);
  Region& region = region_of(name, size_class);
  void* memory = nullptr;
  if (region.released.empty()) {
    memory = carve(region, size_class);
  } else {
    memory = region.released.back();
    region.released.pop_back();
  }
  if (memory == nullptr) return out_of_memory();
  const bool is_users = name == kUser;
  const std::size_t rounded = std::size_t{1} << size_class;
  state().allocated[memory] = {&region, rounded, is_users};
  if (is_users) state().heap += rounded;
  return memory;
}

void* allocate_zeroed(std::size_t size, const char* owner) {
  void* memory = allocate(size, owner);
  return memory == nullptr ? nullptr : std::memset(memory, 0, size);
}

void* resize(void* memory, std::size_t size, const char* owner) {
  const auto old = state().allocated.find(memory);
  if (old == state().allocated.end()) return allocate(size, owner);
  if (size == 0) {
    release(memory);
    return nullptr;
  }
  const std::size_t old_size = old->second.size;
  if (std::size_t{1} << class_of(size) == old_size) {
    return fails(name_of(owner)) ? out_of_memory() : memory;
  }
  void* moved = allocate(size, owner);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, memory, std::min(size, old_size));
  release(memory);
  return moved;
}

void release(void* memory) {
  const auto found = state().allocated.find(memory);
  if (found == state().allocated.end() || state().pinned.contains(memory)) return;
  if (found->second.is_users) state().heap -= found->second.size;
  found->second.region->released.push_back(memory);
  state().allocated.erase(found);
}

void spread_over(unsigned values) { state().spread = values; }

void fail_request(unsigned nth) { state().requests_left = nth; }

void fail_indexes(unsigned percent) { state().percent_of_indexes = percent; }

void pin(const void* memory) { state().pinned.insert(memory); }

void unpin(const void* memory) { state().pinned.erase(memory); }

bool is_allocated(const void* memory) { return state().allocated.contains(memory); }

std::size_t heap_size() { return state().heap; }

}  // namespace lives::arena

// Stands in for the C library's, whose heap holds only the life's own memory.
extern "C" struct mallinfo mallinfo() {
  struct mallinfo info = {};
  info.arena = static_cast<int>(lives::arena::heap_size());
  return info;
}

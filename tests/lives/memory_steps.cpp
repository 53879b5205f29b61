// What a life does with memory.
#include <algorithm>
#include <cstring>
#include <string>

#include "qkmem/qkmem.h"
#include "tests/lives/arena.h"
#include "tests/lives/journal.h"
#include "tests/lives/life.h"

namespace lives {
namespace {

/** Enough to see whether contents were kept, and quick. */
constexpr std::size_t kSample = 64;

constexpr std::size_t kArrayHeader = 16;

unsigned sum_of(const char* memory, std::size_t size) {
  unsigned sum = 0;
  for (std::size_t i = 0; i < std::min(size, kSample); ++i) {
    sum = sum * 31 + static_cast<unsigned char>(memory[i]);
  }
  return sum;
}

void fill(char* memory, std::size_t size) {
  std::memset(memory, static_cast<int>('a' + size % 26), std::min(size, kSample));
}

}  // namespace

std::size_t Life::size_for(const Pool& pool) {
  if (choice_.one_in(60)) return 0;
  if (choice_.one_in(200)) return choice_.one_in(4) ? SIZE_MAX - choice_.below(40) : 3000000;
  if (choice_.one_in(30)) return choice_.below(9000);
  constexpr std::size_t kRound[] = {8, 16, 24, 40, 64, 128, 128, 256};
  if (pool.in_blocks && choice_.one_in(2)) return choice_.of(kRound);
  return choice_.below(character_.largest) + 1;
}

int Life::alignment() {
  constexpr int kUsual[] = {16, 16, 16, 16, 8, 8, 4, 2, 1};
  constexpr int kOdd[] = {0, -4, 3, 12, 32, 64};
  return choice_.one_in(character_.careless ? 12 : 80) ? choice_.of(kOdd) : choice_.of(kUsual);
}

void Life::keep(Pool& pool, char* memory, std::size_t size, Kind kind) {
  if (memory != nullptr) pool.entries.push_back({memory, size, kind});
}

char* Life::allocate_on(Pool& pool, std::size_t size) {
  const int align = alignment();
  char* memory = nullptr;
  switch (choice_.below(8)) {
    case 0: {
      const std::size_t num = choice_.below(6);
      const std::size_t each = size / 4;
      memory = static_cast<char*>(qk_mem_icalloc(pool.hid, num, each, align, file(), line()));
      const bool sized = !__builtin_mul_overflow(num, each, &size);
      note("calloc(%d, %zu * %zu, %d): %p %x", pool.hid, num, each, align,
           static_cast<void*>(memory), memory == nullptr || !sized ? 0 : sum_of(memory, size));
      break;
    }
    case 1: {
      const std::string text(size < 100000 ? size : 7, 's');
      memory =
          qk_mem_istrdup(pool.hid, choice_.one_in(40) ? nullptr : text.c_str(), file(), line());
      size = text.size() + 1;
      note("strdup(%d, %zu): %p", pool.hid, size, static_cast<void*>(memory));
      break;
    }
    case 2:
      memory = static_cast<char*>(qk_mem_irealloc(pool.hid, nullptr, size, align, file(), line()));
      note("realloc(%d, null, %zu, %d): %p", pool.hid, size, align, static_cast<void*>(memory));
      break;
    default:
      memory = static_cast<char*>(qk_mem_imalloc(pool.hid, size, align, file(), line()));
      note("malloc(%d, %zu, %d): %p", pool.hid, size, align, static_cast<void*>(memory));
  }
  if (memory != nullptr) fill(memory, size);
  keep(pool, memory, size, Kind::kMemory);
  return memory;
}

void Life::allocate() {
  Pool& pool = any_pool();
  if (pool.entries.size() >= character_.most_live) {
    pool.in_blocks&& choice_.one_in(3) ? clear() : release();
    return;
  }
  for (unsigned i = choice_.one_in(5) ? 8 : 1; i > 0; --i) allocate_on(pool, size_for(pool));
}

/** Fills a handle, and releases some of it here and there. */
void Life::allocate_many() {
  constexpr const char* kOptions[] = {"",
                                      "",
                                      "MULTITHREADED",
                                      "BLOCKMGMT BLOCKFREE BLOCKSIZE=128",
                                      "BLOCKMGMT BLOCKFREE MULTITHREADED",
                                      "BLOCKMGMT BLOCKSIZE=200"};
  const char* options = choice_.of(kOptions);
  const int hid = qk_mem_inew_handle(options, "MA", file(), line());
  note("many on %d '%s'", hid, options);
  if (hid == 0) return;
  pools_.push_back({hid, *options == 'B', qk_mem_generation(hid), {}});
  Pool& pool = pools_.back();
  const bool same_size = choice_.one_in(2);
  const unsigned released = choice_.below(4);
  for (unsigned i = 0; i < character_.most_live; ++i) {
    const std::size_t size = same_size ? 128 : 1 + choice_.below(100);
    auto* memory = static_cast<char*>(qk_mem_imalloc(hid, size, 16, file(), line()));
    if (memory != nullptr) fill(memory, size);
    keep(pool, memory, size, Kind::kMemory);
    Entry* entry = choice_.below(4) < released ? any_entry(pool) : nullptr;
    if (entry == nullptr) continue;
    qk_mem_ifree(hid, entry->memory, file(), line());
    forget(pool, *entry);
  }
}

void Life::resize() {
  Pool& pool = any_pool();
  Entry* entry = any_entry(pool);
  if (entry == nullptr || entry->kind != Kind::kMemory) return;
  const Entry old = *entry;
  const std::size_t size = choice_.one_in(3) ? old.size / 2 : size_for(pool);
  const int align = alignment();
  void* result = nullptr;
  if (choice_.one_in(4)) {
    const std::size_t num = size % 1000;
    const std::size_t old_num = std::min(num, old.size / 3);
    result = qk_mem_irecalloc(pool.hid, old.memory, num, 3, old_num, align, file(), line());
    entry->size = 3 * num;
    note("recalloc(%d, %p, %zu * 3, %zu, %d): %p", pool.hid, old.memory, num, old_num, align,
         result);
  } else {
    result = qk_mem_irealloc(pool.hid, old.memory, size, align, file(), line());
    entry->size = size;
    note("realloc(%d, %p, %zu, %d): %p", pool.hid, old.memory, size, align, result);
  }
  if (result == nullptr && entry->size == 0) return forget(pool, *entry);
  if (result == nullptr) {
    entry->size = old.size;
    return;
  }
  if (result != old.memory) gone_.push_back(old.memory);
  entry->memory = static_cast<char*>(result);
  const std::size_t kept = std::min(old.size, entry->size);
  note("  contents %x", sum_of(entry->memory, kept));
  fill(entry->memory, entry->size);
}

void Life::release() {
  Pool& pool = any_pool();
  Entry* entry = any_entry(pool);
  if (entry == nullptr || entry->kind == Kind::kObject || entry->kind == Kind::kArray) return;
  qk_mem_ifree(pool.hid, entry->memory, file(), line());
  note("free(%d, %p)", pool.hid, entry->memory);
  forget(pool, *entry);
}

void Life::release_newest() {
  Pool& pool = any_pool();
  for (unsigned i = choice_.below(12); i > 0 && !pool.entries.empty(); --i) {
    const Entry entry = pool.entries.back();
    if (entry.kind != Kind::kMemory) return;
    qk_mem_ifree(pool.hid, entry.memory, file(), line());
    note("free(%d, %p)", pool.hid, entry.memory);
    forget(pool, pool.entries.back());
  }
}

void* Life::wrong_pointer(const Pool& pool) {
  switch (choice_.below(4)) {
    case 0:
      return nullptr;
    case 1:
      return pool.entries.empty() ? nullptr : pool.entries.back().memory + 8;
    case 2: {
      const Pool& other = any_pool();
      if (other.entries.empty() || other.entries.back().kind != Kind::kMemory) return nullptr;
      return other.entries.back().memory;
    }
    default:
      return gone_.empty() ? nullptr : gone_[choice_.below(static_cast<unsigned>(gone_.size()))];
  }
}

void Life::misuse_free() {
  const Pool& pool = any_pool();
  const int hid = choice_.one_in(8) ? wrong_number() : pool.hid;
  void* memory = wrong_pointer(pool);
  qk_mem_ifree(hid, memory, file(), line());
  note("wrong free(%d, %p)", hid, memory);
}

void Life::misuse_realloc() {
  const Pool& pool = any_pool();
  const int hid = choice_.one_in(8) ? wrong_number() : pool.hid;
  void* memory = wrong_pointer(pool);
  const std::size_t size = choice_.below(300);
  void* result = qk_mem_irealloc(hid, memory, size, alignment(), file(), line());
  note("wrong realloc(%d, %p, %zu): %p", hid, memory, size, result);
  if (choice_.one_in(2)) {
    note("malloc on no handle: %p", qk_mem_imalloc(wrong_number(), size, 16, file(), line()));
  }
}

void Life::push() {
  Pool& pool = any_pool();
  if (pool.array == nullptr) {
    pool.element = choice_.below(40);
    pool.factor = choice_.below(20);
  }
  const auto pinned = [&] { return static_cast<char*>(pool.array) - kArrayHeader; };
  for (unsigned i = choice_.below(6); i > 0; --i) {
    if (pool.array != nullptr) arena::unpin(pinned());
    const auto index = static_cast<long>(
        qk_mem_imarralloc(pool.hid, &pool.array, pool.element, pool.factor, file(), line()));
    note("marralloc(%d, %zu, %zu): %ld in %p", pool.hid, pool.element, pool.factor, index,
         pool.array);
    if (pool.array != nullptr) arena::pin(pinned());
  }
}

void Life::free_array() {
  Pool& pool = any_pool();
  if (pool.array != nullptr) arena::unpin(static_cast<char*>(pool.array) - kArrayHeader);
  const int hid = choice_.one_in(20) ? wrong_number() : pool.hid;
  qk_mem_iarrfree(hid, choice_.one_in(20) ? nullptr : &pool.array, file(), line());
  note("arrfree(%d): %p", hid, pool.array);
  pool.array = nullptr;
}

}  // namespace lives

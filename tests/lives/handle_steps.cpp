// What a life does with handles, and with objects and memory from elsewhere.
#include <iterator>

#include "qkmem/qkmem.h"
#include "tests/lives/arena.h"
#include "tests/lives/journal.h"
#include "tests/lives/life.h"
#include "tests/lives/things.h"

namespace lives {
namespace {

constexpr std::size_t kMostHandles = 7;
constexpr std::size_t kArrayHeader = 16;

const std::type_info& type_for(bool is_array) { return is_array ? typeid(long) : typeid(int); }

}  // namespace

void Life::create() {
  constexpr const char* kOptions[] = {
      "",
      nullptr,
      "MULTITHREADED",
      "DATA AUTOFREE",
      "OVERHEAD",
      "OVERHEAD MULTITHREADED AUTOFREE",
      "BLOCKMGMT",
      "BLOCKMGMT BLOCKSIZE=100 BLOCKINITIAL=0",
      "BLOCKMGMT BLOCKSIZE=65536 AUTOFREE",
      "BLOCKMGMT MULTITHREADED BLOCKSIZE=300",
      "BLOCKMGMT BLOCKFREE BLOCKSIZE=128 BLOCKINITIAL=3",
      "BLOCKMGMT BLOCKFREE MULTITHREADED",
      "BLOCKMGMT BLOCKFREE BLOCKSIZE=64",
      "BLOCKMGMT BLOCKFREE OVERHEAD AUTOFREE",
      "BLOCKMGMT NONSENSE",
  };
  constexpr const char* kTags[] = {"", "", nullptr, "AA", "aa", "B", "CD", "ZZ", "ABC"};
  if (pools_.size() >= kMostHandles) return destroy();
  const char* options = choice_.of(kOptions);
  const char* tag = choice_.of(kTags);
  const int hid = qk_mem_inew_handle(options, tag, file(), line());
  note("new handle '%s' '%s': %d", options == nullptr ? "(null)" : options,
       tag == nullptr ? "(null)" : tag, hid);
  if (hid == 0) return;
  const bool in_blocks = options != nullptr && *options == 'B';
  pools_.push_back({hid, in_blocks, qk_mem_generation(hid), {}});
}

/** Leaves a few of many handles, so that the array of handles grows and has gaps. */
void Life::create_many() {
  const unsigned count = choice_.one_in(4) ? 4300 : 600;
  std::vector<int> made;
  for (unsigned i = 0; i < count; ++i) {
    made.push_back(qk_mem_inew_handle(choice_.one_in(9) ? "BLOCKMGMT" : "", "", file(), line()));
  }
  while (made.size() > 3) {
    const unsigned index = choice_.below(static_cast<unsigned>(made.size()));
    qk_mem_idel_handle(made[index], file(), line());
    made[index] = made.back();
    made.pop_back();
    if (!choice_.one_in(9)) continue;
    const int hid = qk_mem_inew_handle("MULTITHREADED", "", file(), line());
    note("new handle %d", hid);
    qk_mem_idel_handle(hid, file(), line());
  }
  for (const int hid : made) pools_.push_back({hid, false, qk_mem_generation(hid), {}});
}

/** Before the contents of a handle are released. */
void Life::drop_contents(Pool& pool) {
  for (const Entry& entry : pool.entries) gone_.push_back(entry.memory);
  pool.entries.clear();
  if (pool.array != nullptr) arena::unpin(static_cast<char*>(pool.array) - kArrayHeader);
  pool.array = nullptr;
}

void Life::destroy() {
  if (choice_.one_in(8)) {
    const int hid = choice_.one_in(2) ? QK_MEM_DATA_HANDLE : 99;
    return note("wrong delete(%d): %d", hid, qk_mem_idel_handle(hid, file(), line()));
  }
  if (pools_.size() == 1) return;
  const auto index =
      static_cast<std::ptrdiff_t>(1 + choice_.below(static_cast<unsigned>(pools_.size()) - 1));
  drop_contents(pools_[static_cast<std::size_t>(index)]);
  const int hid = pools_[static_cast<std::size_t>(index)].hid;
  note("delete(%d): %d", hid, qk_mem_idel_handle(hid, file(), line()));
  pools_.erase(pools_.begin() + index);
}

void Life::clear() {
  Pool& pool = any_pool();
  if (pool.in_blocks) drop_contents(pool);
  note("clear(%d): %d", pool.hid, qk_mem_iclear_handle(pool.hid, file(), line()));
}

void Life::ask() {
  Pool& pool = any_pool();
  const int hid = choice_.one_in(10) ? wrong_number() : pool.hid;
  const Entry* entry = any_entry(pool);
  const void* memory = entry == nullptr ? nullptr : entry->memory;
  const std::uint32_t generation = choice_.one_in(4) ? pool.generation - 1 : pool.generation;
  const int call = static_cast<int>(choice_.below(7));
  note("ask %d: size %zu", hid, qk_mem_isize(hid, file(), line()));
  note("  tags %ld %ld", static_cast<long>(qk_mem_tag_size("AA")),
       static_cast<long>(qk_mem_tag_size("zz")));
  note("  recorded %d", qk_mem_is_recorded(hid, memory, file(), line()));
  note("  singly %d", qk_mem_frees_singly(hid, file(), line()));
  note("  generation %u", qk_mem_generation(hid));
  note("  current %d", qk_mem_is_current(hid, generation, call, file(), line()));
  note("  may destroy %d", qk_mem_may_destroy(hid, generation, memory, file(), line()));
}

void Life::register_external() {
  Pool& pool = any_pool();
  const std::size_t size = choice_.below(500);
  auto* memory = static_cast<char*>(arena::allocate(size, arena::kUser));
  if (memory == nullptr) return;
  const int type = choice_.one_in(10) ? 77 : QK_MEM_EXTERNAL;
  qk_mem_iregister(pool.hid, type, memory, nullptr, size, file(), line());
  const int recorded = qk_mem_is_recorded(pool.hid, memory, file(), line());
  note("register(%d, %d, %p, %zu): %d", pool.hid, type, static_cast<void*>(memory), size, recorded);
  if (recorded != 0) keep(pool, memory, size, Kind::kExternal);
}

void Life::register_object() {
  Pool& pool = any_pool();
  const bool is_array = choice_.one_in(3);
  const std::size_t size = 16 + choice_.below(50);
  Owned owned;
  if (choice_.one_in(3)) owned = {pool.hid, qk_mem_imalloc(pool.hid, size, 8, file(), line())};
  void* thing = make_thing(size, owned);
  auto* tracker = new ThingTracker(thing, type_for(is_array));
  const int type = is_array ? QK_MEM_ARRAY : QK_MEM_OBJECT;
  qk_mem_iregister(pool.hid, type, tracker, nullptr, size, file(), line());
  const int recorded = qk_mem_is_recorded(pool.hid, thing, file(), line());
  note("register(%d, %d, %p of %p, %zu): %d", pool.hid, type, static_cast<void*>(tracker), thing,
       size, recorded);
  if (recorded != 0) {
    keep(pool, static_cast<char*>(thing), size, is_array ? Kind::kArray : Kind::kObject);
  } else {
    delete tracker;
  }
}

void Life::give_back(const Entry& entry) {
  if (entry.kind == Kind::kExternal) {
    arena::release(entry.memory);
  } else {
    destroy_thing(entry.memory);
  }
}

void Life::deregister() {
  Pool& pool = any_pool();
  for (Entry& entry : pool.entries) {
    if (entry.kind == Kind::kMemory) continue;
    const Entry old = entry;
    forget(pool, entry);
    if (old.kind == Kind::kExternal) {
      qk_mem_ideregister(pool.hid, QK_MEM_EXTERNAL, old.memory, file(), line());
    } else {
      const bool is_array = old.kind == Kind::kArray;
      auto* name = new ThingTracker(old.memory, type_for(is_array));
      qk_mem_ideregister(pool.hid, is_array ? QK_MEM_ARRAY : QK_MEM_OBJECT, name, file(), line());
      name->address = nullptr;
      delete name;
    }
    note("deregister(%d, %p)", pool.hid, old.memory);
    return give_back(old);
  }
}

void Life::misuse_registration() {
  const Pool& pool = any_pool();
  const int hid = choice_.one_in(8) ? wrong_number() : pool.hid;
  void* memory = wrong_pointer(pool);
  note("wrong registration(%d, %p)", hid, memory);
  switch (choice_.below(4)) {
    case 0:
      return qk_mem_ideregister(hid, QK_MEM_EXTERNAL, memory, file(), line());
    case 1:
      return qk_mem_iregister(hid, QK_MEM_EXTERNAL, memory, nullptr, 9, file(), line());
    case 2:
      return qk_mem_ideregister(hid, QK_MEM_OBJECT, nullptr, file(), line());
    default: {
      auto* name = new ThingTracker(memory, typeid(char));
      qk_mem_ideregister(hid, QK_MEM_OBJECT, name, file(), line());
      name->address = nullptr;
      delete name;
    }
  }
}

}  // namespace lives

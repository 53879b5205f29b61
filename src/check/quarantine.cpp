#include "check/quarantine.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "profile/pool.h"
#include "support/mtx_lock.h"
#include "support/system_memory.h"

namespace qk::mem::check {

constinit qk::Mtx quarantine_lock;

namespace {

/** The list is a ring. It has room for all that the limit allows, and only what is used is there. */
struct Ring {
  Quarantined* entries;
  std::uint64_t capacity;
  std::uint64_t first;  // where the oldest entry is
  std::uint64_t count;
  std::uint64_t bytes;  // that the entries weigh
  std::uint64_t limit;

  /** An entry by its age, the oldest one at 0. A division would take longer than all else here. */
  [[nodiscard]] Quarantined& at(std::uint64_t number) const {
    const std::uint64_t index = first + number;
    return entries[index < capacity ? index : index - capacity];
  }

  void remove_oldest() {
    first = first + 1 < capacity ? first + 1 : 0;
    --count;
  }
};
constinit Ring ring QK_GUARDED_BY(quarantine_lock) = {};
constinit std::uint64_t largest = 0;  // weight that the ring takes; changes with it

/** A block weighs at least this much, so that the list is never larger than what it keeps. */
constexpr std::uint64_t kLeastWeight = sizeof(Quarantined);

/** So far ahead, memory that will leave is brought into the processor's cache. */
constexpr std::uint64_t kAhead = 24;

/** So many leave under the lock before they are released without it. */
constexpr std::size_t kLeavingAtOnce = 32;

char* address_of(const Quarantined& entry) { return entry.base + layout_of(entry.mark).front; }

std::uint64_t weight_of(std::uint64_t bytes, profile::Mark mark) {
  return std::max(bytes + layout_of(mark).total(), kLeastWeight);
}

BlockFacts facts_of(const Quarantined& entry) {
  const profile::Pool& pool = profile::pools.at(entry.pool);
  return {.address = address_of(entry),
          .bytes = entry.bytes,
          .mark = entry.mark,
          .hid = pool.hid,
          .tag = profile::tag_levels.at(pool.tag).name,
          .file = entry.file,
          .line = entry.line,
          .released = {entry.released_path, entry.released_line, entry.ending},
          .released_event = entry.released_event};
}

bool is_as_left(const Quarantined& entry) {
  const char* const address = address_of(entry);
  return is_filled(address, entry.bytes, kReleasedFilling) &&
         has_whole_guards(address, entry.bytes, layout_of(entry.mark));
}

/** Adds what the program has written into a released block or its guards. */
bool look_at(const Quarantined& entry, DamageList& damages) {
  const BlockFacts facts = facts_of(entry);
  bool is_damaged = false;
  if (const auto where = differing_from_filling(facts.address, facts.bytes, kReleasedFilling)) {
    damages.add(Damage::of(DamageKind::kAfterFree, facts, facts.address, *where));
    is_damaged = true;
  }
  return look_at_guards(facts, damages) || is_damaged;
}

void bring_near(const Quarantined& entry) {
  __builtin_prefetch(entry.base);
  __builtin_prefetch(entry.base + entry.bytes + layout_of(entry.mark).front);
}

/** Blocks that leave. They are looked at and released without the lock. */
class Leaving {
 public:
  [[nodiscard]] bool is_full() const { return count_ == kLeavingAtOnce; }
  void add(const Quarantined& entry) { entries_[count_++] = entry; }

  /** Returns whether there were any. */
  bool release() {
    for (std::size_t i = 0; i < count_; ++i) {
      if (!entries_[i].is_told && !is_as_left(entries_[i])) [[unlikely]]
        tell_of(entries_[i]);
      user_memory::release(entries_[i].base);
    }
    return count_ != 0;
  }

 private:
  [[gnu::cold]] static void tell_of(const Quarantined& entry) {
    DamageList damages;
    look_at(entry, damages);
    tell_all(damages);
  }

  Quarantined entries_[kLeavingAtOnce];
  std::size_t count_ = 0;
};

/** Takes the oldest blocks out while the rest weighs more than `most`. */
void take_out(std::uint64_t most, Leaving& leaving) QK_REQUIRES(quarantine_lock) {
  quarantine_lock.assert_held();
  while (ring.bytes > most && ring.count != 0 && !leaving.is_full()) {
    const Quarantined& entry = ring.at(0);
    ring.bytes -= weight_of(entry.bytes, entry.mark);
    leaving.add(entry);
    ring.remove_oldest();
    if (ring.count > kAhead) bring_near(ring.at(kAhead));
  }
}

bool let_go_down_to(std::uint64_t most) {
  Leaving leaving;
  {
    const qk::MtxLock lock(quarantine_lock);
    take_out(most, leaving);
  }
  return leaving.release();
}

enum class Outcome : std::uint8_t { kKept, kMoreHasToLeave, kTooLarge };

/** A released block on its way into the list. */
struct Released {
  const BlockFacts& facts;
  char* base;
  std::uint32_t pool;
};

/**
 * Writes an entry in its place. One that is put together elsewhere and then copied takes longer than
 * all else here: the copy has to wait for its parts.
 */
[[gnu::always_inline]] inline void write(Quarantined& entry, const Released& block) {
  entry.base = block.base;
  entry.bytes = block.facts.bytes;
  entry.mark = block.facts.mark;
  entry.file = block.facts.file;
  entry.released_path = block.facts.released.path;
  entry.released_event = block.facts.released_event;
  entry.line = block.facts.line;
  entry.released_line = block.facts.released.line;
  entry.pool = block.pool;
  entry.ending = block.facts.released.ending;
  entry.is_told = false;
}

/** Keeps a block if there is room once a few others have left. */
[[gnu::always_inline]] inline Outcome keep(const Released& block, std::uint64_t weight,
                                           Leaving& leaving) {
  const qk::MtxLock lock(quarantine_lock);
  if (weight > ring.limit) return Outcome::kTooLarge;
  take_out(ring.limit - weight, leaving);
  if (ring.bytes > ring.limit - weight) return Outcome::kMoreHasToLeave;
  write(ring.at(ring.count), block);
  ++ring.count;
  ring.bytes += weight;
  return Outcome::kKept;
}

std::size_t bytes_of_list(std::uint64_t capacity) { return capacity * sizeof(Quarantined); }

Quarantined* map_list(std::uint64_t capacity) {
  void* const list = mmap(nullptr, bytes_of_list(capacity), PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return list == MAP_FAILED ? nullptr : static_cast<Quarantined*>(list);
}

}  // namespace

bool set_quarantine(std::uint64_t bytes) {
  empty_quarantine();
  const std::uint64_t capacity = bytes / kLeastWeight + 1;
  Quarantined* const list = bytes == 0 ? nullptr : map_list(capacity);
  const qk::MtxLock lock(quarantine_lock);
  // A block that has come since, by another thread, stays where it is in the list there is.
  if (ring.count != 0) {
    if (list != nullptr) munmap(list, bytes_of_list(capacity));
    ring.limit = std::min(ring.limit, bytes);
    qk::store(largest, ring.limit);
    return true;
  }
  if (ring.entries != nullptr) munmap(ring.entries, bytes_of_list(ring.capacity));
  ring = {};
  if (list != nullptr) ring = {list, capacity, 0, 0, 0, bytes};
  qk::store(largest, ring.limit);
  return bytes == 0 || list != nullptr;
}

bool quarantine(const BlockFacts& facts, void* base, std::uint32_t pool) {
  const std::uint64_t weight = weight_of(facts.bytes, facts.mark);
  if (weight > qk::load(largest)) return false;
  std::memset(const_cast<void*>(facts.address), kReleasedFilling, facts.bytes);
  const Released block = {facts, static_cast<char*>(base), pool};
  for (Outcome outcome = Outcome::kMoreHasToLeave; outcome != Outcome::kKept;) {
    Leaving leaving;
    outcome = keep(block, weight, leaving);
    leaving.release();
    if (outcome == Outcome::kTooLarge) return false;
  }
  return true;
}

bool empty_quarantine() {
  bool had_any = false;
  while (let_go_down_to(0)) had_any = true;
  return had_any;
}

std::optional<BlockFacts> find_in_quarantine(const void* address) {
  const qk::MtxLock lock(quarantine_lock);
  for (std::uint64_t number = ring.count; number != 0; --number) {
    const Quarantined& entry = ring.at(number - 1);
    const std::uint64_t offset =
        static_cast<std::uint64_t>(static_cast<const char*>(address) - address_of(entry));
    if (offset == 0 || offset < entry.bytes) return facts_of(entry);
  }
  return std::nullopt;
}

std::uint64_t look_at_quarantine(DamageList& damages) {
  const qk::MtxLock lock(quarantine_lock);
  std::uint64_t damaged = 0;
  for (std::uint64_t number = 0; number != ring.count; ++number) {
    Quarantined& entry = ring.at(number);
    if (number + kAhead < ring.count) bring_near(ring.at(number + kAhead));
    if (entry.is_told) {
      ++damaged;
      continue;
    }
    DamageList found;
    if (!look_at(entry, found)) continue;
    ++damaged;
    if (damages.is_full()) continue;
    for (const Damage& damage : found) damages.add(damage);
    entry.is_told = true;
  }
  return damaged;
}

std::uint64_t count_in_quarantine() {
  const qk::MtxLock lock(quarantine_lock);
  return ring.count;
}

void for_each_in_quarantine(void (*visit)(void* data, qk::AddressRange range), void* data) {
  const qk::MtxLock lock(quarantine_lock);
  for (std::uint64_t number = 0; number != ring.count; ++number) {
    const Quarantined& entry = ring.at(number);
    const auto begin = reinterpret_cast<std::uintptr_t>(entry.base);
    visit(data, {begin, begin + entry.bytes + layout_of(entry.mark).total()});
  }
}

qk::AddressRange list_of_quarantine() {
  const qk::MtxLock lock(quarantine_lock);
  const auto begin = reinterpret_cast<std::uintptr_t>(ring.entries);
  return {begin, begin + bytes_of_list(ring.capacity)};
}

}  // namespace qk::mem::check

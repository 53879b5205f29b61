#ifndef QKMEM_CHECK_DAMAGE_H_
#define QKMEM_CHECK_DAMAGE_H_

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "check/guards.h"
#include "history/freed_blocks.h"
#include "profile/marks.h"

/** Damage to memory that the program should not have written to, and who is told of it. */
namespace qk::mem::check {

enum class DamageKind : std::uint8_t {
  kBehind,     // to the guard behind a block
  kInFront,    // to the one in front of it
  kAfterFree,  // to a released block
  kUnused      // to memory of a handle's blocks that no piece has
};

/** A block, as far as damage to it is described. */
struct BlockFacts {
  const void* address;
  std::uint64_t bytes;
  profile::Mark mark;
  std::int32_t hid;
  const char* tag;
  const char* file;  // where it was allocated, or for unused memory cleared; can be null
  std::uint32_t line;
  history::Release released;  // its path is null while the block is not released
  std::uint64_t released_event;
};

struct Damage {
  static constexpr std::size_t kMostShown = 16;

  DamageKind kind;
  bool is_whole_guard;  // nothing is left of the guard
  BlockFacts block;
  Differing where;  // in the guard, in the block, or in the memory
  std::uint32_t guard_bytes;
  unsigned char shown[kMostShown];  // the first bytes

  /** Of bytes that differ, in memory that begins at `begin`. */
  [[nodiscard]] static Damage of(DamageKind kind, const BlockFacts& block, const void* begin,
                                 const Differing& where) {
    Damage damage = {kind, false, block, where, 0, {}};
    std::memcpy(damage.shown, static_cast<const char*>(begin) + where.offset,
                std::min<std::size_t>(where.length, kMostShown));
    return damage;
  }
};

/** Damage that one look has found. Whoever looks holds locks, and tells of it without them. */
class DamageList {
 public:
  [[nodiscard]] bool is_full() const { return count_ == kMost; }
  void add(const Damage& damage) {
    if (!is_full()) damages_[count_++] = damage;
  }
  [[nodiscard]] const Damage* begin() const { return damages_; }
  [[nodiscard]] const Damage* end() const { return damages_ + count_; }

 private:
  static constexpr std::size_t kMost = 16;

  Damage damages_[kMost];
  std::size_t count_ = 0;
};

/** Adds what differs in the guards of a block. Returns whether anything does. */
bool look_at_guards(const BlockFacts& block, DamageList& damages);

/** Who is told of damage. He takes locks, so no lock may be held. */
using Teller = void(const Damage& damage);
void set_teller(Teller* teller);
void tell(const Damage& damage);
void tell_all(const DamageList& damages);

/** The event at which all guards, and all memory in quarantine, were last looked at. */
[[nodiscard]] std::uint64_t last_whole_look();
void note_whole_look(std::uint64_t event);

}  // namespace qk::mem::check

#endif  // QKMEM_CHECK_DAMAGE_H_

#include "check/damage.h"

#include "support/shared_variable.h"

namespace qk::mem::check {
namespace {

constinit Teller* the_teller = nullptr;
constinit std::uint64_t whole_look = 0;

/** The most that a guard can differ in, even where single bytes happen to be right. */
bool is_destroyed(const Differing& where, const void* guard, std::uint32_t bytes) {
  if (where.length + 2 < bytes) return false;
  std::uint32_t right = 0;
  for (std::uint32_t i = 0; i < bytes; ++i) {
    if (static_cast<const unsigned char*>(guard)[i] == kPattern[i % kGuardStep]) ++right;
  }
  return right * 8 <= bytes;
}

bool look_at_guard(DamageKind kind, const BlockFacts& block, const void* guard, std::uint32_t bytes,
                   DamageList& damages) {
  if (is_whole(guard, bytes)) return true;
  const auto where = differing_in_guard(guard, bytes);
  if (!where) return true;  // another thread has released the block's memory meanwhile
  Damage damage = Damage::of(kind, block, guard, *where);
  damage.guard_bytes = bytes;
  damage.is_whole_guard = is_destroyed(*where, guard, bytes);
  damages.add(damage);
  return false;
}

}  // namespace

bool look_at_guards(const BlockFacts& block, DamageList& damages) {
  const Layout layout = layout_of(block.mark);
  const bool behind = look_at_guard(
      DamageKind::kBehind, block, guard_behind(block.address, block.bytes), layout.behind, damages);
  const bool front = look_at_guard(DamageKind::kInFront, block,
                                   guard_in_front(block.address, layout), layout.front, damages);
  return !behind || !front;
}

void set_teller(Teller* teller) { qk::publish(the_teller, teller); }

void tell(const Damage& damage) {
  if (Teller* const teller = qk::acquire(the_teller)) teller(damage);
}

void tell_all(const DamageList& damages) {
  for (const Damage& damage : damages) tell(damage);
}

std::uint64_t last_whole_look() { return qk::load(whole_look); }
void note_whole_look(std::uint64_t event) { qk::store(whole_look, event); }

}  // namespace qk::mem::check

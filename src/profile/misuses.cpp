#include "profile/misuses.h"

#include <cstring>

#include "profile/state.h"
#include "support/mtx_lock.h"
#include "support/shared_variable.h"

namespace qk::mem::profile {

constinit qk::NumberedStore<Misuse> misuses;
constinit std::uint64_t other_misuses = 0;
constinit std::uint64_t null_frees = 0;

namespace {

constinit std::uint8_t records_are_lost = 0;
constinit Reaction* the_reaction = nullptr;

Misuse* find(const MisusePlace& place) {
  for (std::uint32_t number = 1; number <= misuses.count(); ++number) {
    if (misuses.at(number).place == place) return &misuses.at(number);
  }
  return nullptr;
}

char* take_text(std::string_view text) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  auto* const copy = static_cast<char*>(arena.take(text.size()));
  if (copy != nullptr) std::memcpy(copy, text.data(), text.size());
  return copy;
}

bool add_place(const MisusePlace& place, std::uint64_t event, std::string_view words,
               std::size_t summary, std::uint32_t site) QK_REQUIRES(growth_lock) {
  assert_growth_held();
  if (misuses.count() == kMostMisuses) return false;
  char* const text = take_text(words);
  const std::uint32_t number = text == nullptr ? 0 : misuses.add(arena);
  if (number == 0) return false;
  misuses.at(number) = {place,
                        event,
                        1,
                        static_cast<std::uint32_t>(summary),
                        static_cast<std::uint32_t>(words.size()),
                        text,
                        site};
  misuses.publish_added();
  return true;
}

}  // namespace

void set_reaction_to_misuse(Reaction* reaction) { qk::publish(the_reaction, reaction); }

void react_to_misuse() {
  if (Reaction* const reaction = qk::acquire(the_reaction)) reaction();
}

void note_lost_records() { qk::store(records_are_lost, 1); }
bool has_lost_records() { return qk::load(records_are_lost) != 0; }

bool count_again(const MisusePlace& place) {
  Misuse* const known = find(place);
  if (known != nullptr) {
    qk::add(known->times, 1);
  } else if (misuses.count() == kMostMisuses) {
    qk::add(other_misuses, 1);
  } else {
    return false;
  }
  return true;
}

bool add_misuse(const MisusePlace& place, std::uint64_t event, std::string_view words,
                std::size_t summary, std::uint32_t site) {
  const qk::MtxLock lock(growth_lock);
  if (count_again(place)) return false;
  if (add_place(place, event, words, summary, site)) return true;
  qk::add(other_misuses, 1);
  return false;
}

}  // namespace qk::mem::profile

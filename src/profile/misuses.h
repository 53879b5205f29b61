#ifndef QKMEM_PROFILE_MISUSES_H_
#define QKMEM_PROFILE_MISUSES_H_

#include <cstdint>
#include <string_view>

#include "core/switches.h"
#include "profile/site.h"
#include "support/numbered_store.h"

/** Calls that misuse memory: each place of the program once, and how often it has done so. */
namespace qk::mem::profile {

/** What misuses are told apart by. */
struct MisusePlace {
  Routine routine;
  std::int32_t hid;
  const char* path;  // of the caller's file, as it was passed
  int line;
  std::uint8_t damage = 0;  // its kind and one more, of damage to a block of this place; else 0

  /** Handles that one line makes again and again have another number each time. */
  [[nodiscard]] bool operator==(const MisusePlace& other) const {
    return routine == other.routine && path == other.path && line == other.line &&
           damage == other.damage && (hid == other.hid || routine == Routine::kDelHandle);
  }
};

struct Misuse {
  MisusePlace place;
  std::uint64_t event;  // the last one before it
  std::uint64_t times;
  std::uint32_t summary;  // the length of the part of the text that says what it is, and where
  std::uint32_t length;
  const char* text;
  std::uint32_t site;  // that has allocated a damaged block, if it is known; else kNoSite

  [[nodiscard]] std::string_view words() const { return {text, length}; }
};

/** Places beyond these are only counted together. */
inline constexpr std::uint32_t kMostMisuses = 1024;

/** All places so far, in the order of their first misuse. Readers need no lock. */
[[gnu::visibility("hidden")]] extern qk::NumberedStore<Misuse> misuses;

/** Misuses at places that have no entry. */
[[gnu::visibility("hidden")]] extern std::uint64_t other_misuses;

/** Frees of null, which do nothing. */
[[gnu::visibility("hidden")]] extern std::uint64_t null_frees;

/** What is done once a new misuse was told; null for nothing. */
using Reaction = void();
void set_reaction_to_misuse(Reaction* reaction);
void react_to_misuse();

/**
 * There was no memory for records. From now on an address without one is no misuse: it can be a
 * live block, even one at an address that was freed before.
 */
void note_lost_records();
[[nodiscard]] bool has_lost_records();

/** Counts a misuse at a place that is known. False if it isn't, or no more places can be. */
[[nodiscard]] bool count_again(const MisusePlace& place);

/**
 * Adds a misuse. False, and it was only counted, if another thread has added the place, or there
 * is no room.
 */
[[nodiscard]] bool add_misuse(const MisusePlace& place, std::uint64_t event, std::string_view words,
                              std::size_t summary, std::uint32_t site = kNoSite);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_MISUSES_H_

#ifndef QKMEM_FORMATS_RECORDING_EVENT_H_
#define QKMEM_FORMATS_RECORDING_EVENT_H_

#include <cstdint>

#include "formats/recording.h"

/** Events of a recording, see docs/recording.md. */
namespace qk::mem::recording {

enum class EventKind : std::uint8_t {
  kMade = 0,
  kGone = 1,
  kSetAside = 2,
  kBack = 3,
  kCleared = 4,
  kDeleted = 5
};
inline constexpr std::uint8_t kKindBits = 7;

/** Flags beside the kind. */
inline constexpr std::uint8_t kNumberFollows = 8;
inline constexpr std::uint8_t kSiteFollows = 16;  // of a block that was made
inline constexpr std::uint8_t kUnsure = 16;       // of other events
inline constexpr std::uint8_t kSizeFollows = 32;
inline constexpr std::uint8_t kInSixteens = 64;
inline constexpr std::uint8_t kReplaces = 128;

/** The memory that an event is about. */
struct EventBlock {
  std::uint32_t site = 0;
  std::uint32_t pool = 0;  // of a block without a site
  std::uint64_t address = 0;
  std::uint64_t bytes = 0;
};

struct Event {
  EventKind kind{};
  bool is_unsure = false;  // `block` says what is gone; `made` need not be in the recording
  bool replaces = false;   // what its thread has set aside last
  std::uint64_t number = 0;
  std::uint64_t ticks = 0;
  std::uint64_t made = 0;  // the event that made the block; of one that is older than 2^32 events,
                           // 2^32 or a multiple of that too much
  EventBlock block;        // of a block that was made, or is unsure; the pool of kinds 4 and 5
};

/** What an event is told as a difference to: the state before it. */
struct EventState {
  std::uint64_t number = 0;
  std::uint64_t ticks = 0;
  std::uint64_t not_address = ~std::uint64_t{0};  // a search for lost blocks must not see it
  std::uint64_t bytes = 0;
  std::uint32_t site = 0;

  [[nodiscard]] std::uint64_t address() const { return ~not_address; }
};

/** The most bytes of an event. */
inline constexpr std::size_t kLongestEvent = 1 + 7 * kLongestVarint;

/** Writes numbers of events, one after the other. Inline, since a program does it all the time. */
class EventEncoder {
 public:
  EventEncoder(EventState& state, char* to) : state_(state), begin_(to), to_(to + 1) {}

  [[gnu::always_inline]] void begin(std::uint8_t kind, std::uint64_t number, std::uint64_t ticks) {
    flags_ = kind;
    if (number != state_.number + 1) {
      flags_ |= kNumberFollows;
      to_ = put_difference(to_, number, state_.number + 1);
    }
    state_.number = number;
    // A processor's counter can be a little behind another one's.
    const std::uint64_t passed = ticks > state_.ticks ? ticks - state_.ticks : 0;
    state_.ticks += passed;
    to_ = put_varint(to_, passed);
  }

  [[gnu::always_inline]] void made(const EventBlock& block, bool replaces) {
    if (block.site != state_.site || block.site == 0) {
      flags_ |= kSiteFollows;
      put_site(block);
      state_.site = block.site;
    }
    if (block.address % 16 == 0) {
      flags_ |= kInSixteens;
      to_ = put_difference(to_, block.address / 16, state_.address() / 16);
    } else {
      to_ = put_difference(to_, block.address, state_.address());
    }
    state_.not_address = ~block.address;
    if (block.bytes != state_.bytes) {
      flags_ |= kSizeFollows;
      to_ = put_varint(to_, block.bytes);
      state_.bytes = block.bytes;
    }
    if (replaces) flags_ |= kReplaces;
  }

  /** Which block: how many events ago it was made. */
  [[gnu::always_inline]] void which(std::uint32_t age) { to_ = put_varint(to_, age); }

  void unsure(const EventBlock& block) {
    flags_ |= kUnsure;
    to_ = put_varint(to_, block.address);
    to_ = put_varint(to_, block.bytes);
    put_site(block);
  }

  void pool(std::uint32_t pool) { to_ = put_varint(to_, pool); }

  /** The end of the event, which is complete. */
  [[nodiscard]] char* finish() {
    *begin_ = static_cast<char>(flags_);
    return to_;
  }

 private:
  void put_site(const EventBlock& block) {
    to_ = put_varint(to_, block.site);
    if (block.site == 0) to_ = put_varint(to_, block.pool);
  }

  EventState& state_;
  char* begin_;
  char* to_;
  std::uint8_t flags_ = 0;
};

}  // namespace qk::mem::recording

#endif  // QKMEM_FORMATS_RECORDING_EVENT_H_

#ifndef SUPPORT_NUMBERED_STORE_H_
#define SUPPORT_NUMBERED_STORE_H_

#include <cstdint>
#include <type_traits>

#include "support/page_arena.h"
#include "support/shared_variable.h"

namespace qk {

/**
 * Objects numbered from 1 that never move. Each chunk has twice the room of the one before.
 *
 * add() needs one thread at a time; at() and count() can be called beside it.
 */
template <class T>
class NumberedStore {
 public:
  constexpr NumberedStore() noexcept = default;
  NumberedStore(const NumberedStore&) = delete;
  NumberedStore& operator=(const NumberedStore&) = delete;

  /** Adds an object whose bytes are zero. Returns its number, or 0 if there is no memory. */
  [[nodiscard]] std::uint32_t add(PageArena& arena) noexcept {
    static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= PageArena::kAlignment);
    const std::uint32_t number = next_ + 1;
    const Place place = place_of(number);
    if (place.chunk >= kChunks) return 0;
    if (chunks_[place.chunk] == nullptr) {
      void* const chunk = arena.take(sizeof(T) << (place.chunk + kFirstBits));
      if (chunk == nullptr) return 0;
      qk::publish(chunks_[place.chunk], static_cast<T*>(chunk));
    }
    next_ = number;
    return number;
  }

  /** Lets count() include what was added. To be called when the objects are filled in. */
  void publish_added() noexcept { qk::publish(count_, next_); }

  /** The objects that readers may visit. */
  [[nodiscard]] std::uint32_t count() const noexcept { return qk::acquire(count_); }

  /** The object of a number that add() has returned. */
  [[nodiscard]] T& at(std::uint32_t number) const noexcept {
    const Place place = place_of(number);
    return qk::acquire(chunks_[place.chunk])[place.index];
  }

 private:
  static constexpr std::uint32_t kFirstBits = 5;
  static constexpr std::uint32_t kChunks = 20;

  struct Place {
    std::uint32_t chunk;
    std::uint32_t index;
  };

  [[gnu::always_inline]] static constexpr Place place_of(std::uint32_t number) noexcept {
    const std::uint32_t position = number - 1 + (1U << kFirstBits);
    // Not std::bit_width(), which has to think of 0.
    const std::uint32_t highest_bit = 31U ^ static_cast<std::uint32_t>(__builtin_clz(position));
    return {highest_bit - kFirstBits, position & ~(1U << highest_bit)};
  }

  T* chunks_[kChunks] = {};
  std::uint32_t next_ = 0;
  std::uint32_t count_ = 0;
};

}  // namespace qk

#endif  // SUPPORT_NUMBERED_STORE_H_

#ifndef SYMBOLS_ARENA_ROW_H_
#define SYMBOLS_ARENA_ROW_H_

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "support/page_arena.h"

namespace qk {

/** Items side by side, in memory of an arena, which is always the same one. */
template <class Item>
class ArenaRow {
 public:
  static_assert(std::is_trivially_copyable_v<Item>);

  /** Returns false, with nothing appended, if there is no memory. */
  [[nodiscard]] bool add(const Item& item, PageArena& arena) noexcept {
    if (count_ == room_ && !grow(arena)) return false;
    items_[count_++] = item;
    return true;
  }

  [[nodiscard]] Item* begin() const noexcept { return items_; }
  [[nodiscard]] Item* end() const noexcept { return items_ + count_; }
  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  [[nodiscard]] Item& operator[](std::size_t index) const noexcept { return items_[index]; }

  /** Gives the memory back, without the items. */
  void clear(PageArena& arena) noexcept {
    arena.give_back(items_, room_ * sizeof(Item));
    *this = {};
  }

 private:
  [[nodiscard]] bool grow(PageArena& arena) noexcept {
    const std::size_t room = std::max<std::size_t>(2 * room_, 16);
    auto* const items = static_cast<Item*>(arena.take(room * sizeof(Item)));
    if (items == nullptr) return false;
    std::copy_n(items_, count_, items);
    arena.give_back(items_, room_ * sizeof(Item));
    items_ = items;
    room_ = room;
    return true;
  }

  Item* items_ = nullptr;
  std::size_t count_ = 0;
  std::size_t room_ = 0;
};

}  // namespace qk

#endif  // SYMBOLS_ARENA_ROW_H_

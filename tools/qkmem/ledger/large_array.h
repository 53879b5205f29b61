#ifndef QKMEM_TOOLS_LEDGER_LARGE_ARRAY_H_
#define QKMEM_TOOLS_LEDGER_LARGE_ARRAY_H_

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <vector>

namespace qk::command {

/**
 * Memory of an array whose items are used in no order. If it is large the system is asked for large
 * pages, of which the processor finds more items without a search.
 */
template <class Item>
struct LargePages {
  using value_type = Item;

  LargePages() = default;
  template <class Other>
  explicit LargePages(const LargePages<Other>& /*other*/) {}

  [[nodiscard]] Item* allocate(std::size_t count) {
    if (count * sizeof(Item) < kLarge) return static_cast<Item*>(new_items(count, alignof(Item)));
    void* const items = new_items(count, kPage);
    madvise(items, count * sizeof(Item), MADV_HUGEPAGE);
    return static_cast<Item*>(items);
  }

  void deallocate(Item* items, std::size_t count) {
    const bool is_large = count * sizeof(Item) >= kLarge;
    operator delete (items, std::align_val_t{is_large ? kPage : alignof(Item)});
  }

  bool operator==(const LargePages&) const = default;

 private:
  static constexpr std::size_t kPage = std::size_t{2} << 20;
  static constexpr std::size_t kLarge = 2 * kPage;

  static void* new_items(std::size_t count, std::size_t alignment) {
    return operator new (count * sizeof(Item), std::align_val_t{alignment});
  }
};

template <class Item>
using LargeArray = std::vector<Item, LargePages<Item>>;

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_LARGE_ARRAY_H_

#ifndef QKMEM_TOOLS_INPUT_GROUPS_H_
#define QKMEM_TOOLS_INPUT_GROUPS_H_

#include <algorithm>
#include <cstddef>
#include <span>

namespace qk::command {

/**
 * Takes what was read in small groups. Before one is taken, it is told of the next one, so that
 * memory which the next one needs comes into the processor's cache meanwhile: most of a replay's
 * time would go to waiting for it.
 *
 * @param expect  sees each group first; tables that it will be looked up in can be fetched.
 * @param expect_soon  sees it right before it is taken: what those tables say has come by then.
 * @param take  takes one of a group. Returns false if no more are wanted.
 * @return  whether all were taken.
 */
template <class Item, class Expect, class ExpectSoon, class Take>
[[nodiscard]] bool take_in_groups(std::span<const Item> items, Expect expect,
                                  ExpectSoon expect_soon, Take take) {
  const auto group = [items](std::size_t number) {
    constexpr std::size_t kGroup = 16;
    const std::size_t begin = std::min(number * kGroup, items.size());
    return items.subspan(begin, std::min(kGroup, items.size() - begin));
  };
  expect(group(0));
  for (std::size_t number = 0; !group(number).empty(); ++number) {
    expect(group(number + 1));
    expect_soon(group(number));
    for (const Item& item : group(number)) {
      if (!take(item)) return false;
    }
  }
  return true;
}

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_GROUPS_H_

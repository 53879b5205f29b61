#ifndef QKMEM_TOOLS_LEDGER_LAZY_LIST_H_
#define QKMEM_TOOLS_LEDGER_LAZY_LIST_H_

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace qk::command {

/**
 * Things in the order in which they came. One that goes is not looked for, which would take time for
 * each: the caller says which are still there, and the others are left out now and then.
 */
template <class Thing>
class LazyList {
 public:
  /** Adds a thing. Half of the list at least is there behind that, or it is short. */
  template <class IsThere>
  void add(const Thing& thing, IsThere is_there) {
    if (things_.size() >= look_again_) {
      std::erase_if(things_, [&](const Thing& old) { return !is_there(old); });
      look_again_ = std::max(kFewest, 2 * things_.size());
    }
    things_.push_back(thing);
  }

  /** All things, with those that are gone. The list is empty then. */
  [[nodiscard]] std::vector<Thing> take_all() {
    look_again_ = kFewest;
    return std::exchange(things_, {});
  }

 private:
  static constexpr std::size_t kFewest = 8;

  std::vector<Thing> things_;
  std::size_t look_again_ = kFewest;  // at so many
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_LAZY_LIST_H_

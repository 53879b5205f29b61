#ifndef TESTS_SEEDED_ADAPTER_H_
#define TESTS_SEEDED_ADAPTER_H_

/** A library for prices, as far as its users see it, and the adapter that gives it its memory. */
namespace seeded {

/** What the library gets its memory from. */
struct Hooks {
  void* (*allocate)(unsigned long size);
  void (*release)(void* memory);
};

/** Memory on a handle of the adapter's own. */
[[nodiscard]] Hooks hooks_on_a_handle();

/** Reads a price list with the library's parser. The caller ends the list with forget_list(). */
[[nodiscard]] void* parse_list(const Hooks& hooks);

void forget_list(const Hooks& hooks, void* list);

}  // namespace seeded

#endif  // TESTS_SEEDED_ADAPTER_H_

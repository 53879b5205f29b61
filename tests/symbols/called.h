#ifndef TESTS_SYMBOLS_CALLED_H_
#define TESTS_SYMBOLS_CALLED_H_

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/unwinder.h"

/** The test library in its variants, which differ in what they know of themselves. */
namespace called {

inline constexpr const char* kWithDebugInfo = QKMEM_CALLED_FOLDER "/libcalled_debug.so";
inline constexpr const char* kWithLines = QKMEM_CALLED_FOLDER "/libcalled_lines.so";
inline constexpr const char* kWithSymbols = QKMEM_CALLED_FOLDER "/libcalled_symbols.so";
inline constexpr const char* kStripped = QKMEM_CALLED_FOLDER "/libcalled_stripped.so";

/** Has the debug information of the stripped one. */
inline constexpr const char* kDebugFolder = QKMEM_CALLED_FOLDER "/debug";

/** Of the first and the last one. */
inline constexpr const char* kDebugId = "0123456789abcdef0123456789abcdef01234567";
inline constexpr const char* kStrippedId = "fedcba9876543210fedcba9876543210fedcba98";

using Addresses = std::vector<std::uintptr_t>;

/** A library that is loaded until the end of its scope. */
class Library {
 public:
  explicit Library(const char* path) : library_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(library_, nullptr) << dlerror();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { dlclose(library_); }

  /** The stack in a callback that a function of the library calls. */
  Addresses stack_in(const char* function) {
    qk::prepare_stacks(qk::kRuntimeUnwinder);
    auto* const call =
        reinterpret_cast<void (*)(void (*)(void*), void*)>(dlsym(library_, function));
    Addresses addresses(qk::kMostFrames);
    call(
        [](void* data) {
          auto& stack = *static_cast<Addresses*>(data);
          const int depth = qk::capture_stack(stack.data(), qk::kMostFrames);
          stack.resize(static_cast<std::size_t>(depth));
        },
        &addresses);
    return addresses;
  }

 private:
  void* library_;
};

}  // namespace called

#endif  // TESTS_SYMBOLS_CALLED_H_

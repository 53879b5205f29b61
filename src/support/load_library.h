#ifndef SUPPORT_LOAD_LIBRARY_H_
#define SUPPORT_LOAD_LIBRARY_H_

namespace qk {

/**
 * Loads a shared library, which this one does without if the machine doesn't have it. It stays
 * loaded, and stays out of the way: nothing else finds its functions. Null if there is none, and in
 * static programs. Allocates. Keeps errno. Threads: any.
 */
[[nodiscard]] void* load_library(const char* file) noexcept;

/**
 * Keeps the module that contains this code loaded until the process ends, even if the program
 * unloads it. Takes a lock of the dynamic linker. Allocates. Keeps errno. Threads: any.
 */
void keep_own_module_loaded() noexcept;

/**
 * Whether the module that contains this code is the program, or was loaded with it: then it stays
 * until the process ends. It is also true of libraries that the program has loaded for all to see,
 * once their constructors have run. A copy of this library that hides its functions in another one
 * always counts as loaded later. Locks and memory are as above.
 */
[[nodiscard]] bool is_linked_to_program() noexcept;

/** Whether the program, or a library that it was linked with, has a function. Threads: any. */
[[nodiscard]] bool process_has(const char* function) noexcept;

/** Sets `function` to the library's function of this name. Returns false if there is none. */
[[nodiscard]] bool find_function(void* library, const char* name, void*& function) noexcept;

template <class Function>
[[nodiscard]] bool find_function(void* library, const char* name, Function*& function) noexcept {
  void* found = nullptr;
  const bool is_found = find_function(library, name, found);
  function = reinterpret_cast<Function*>(found);
  return is_found;
}

}  // namespace qk

#endif  // SUPPORT_LOAD_LIBRARY_H_

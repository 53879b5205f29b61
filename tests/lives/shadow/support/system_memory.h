#ifndef TESTS_LIVES_SHADOW_SUPPORT_SYSTEM_MEMORY_H_
#define TESTS_LIVES_SHADOW_SUPPORT_SYSTEM_MEMORY_H_

// Replaces the library's own header, which is included here under other names.
#define user_memory real_user_memory
#define own_memory real_own_memory
#include "../../../../src/support/system_memory.h"
#undef user_memory
#undef own_memory

#include <source_location>

#include "tests/lives/arena.h"

/** The library's way to the allocator, which leads to the arena here. */
namespace qk {

namespace user_memory {

[[nodiscard]] inline void* allocate(std::size_t size) {
  return lives::arena::allocate(size, lives::arena::kUser);
}

[[nodiscard]] inline void* allocate_zeroed(std::size_t num, std::size_t size) {
  return lives::arena::allocate_zeroed(product(num, size), lives::arena::kUser);
}

[[nodiscard]] inline void* resize(void* memory, std::size_t size) {
  if (size == 0) errno = 0;
  return lives::arena::resize(memory, size, lives::arena::kUser);
}

[[nodiscard]] inline void* copy_of(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  void* memory = allocate(size);
  return memory == nullptr ? nullptr : std::memcpy(memory, text, size);
}

inline void release(void* memory) { lives::arena::release(memory); }

}  // namespace user_memory

namespace own_memory {

using Caller = std::source_location;

[[nodiscard]] inline void* allocate(std::size_t size, Caller caller = Caller::current()) {
  return lives::arena::allocate(size, caller.file_name());
}

[[nodiscard]] inline void* allocate_zeroed(std::size_t num, std::size_t size,
                                           Caller caller = Caller::current()) {
  return lives::arena::allocate_zeroed(product(num, size), caller.file_name());
}

[[nodiscard]] inline void* resize(void* memory, std::size_t size,
                                  Caller caller = Caller::current()) {
  return lives::arena::resize(memory, size, caller.file_name());
}

inline void release(void* memory) { lives::arena::release(memory); }

template <class Object>
[[nodiscard]] Object* make(Caller caller = Caller::current()) {
  void* memory = lives::arena::allocate(sizeof(Object), caller.file_name());
  return memory == nullptr ? nullptr : new (memory) Object;
}

template <class Object>
void destroy(Object* object) {
  if (object != nullptr) object->~Object();
  release(object);
}

struct Release {
  void operator()(void* memory) const { release(memory); }
};

using real_own_memory::Allocator;
using real_own_memory::construct_at;
using real_own_memory::make_in;

}  // namespace own_memory
}  // namespace qk

#endif  // TESTS_LIVES_SHADOW_SUPPORT_SYSTEM_MEMORY_H_

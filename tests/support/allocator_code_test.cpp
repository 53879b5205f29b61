#include "support/allocator_code.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace {

using qk::InterruptedThread;
using qk::is_in_allocator;

constexpr std::array<std::uintptr_t, 128> kEmptyStack = {};

template <class Function>
std::uintptr_t inside(Function* function) {
  return reinterpret_cast<std::uintptr_t>(function) + 1;
}

/** The function of the C library: test programs have a malloc of their own in front of it. */
std::uintptr_t inside(const char* name) {
  return reinterpret_cast<std::uintptr_t>(dlsym(RTLD_NEXT, name)) + 1;
}

InterruptedThread at(std::uintptr_t instruction,
                     const std::array<std::uintptr_t, 128>& stack = kEmptyStack) {
  InterruptedThread thread;
  thread.instruction = instruction;
  thread.stack = reinterpret_cast<std::uintptr_t>(stack.data());
  return thread;
}

class AllocatorCode : public ::testing::Test {
 protected:
  AllocatorCode() { qk::find_allocator_code(); }
};

TEST_F(AllocatorCode, IsRecognizedByTheInstruction) {
  EXPECT_TRUE(is_in_allocator(at(inside("malloc"))));
  EXPECT_TRUE(is_in_allocator(at(inside("free"))));
  EXPECT_TRUE(is_in_allocator(at(inside("realloc"))));
  EXPECT_TRUE(is_in_allocator(at(inside("fork"))));
  EXPECT_FALSE(is_in_allocator(at(inside(&::getpid))));
  EXPECT_FALSE(is_in_allocator(at(inside(&qk::find_allocator_code))));
}

TEST_F(AllocatorCode, IsRecognizedByAReturnAddress) {
  std::array<std::uintptr_t, 128> stack = {};
  stack[20] = inside("malloc");
  EXPECT_TRUE(is_in_allocator(at(inside(&::getpid), stack)));
  InterruptedThread thread = at(inside(&::getpid));
  thread.return_address = inside("malloc");
  EXPECT_TRUE(is_in_allocator(thread));
}

TEST_F(AllocatorCode, IsNotWhereAThreadWaitsForSomethingElse) {
  std::array<std::uintptr_t, 128> stack = {};
  stack[20] = inside("malloc");  // left there by an earlier call
  InterruptedThread thread = at(inside(&::getpid), stack);
  thread.waits_in_kernel = true;
  EXPECT_FALSE(is_in_allocator(thread));
}

TEST_F(AllocatorCode, DoesNotReadBeyondTheStack) {
  InterruptedThread thread = at(inside(&::getpid));
  thread.stack = 16;
  EXPECT_FALSE(is_in_allocator(thread));
}

}  // namespace

#include "support/modules.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>

namespace {

int variable = 1;
void function() {}

template <class Thing>
std::uintptr_t address_of(Thing* thing) {
  return reinterpret_cast<std::uintptr_t>(thing);
}

TEST(Modules, KnowTheProgramWithItsCodeAndItsVariables) {
  const qk::Module program = qk::module_with(address_of(&function));
  EXPECT_TRUE(program.is_program);
  EXPECT_TRUE(program.code.has(address_of(&function)));
  EXPECT_FALSE(program.code.has(address_of(&variable)));
  EXPECT_TRUE(program.data.has(address_of(&variable)));
  EXPECT_FALSE(program.data.has(address_of(&function)));
}

TEST(Modules, TellASharedLibraryFromTheProgram) {
  const qk::Module library = qk::module_with(address_of(&::getppid));
  EXPECT_FALSE(library.is_program);
  EXPECT_TRUE(library.code.has(address_of(&::getppid)));
  EXPECT_FALSE(library.code.has(address_of(&function)));
  EXPECT_LT(library.data.begin, library.data.end);
  EXPECT_FALSE(library.data.has(address_of(&variable)));
}

TEST(Modules, HaveNoCodeWhereThereIsNone) {
  for (const std::uintptr_t address : {std::uintptr_t{16}, address_of(&variable)}) {
    const qk::Module none = qk::module_with(address);
    EXPECT_EQ(none.code.begin, none.code.end);
    EXPECT_EQ(none.data.begin, none.data.end);
  }
}

TEST(AddressRange, EndsBeforeItsEnd) {
  constexpr qk::AddressRange kRange = {10, 20};
  EXPECT_FALSE(kRange.has(9));
  EXPECT_TRUE(kRange.has(10));
  EXPECT_TRUE(kRange.has(19));
  EXPECT_FALSE(kRange.has(20));
  EXPECT_FALSE(qk::AddressRange().has(0));
}

}  // namespace

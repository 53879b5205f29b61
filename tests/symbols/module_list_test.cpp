#include "symbols/module_list.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/kit/failing_allocator.h"
#include "tests/symbols/called.h"

namespace {

using called::Addresses;
using called::Library;
using qk::KnownModule;

template <class Function>
std::uintptr_t address_of(Function* function) {
  return reinterpret_cast<std::uintptr_t>(function);
}

void of_the_program() {}

/** The entry of the test library that was called in a stack; null if there is none. */
const KnownModule* called_module(const qk::ModuleList& modules, const Addresses& stack,
                                 const char* name) {
  for (const std::uintptr_t address : stack) {
    const KnownModule* const module = modules.find(address);
    if (module != nullptr && module->name() == name) return module;
  }
  return nullptr;
}

int count(const qk::ModuleList& modules) {
  int modules_seen = 0;
  for (const KnownModule* module = modules.newest(); module != nullptr; module = module->next) {
    ++modules_seen;
  }
  return modules_seen;
}

class Modules : public ::testing::Test {
 protected:
  qk::ModuleList modules_;
};

TEST_F(Modules, AreUnknownBeforeTheFirstRefresh) {
  EXPECT_EQ(modules_.find(address_of(&of_the_program)), nullptr);
  EXPECT_EQ(modules_.newest(), nullptr);
}

TEST_F(Modules, CanBeThoseOfAnotherProcess) {
  KnownModule module;
  std::string path = "/lib/libother.so";
  module.path = path.c_str();
  module.base = 0x5000;
  module.code[module.code_ranges++] = {0x6000, 0x7000};
  ASSERT_TRUE(modules_.add(module));
  path.clear();
  ASSERT_NE(modules_.find(0x6000), nullptr);
  EXPECT_EQ(modules_.find(0x6fff)->name(), "libother.so");
  EXPECT_EQ(modules_.find(0x7000), nullptr);
}

TEST_F(Modules, IncludeTheProgramUnderItsPath) {
  modules_.refresh();
  const KnownModule* const program = modules_.find(address_of(&of_the_program));
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(std::string(program->path), std::filesystem::read_symlink("/proc/self/exe"));
  EXPECT_EQ(program->name(), "symbols_tests");
  EXPECT_TRUE(program->is_loaded);
}

TEST_F(Modules, IncludeSharedLibraries) {
  modules_.refresh();
  const KnownModule* const library = modules_.find(address_of(&::getppid));
  ASSERT_NE(library, nullptr);
  EXPECT_NE(library, modules_.find(address_of(&of_the_program)));
  EXPECT_EQ(library->path[0], '/');
}

TEST_F(Modules, AreFoundByTheirLiteralsAndVariables) {
  static int variable = 1;
  const char* const literal = "of the program";
  modules_.refresh();
  const KnownModule* const program = modules_.find(address_of(&of_the_program));
  EXPECT_EQ(modules_.find_owner(address_of(literal)), program);
  EXPECT_EQ(modules_.find_owner(address_of(&variable)), program);
  EXPECT_EQ(modules_.find_owner(address_of(&of_the_program)), program);
  EXPECT_NE(modules_.find_owner(address_of(&::getppid)), program);
  EXPECT_EQ(modules_.find_owner(address_of(&literal)), nullptr);
}

TEST_F(Modules, DoNotIncludeWhatIsNoCode) {
  modules_.refresh();
  EXPECT_EQ(modules_.find(16), nullptr);
  EXPECT_EQ(modules_.find(address_of(&modules_)), nullptr);
}

TEST_F(Modules, HaveTheirBuildIds) {
  Library with(called::kWithDebugInfo);
  Library without(called::kWithSymbols);
  modules_.refresh();
  const KnownModule* const one =
      called_module(modules_, with.stack_in("call_back"), "libcalled_debug.so");
  ASSERT_NE(one, nullptr);
  EXPECT_EQ(one->build_id.text(), called::kDebugId);
  const KnownModule* const other =
      called_module(modules_, without.stack_in("call_back"), "libcalled_symbols.so");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->build_id.text(), "");
}

TEST_F(Modules, AreKnownFromTheNextRefreshOn) {
  modules_.refresh();
  Library library(called::kWithSymbols);
  const Addresses stack = library.stack_in("call_back");
  EXPECT_EQ(called_module(modules_, stack, "libcalled_symbols.so"), nullptr);
  modules_.refresh();
  EXPECT_NE(called_module(modules_, stack, "libcalled_symbols.so"), nullptr);
}

TEST_F(Modules, StayKnownWhenTheyAreUnloaded) {
  Addresses stack;
  {
    Library library(called::kWithDebugInfo);
    stack = library.stack_in("call_back");
    modules_.refresh();
  }
  modules_.refresh();
  const KnownModule* const unloaded = called_module(modules_, stack, "libcalled_debug.so");
  ASSERT_NE(unloaded, nullptr);
  EXPECT_FALSE(unloaded->is_loaded);
  EXPECT_EQ(std::string(unloaded->path), called::kWithDebugInfo);
  EXPECT_EQ(unloaded->build_id.text(), called::kDebugId);
}

TEST_F(Modules, AreListedOnce) {
  Library library(called::kWithSymbols);
  modules_.refresh();
  const int before = count(modules_);
  {
    Library another(called::kWithDebugInfo);
    modules_.refresh();
  }
  modules_.refresh();
  modules_.refresh();
  EXPECT_EQ(count(modules_), before + 1);
}

bool overlap(const KnownModule& one, const KnownModule& other) {
  return one.code[0].begin < other.code[0].end && other.code[0].begin < one.code[0].end;
}

/** The dynamic linker decides where the second library goes; usually it takes the same place. */
TEST_F(Modules, GiveWayToOthersThatAreLoadedInTheirPlace) {
  const KnownModule* first = nullptr;
  {
    Library library(called::kWithDebugInfo);
    modules_.refresh();
    first = called_module(modules_, library.stack_in("call_back"), "libcalled_debug.so");
    ASSERT_NE(first, nullptr);
  }
  modules_.refresh();
  EXPECT_FALSE(modules_.reuses_addresses());
  Library library(called::kWithSymbols);
  modules_.refresh();
  const KnownModule* const second =
      called_module(modules_, library.stack_in("call_back"), "libcalled_symbols.so");
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(second->is_loaded);
  EXPECT_EQ(modules_.reuses_addresses(), overlap(*first, *second));
}

TEST_F(Modules, AreTheSameWhenTheyAreLoadedAgainInTheirPlace) {
  std::optional<std::uintptr_t> base;
  for (int i = 0; i < 3; ++i) {
    Library library(called::kWithDebugInfo);
    modules_.refresh();
    const KnownModule* const module =
        called_module(modules_, library.stack_in("call_back"), "libcalled_debug.so");
    ASSERT_NE(module, nullptr);
    EXPECT_TRUE(module->is_loaded);
    const bool is_in_its_place = base.value_or(module->base) == module->base;
    EXPECT_FALSE(is_in_its_place && modules_.reuses_addresses());
    base = module->base;
  }
}

TEST_F(Modules, OfRelativePathsAreKnownByAbsoluteOnes) {
  std::filesystem::current_path(QKMEM_CALLED_FOLDER);
  Library library("./libcalled_symbols.so");
  modules_.refresh();
  std::filesystem::current_path("/");
  const KnownModule* const module =
      called_module(modules_, library.stack_in("call_back"), "libcalled_symbols.so");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module->path, std::string(QKMEM_CALLED_FOLDER "/./libcalled_symbols.so"));
}

TEST_F(Modules, NeedNoHeap) {
  kit::fail_all_requests();
  modules_.refresh();
  const KnownModule* const program = modules_.find(address_of(&of_the_program));
  const bool failed = kit::has_failed();
  kit::let_succeed();
  EXPECT_FALSE(failed);
  EXPECT_NE(program, nullptr);
}

TEST_F(Modules, CanBeReadAndRefreshedByAnyThread) {
  std::atomic<bool> done = false;
  std::atomic<bool> found = true;
  modules_.refresh();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        modules_.refresh();
        if (modules_.find(address_of(&of_the_program)) == nullptr) found = false;
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    const Library library(i % 2 == 0 ? called::kWithDebugInfo : called::kWithSymbols);
    modules_.refresh();
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(found);
}

}  // namespace

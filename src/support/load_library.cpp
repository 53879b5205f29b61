#include "support/load_library.h"

#include <dlfcn.h>

#include <cstdint>

#include "support/keep_errno.h"
#include "support/modules.h"

// Weak, so that a static program needn't have it.
#pragma weak dlsym

namespace qk {
namespace {

/** dlopen(); null in a static program. */
void* open_library(const char* file, int mode) noexcept {
  // A static program can have dlopen() too, which then loads a second C library. So it is looked up
  // by name: static programs have no names.
  void* (*open)(const char*, int) = nullptr;
  if (dlsym == nullptr || !find_function(RTLD_DEFAULT, "dlopen", open)) return nullptr;
  const KeepErrno keep;
  return open(file, mode);
}

Module own_module() noexcept { return module_with(reinterpret_cast<std::uintptr_t>(&own_module)); }

}  // namespace

void* load_library(const char* file) noexcept { return open_library(file, RTLD_NOW | RTLD_LOCAL); }

void keep_own_module_loaded() noexcept {
  const Module own = own_module();
  if (own.is_program || *own.path == '\0') return;
  open_library(own.path, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

bool is_linked_to_program() noexcept {
  const Module own = own_module();
  if (own.is_program) return true;
  void* const program = open_library(nullptr, RTLD_LAZY | RTLD_NOLOAD);
  void* function = nullptr;
  return program != nullptr && find_function(program, "qk_mem_init", function) &&
         own.code.has(reinterpret_cast<std::uintptr_t>(function));
}

bool process_has(const char* function) noexcept {
  return dlsym != nullptr && dlsym(RTLD_DEFAULT, function) != nullptr;
}

bool find_function(void* library, const char* name, void*& function) noexcept {
  function = dlsym(library, name);
  return function != nullptr;
}

}  // namespace qk

#include "support/load_library.h"

#include <dlfcn.h>

#include "support/keep_errno.h"

// Weak, so that a static program needn't have it.
#pragma weak dlsym

namespace qk {

void* load_library(const char* file) noexcept {
  // A static program can have dlopen() too, which then loads a second C library. So it is looked up
  // by name: static programs have no names.
  void* (*open)(const char*, int) = nullptr;
  if (dlsym == nullptr || !find_function(RTLD_DEFAULT, "dlopen", open)) return nullptr;
  const KeepErrno keep;
  return open(file, RTLD_NOW | RTLD_LOCAL);
}

bool process_has(const char* function) noexcept {
  return dlsym != nullptr && dlsym(RTLD_DEFAULT, function) != nullptr;
}

bool find_function(void* library, const char* name, void*& function) noexcept {
  function = dlsym(library, name);
  return function != nullptr;
}

}  // namespace qk

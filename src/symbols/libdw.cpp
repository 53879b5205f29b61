#include "symbols/libdw.h"

#include <dlfcn.h>

#include "support/keep_errno.h"

// Weak, so that a static program needn't have them. It has no libdw.
#pragma weak dlopen
#pragma weak dlsym

namespace qk::dwarf {
namespace {

template <class Function>
bool find(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(dlsym(library, name));
  return function != nullptr;
}

bool find_all(void* library, Functions& functions) {
  return find(library, "dwarf_begin", functions.begin) &&
         find(library, "dwarf_end", functions.end) &&
         find(library, "dwarf_nextcu", functions.nextcu) &&
         find(library, "dwarf_offdie", functions.offdie) &&
         find(library, "dwarf_child", functions.child) &&
         find(library, "dwarf_siblingof", functions.siblingof) &&
         find(library, "dwarf_dieoffset", functions.dieoffset) &&
         find(library, "dwarf_tag", functions.tag) &&
         find(library, "dwarf_ranges", functions.ranges) &&
         find(library, "dwarf_haspc", functions.haspc) &&
         find(library, "dwarf_attr_integrate", functions.attr_integrate) &&
         find(library, "dwarf_formstring", functions.formstring) &&
         find(library, "dwarf_formudata", functions.formudata) &&
         find(library, "dwarf_getsrc_die", functions.getsrc_die) &&
         find(library, "dwarf_lineno", functions.lineno) &&
         find(library, "dwarf_linesrc", functions.linesrc) &&
         find(library, "dwarf_getsrcfiles", functions.getsrcfiles) &&
         find(library, "dwarf_filesrc", functions.filesrc);
}

const Functions* find_library() {
  static Functions functions = {};
  if (dlopen == nullptr || dlsym == nullptr) return nullptr;
  const KeepErrno keep;
  void* const library = dlopen("libdw.so.1", RTLD_NOW | RTLD_LOCAL);
  return library != nullptr && find_all(library, functions) ? &functions : nullptr;
}

}  // namespace

const Functions* load() noexcept {
  static const Functions* const functions = find_library();
  return functions;
}

}  // namespace qk::dwarf

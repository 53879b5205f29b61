#include "symbols/libdw.h"

#include "support/load_library.h"

namespace qk::dwarf {
namespace {

bool find_all(void* library, Functions& functions) {
  return find_function(library, "dwarf_begin", functions.begin) &&
         find_function(library, "dwarf_end", functions.end) &&
         find_function(library, "dwarf_nextcu", functions.nextcu) &&
         find_function(library, "dwarf_offdie", functions.offdie) &&
         find_function(library, "dwarf_child", functions.child) &&
         find_function(library, "dwarf_siblingof", functions.siblingof) &&
         find_function(library, "dwarf_dieoffset", functions.dieoffset) &&
         find_function(library, "dwarf_tag", functions.tag) &&
         find_function(library, "dwarf_ranges", functions.ranges) &&
         find_function(library, "dwarf_haspc", functions.haspc) &&
         find_function(library, "dwarf_attr_integrate", functions.attr_integrate) &&
         find_function(library, "dwarf_formstring", functions.formstring) &&
         find_function(library, "dwarf_formudata", functions.formudata) &&
         find_function(library, "dwarf_getsrc_die", functions.getsrc_die) &&
         find_function(library, "dwarf_lineno", functions.lineno) &&
         find_function(library, "dwarf_linesrc", functions.linesrc) &&
         find_function(library, "dwarf_getsrcfiles", functions.getsrcfiles) &&
         find_function(library, "dwarf_filesrc", functions.filesrc);
}

const Functions* find_library() {
  static Functions functions = {};
  void* const library = load_library("libdw.so.1");
  return library != nullptr && find_all(library, functions) ? &functions : nullptr;
}

}  // namespace

const Functions* load() noexcept {
  static const Functions* const functions = find_library();
  return functions;
}

}  // namespace qk::dwarf

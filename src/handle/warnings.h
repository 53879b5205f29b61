#ifndef QKMEM_HANDLE_WARNINGS_H_
#define QKMEM_HANDLE_WARNINGS_H_

#include "diag/site.h"

namespace qk::mem {

/** Warns that the registry's handle array has no record on handle 1. */
void warn_handle_array_not_found(const Site& site, const void* array);

}  // namespace qk::mem

#endif  // QKMEM_HANDLE_WARNINGS_H_

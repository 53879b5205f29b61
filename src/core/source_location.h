#ifndef QKMEM_CORE_SOURCE_LOCATION_H_
#define QKMEM_CORE_SOURCE_LOCATION_H_

namespace qk::mem {

/** A line of a source file. The name is never copied and must live as long as the program. */
struct SourceLocation {
  const char* file;
  int line;
};

}  // namespace qk::mem

#endif  // QKMEM_CORE_SOURCE_LOCATION_H_

#ifndef QKMEM_TOOLS_PROGRAM_INSPECTION_H_
#define QKMEM_TOOLS_PROGRAM_INSPECTION_H_

#include <stdexcept>
#include <string>

#include "output/sheet.h"

namespace qk::command {

/** A program that can't be looked at. The text is for the user. */
class InspectionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** What is known of a program's file. */
struct Inspection {
  Answer answer;
  bool has_library = false;
};

/**
 * Looks whether the library is in a program, which version, and what reports can name. The program is
 * searched for as a shell does, and not run. Throws InspectionError.
 */
[[nodiscard]] Inspection inspect(const std::string& program);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_INSPECTION_H_

#ifndef TESTS_KIT_LINE_ABOVE_H_
#define TESTS_KIT_LINE_ABOVE_H_

#include <string>
#include <string_view>

namespace kit {

/** The line above the call, as the library shows a location: "make_test.cpp:41". */
[[nodiscard]] inline std::string line_above(std::string_view file = __builtin_FILE(),
                                            int line = __builtin_LINE()) {
  return std::string(file.substr(file.rfind('/') + 1)) + ":" + std::to_string(line - 1);
}

}  // namespace kit

#endif  // TESTS_KIT_LINE_ABOVE_H_

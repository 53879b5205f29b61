#ifndef EXAMPLES_WORD_INDEX_OPTIONS_H_
#define EXAMPLES_WORD_INDEX_OPTIONS_H_

#include <cstddef>
#include <vector>

namespace word_index {

/** The options on the command line. */
struct Options {
  bool leak = false;
  std::size_t top = 10;
  std::size_t runs = 1;            ///< how many times the index is built
  const char* lookup = nullptr;    ///< a word to look up, or null
  std::vector<const char*> paths;  ///< files and folders, never empty
};

/** Fills `options`. On an invalid command line prints the usage and returns false. */
bool parse_options(int argc, char** argv, Options& options);

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_OPTIONS_H_

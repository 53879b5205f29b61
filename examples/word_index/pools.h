#ifndef EXAMPLES_WORD_INDEX_POOLS_H_
#define EXAMPLES_WORD_INDEX_POOLS_H_

#include <cstdio>
#include <cstdlib>

#include "qkmem/qkmem.h"
#include "qkmem/qkmem.hpp"

namespace word_index {

/** The handles of the program, one for each kind of memory it holds; deleted with this object. */
struct Pools {
  qk::Handle buffers;  ///< tag BU: names and texts of files, held while they are read
  qk::Handle index;    ///< tag IX: the words and their places, in blocks that are cleared at once
  qk::Handle results;  ///< tag RE: what is printed
};

/** Opens the handles, or ends the program. */
Pools open_pools();

/**
 * Leaves the handles to the end of the process, where the report shows what is forgotten on them.
 */
void leave_open(Pools& pools);

/**
 * Set by --leak. Each place that asks it is one that programs really get wrong; `grep forgetful`
 * finds them all.
 */
inline bool forgetful = false;

/** Ends the program when memory could not be had: an index that lacks words is worth nothing. */
template <class T>
T* require(T* memory) {
  if (!memory) {
    std::fprintf(stderr, "word_index: out of memory (code %d)\n", qk_mem_error());
    std::exit(EXIT_FAILURE);
  }
  return memory;
}

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_POOLS_H_

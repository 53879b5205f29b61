#ifndef EXAMPLES_WORD_INDEX_POOLS_H_
#define EXAMPLES_WORD_INDEX_POOLS_H_

#include <cstdio>
#include <cstdlib>

#include "qkmem/qkmem.h"
#include "qkmem/qkmem.hpp"

namespace word_index {

/** The handles of the program, one for each kind of memory. Deleted with this object. */
struct Pools {
  qk::Handle buffers;  ///< tag BU: names and texts of files, held while they are read
  qk::Handle index;    ///< tag IX: the words and their places, in blocks that are cleared at once
  qk::Handle results;  ///< tag RE: what is printed
};

/** Creates the handles. Exits on failure. */
Pools open_pools();

/**
 * Releases the handles, so that the report at exit shows what was forgotten on them.
 */
void leave_open(Pools& pools);

/**
 * Set by --leak. Each use of it is at a mistake that real programs make; `grep forgetful` finds
 * them all.
 */
inline bool forgetful = false;

/** Exits if there is no memory, because an index without some words is useless. */
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

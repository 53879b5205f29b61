#ifndef EXAMPLES_WORD_INDEX_RESULTS_H_
#define EXAMPLES_WORD_INDEX_RESULTS_H_

#include <cstddef>

#include "examples/word_index/files.h"
#include "examples/word_index/index.h"

namespace word_index {

/** The most frequent words, copied so that they outlive the index. */
struct TopWords {
  struct Entry {
    char* text;
    std::size_t count;
  };

  int hid;  ///< the handle that holds everything here
  Entry* entries;
  std::size_t count;
};

/**
 * Finds at most `limit` words: the most frequent first, and equally frequent ones by alphabet.
 */
TopWords find_top_words(int hid, const Index& index, std::size_t limit);

void print_top_words(const TopWords& top);

void free_top_words(const TopWords& top);

/** The lines that contain a word, each as "file:line". */
struct FoundLines {
  int hid;  ///< the handle that holds everything here
  char** lines;
  std::size_t count;
};

/** Looks a word up, ignoring case. A line that contains it twice is listed once. */
FoundLines find_lines(int hid, const Index& index, const FileList& files, const char* word);

void print_lines(const FoundLines& found);

void free_lines(const FoundLines& found);

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_RESULTS_H_

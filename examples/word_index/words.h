#ifndef EXAMPLES_WORD_INDEX_WORDS_H_
#define EXAMPLES_WORD_INDEX_WORDS_H_

#include <string_view>

namespace word_index {

/** Longer words are cut. */
constexpr int kMaxWord = 63;

/** Reads a text word by word: runs of ASCII letters, converted to lower case. */
class WordReader {
 public:
  explicit WordReader(std::string_view text) : rest_(text) {}

  /** Advances to the next word. Returns false at the end of the text. */
  bool next();

  [[nodiscard]] const char* word() const { return word_; }
  [[nodiscard]] int line() const { return line_; }

 private:
  std::string_view rest_;
  int line_ = 1;
  char word_[kMaxWord + 1] = "";
};

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_WORDS_H_

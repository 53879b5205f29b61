#include "examples/word_index/words.h"

namespace word_index {
namespace {

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool WordReader::next() {
  while (!rest_.empty() && !is_letter(rest_.front())) {
    if (rest_.front() == '\n') ++line_;
    rest_.remove_prefix(1);
  }
  int length = 0;
  while (!rest_.empty() && is_letter(rest_.front())) {
    if (length < kMaxWord) word_[length++] = lower(rest_.front());
    rest_.remove_prefix(1);
  }
  word_[length] = '\0';
  return length > 0;
}

}  // namespace word_index

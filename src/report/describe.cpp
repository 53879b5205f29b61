// What an address is.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "profile/report/known_address.h"
#include "qkmem/check.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/no_cancellation.h"

namespace qk::mem {
namespace {

/** The words without the newline of a line that was cut. */
std::string_view words_of(qk::Line& line) {
  std::string_view words = line.finish();
  if (words.ends_with('\n')) words.remove_suffix(1);
  return words;
}

}  // namespace
}  // namespace qk::mem

extern "C" std::size_t qk_mem_describe(const void* pointer, char* buffer, std::size_t size) {
  using namespace qk::mem;
  const qk::KeepErrno keep;
  const qk::NoCancellation no_cancellation;
  qk::Line line;
  profile::put_knowledge(line, profile::know(pointer));
  const std::string_view words = words_of(line);
  if (buffer == nullptr || size == 0) return words.size();
  const std::size_t fitting = std::min(words.size(), size - 1);
  std::memcpy(buffer, words.data(), fitting);
  buffer[fitting] = '\0';
  return words.size();
}

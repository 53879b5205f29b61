#include "support/memory_map.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

namespace qk {
namespace {

/** Returns false unless all was read. */
bool read_file(const char* path, PageBuffer& text) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char bytes[4096];
  ssize_t length = 0;
  while ((length = read(file, bytes, sizeof bytes)) > 0) {
    if (!text.append({bytes, static_cast<std::size_t>(length)})) break;
  }
  close(file);
  return length == 0;
}

/** Takes a word from the beginning of a text, and the blanks behind it. */
std::string_view take_word(std::string_view& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(end);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return word;
}

std::uintptr_t hex_number(std::string_view digits) {
  std::uintptr_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  return number;
}

std::string_view take_line(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::size_t lines_of(PageBuffer& text) {
  if (!read_file("/proc/self/maps", text)) return 0;
  return static_cast<std::size_t>(std::count(text.text().begin(), text.text().end(), '\n'));
}

}  // namespace

Mapping parse_mapping(std::string_view line) noexcept {
  Mapping mapping = {};
  const std::string_view range = take_word(line);
  const std::size_t dash = range.find('-');
  const std::string_view rights = take_word(line);
  if (dash == std::string_view::npos || rights.size() != 4) return mapping;
  mapping.range = {hex_number(range.substr(0, dash)), hex_number(range.substr(dash + 1))};
  mapping.is_readable = rights[0] == 'r';
  mapping.is_writable = rights[1] == 'w';
  mapping.is_shared = rights[3] == 's';
  for (int skipped = 0; skipped < 3; ++skipped) take_word(line);  // offset, device, inode
  mapping.path = line;
  return mapping;
}

MemoryMap::MemoryMap() noexcept : mappings_(lines_of(text_)) {
  std::string_view text = text_.text();
  while (!text.empty() && mappings_.push_back(parse_mapping(take_line(text)))) {
  }
}

}  // namespace qk

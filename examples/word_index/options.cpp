#include "examples/word_index/options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace word_index {
namespace {

/** The licence texts that are on every Debian machine. */
constexpr const char* kDefaultFolder = "/usr/share/common-licenses";

bool usage() {
  std::fputs(
      "usage: word_index [--leak] [--top N] [--lookup WORD] [--runs N] [FILE|FOLDER...]\n"
      "  --leak    make the mistakes that the library's report then shows\n"
      "  --top     how many of the most frequent words to print, 10 unless given\n"
      "  --lookup  print where WORD stands\n"
      "  --runs    make the index N times, as a program does that follows changing files\n",
      stderr);
  return false;
}

bool parse_number(const char* text, std::size_t& number) {
  const char* end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, number);
  return error == std::errc() && rest == end;
}

}  // namespace

bool parse_options(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (argument == "--leak") {
      options.leak = true;
    } else if (argument == "--top" && value) {
      if (!parse_number(value, options.top)) return usage();
      ++i;
    } else if (argument == "--runs" && value) {
      if (!parse_number(value, options.runs)) return usage();
      ++i;
    } else if (argument == "--lookup" && value) {
      options.lookup = value;
      ++i;
    } else if (argument.starts_with("-")) {
      return usage();
    } else {
      options.paths.push_back(argv[i]);
    }
  }
  if (options.paths.empty()) options.paths.push_back(kDefaultFolder);
  return true;
}

}  // namespace word_index

/**
 * Indexes the words of text files and allocates its memory on handles, so that the library can
 * report it, see the environment variable QK_MEM_DEBUG. With --leak it forgets to free some of it.
 */
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>
#include <unordered_set>

#include "examples/word_index/files.h"
#include "examples/word_index/index.h"
#include "examples/word_index/options.h"
#include "examples/word_index/pools.h"
#include "examples/word_index/results.h"
#include "examples/word_index/words.h"
#include "qkmem/qkmem.h"

namespace word_index {
namespace {

/** Words that say nothing about a text. */
constexpr std::array kStopWords = {"a", "and", "of", "or", "the", "to"};

/** What was counted while reading the files. */
struct Tally {
  std::size_t indexed = 0;
  std::size_t copies = 0;
  std::size_t unreadable = 0;
  std::size_t words = 0;
};

std::size_t index_text(Index& index, std::string_view text, std::uint32_t file) {
  std::size_t words = 0;
  for (WordReader reader(text); reader.next(); ++words) {
    index.add(reader.word(), {file, reader.line()});
  }
  return words;
}

/** Indexes each text once, even if it has several names: on Debian, GPL is a link to GPL-3. */
Tally index_files(Index& index, const FileList& files) {
  Tally tally;
  std::unordered_set<std::size_t> seen;
  for (std::size_t i = 0; i < files.count; ++i) {
    const Text text = read_text(files.hid, files.names[i]);
    if (!text.data) {
      std::fprintf(stderr, "word_index: %s: %s\n", files.names[i], std::strerror(errno));
      ++tally.unreadable;
      continue;
    }
    if (!seen.insert(std::hash<std::string_view>()(text.view())).second) {
      ++tally.copies;
      // Easy to forget: this `continue` skips the release at the end of the loop.
      if (!forgetful) qk_mem_free(files.hid, text.data);
      continue;
    }
    tally.words += index_text(index, text.view(), static_cast<std::uint32_t>(i));
    ++tally.indexed;
    qk_mem_free(files.hid, text.data);
  }
  return tally;
}

void print_results(const Pools& pools, const Index& index, const FileList& files,
                   const Options& options) {
  if (options.top > 0) {
    const TopWords top = find_top_words(pools.results.number(), index, options.top);
    std::printf("most frequent:\n");
    print_top_words(top);
    free_top_words(top);
  }
  if (options.lookup) {
    const FoundLines found = find_lines(pools.results.number(), index, files, options.lookup);
    std::printf("%s: %zu lines\n", options.lookup, found.count);
    print_lines(found);
    free_lines(found);
  }
}

/** Runs the program except for deleting the handles. Returns true if all files were readable. */
bool run(const Pools& pools, const Options& options) {
  const FileList files = list_files(pools.buffers.number(), options.paths);
  Index index(pools.index.number());
  const Tally tally = index_files(index, files);
  std::printf("%zu files and %zu more that are copies: %zu words, %zu different ones\n",
              tally.indexed, tally.copies, tally.words, index.size());
  for (const char* word : kStopWords) index.remove(word);
  print_results(pools, index, files, options);
  free_files(files);
  return tally.unreadable == 0;
}

}  // namespace
}  // namespace word_index

int main(int argc, char** argv) {
  word_index::Options options;
  if (!word_index::parse_options(argc, argv, options)) return 2;
  word_index::forgetful = options.leak;

  word_index::Pools pools = word_index::open_pools();
  bool complete = true;
  for (std::size_t i = 0; i < options.runs; ++i) complete &= word_index::run(pools, options);
  if (options.leak) word_index::leave_open(pools);
  return complete ? EXIT_SUCCESS : EXIT_FAILURE;
}

#include "examples/word_index/results.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "examples/word_index/pools.h"
#include "examples/word_index/words.h"
#include "qkmem/qkmem.h"

namespace word_index {
namespace {

bool ranks_before(const Word* a, const Word* b) {
  if (a->count != b->count) return a->count > b->count;
  return std::strcmp(a->text, b->text) < 0;
}

bool same_line(Place a, Place b) { return a.file == b.file && a.line == b.line; }

void append(FoundLines& found, const char* file, int line) {
  const std::string text = std::string(file) + ":" + std::to_string(line);
  void* grown = qk_mem_realloc(found.hid, found.lines, (found.count + 1) * sizeof(char*));
  found.lines = static_cast<char**>(require(grown));
  found.lines[found.count++] = require(qk_mem_strdup(found.hid, text.c_str()));
}

}  // namespace

TopWords find_top_words(int hid, const Index& index, std::size_t limit) {
  std::vector<const Word*> ranking;
  ranking.reserve(index.size());
  index.for_each([&](const Word& word) { ranking.push_back(&word); });
  std::sort(ranking.begin(), ranking.end(), ranks_before);
  ranking.resize(std::min(limit, ranking.size()));

  TopWords top{hid, nullptr, ranking.size()};
  if (ranking.empty()) return top;
  void* entries = require(qk_mem_calloc(hid, top.count, sizeof(TopWords::Entry)));
  top.entries = static_cast<TopWords::Entry*>(entries);
  for (std::size_t i = 0; i < top.count; ++i) {
    top.entries[i] = {require(qk_mem_strdup(hid, ranking[i]->text)), ranking[i]->count};
  }
  return top;
}

void print_top_words(const TopWords& top) {
  for (std::size_t i = 0; i < top.count; ++i) {
    std::printf("%7zu  %s\n", top.entries[i].count, top.entries[i].text);
  }
}

void free_top_words(const TopWords& top) {
  // Easy to forget: each entry owns its text.
  if (!forgetful) {
    for (std::size_t i = 0; i < top.count; ++i) qk_mem_free(top.hid, top.entries[i].text);
  }
  if (top.entries) qk_mem_free(top.hid, top.entries);
}

FoundLines find_lines(int hid, const Index& index, const FileList& files, const char* word) {
  FoundLines found{hid, nullptr, 0};
  WordReader reader(word);
  const Word* entry = reader.next() ? index.find(reader.word()) : nullptr;
  if (!entry) return found;
  std::optional<Place> before;
  entry->for_each_place([&](Place place) {
    if (!before || !same_line(place, *before)) append(found, files.names[place.file], place.line);
    before = place;
  });
  return found;
}

void print_lines(const FoundLines& found) {
  for (std::size_t i = 0; i < found.count; ++i) std::printf("  %s\n", found.lines[i]);
}

void free_lines(const FoundLines& found) {
  for (std::size_t i = 0; i < found.count; ++i) qk_mem_free(found.hid, found.lines[i]);
  if (found.lines) qk_mem_free(found.hid, found.lines);
}

}  // namespace word_index

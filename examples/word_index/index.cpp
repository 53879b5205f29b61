#include "examples/word_index/index.h"

#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

#include "examples/word_index/pools.h"
#include "qkmem/qkmem.h"

namespace word_index {
namespace {

constexpr std::size_t kFirstBuckets = 256;

Word** make_buckets(int hid, std::size_t count) {
  return static_cast<Word**>(require(qk_mem_calloc(hid, count, sizeof(Word*))));
}

}  // namespace

Index::Index(int hid)
    : hid_(hid), bucket_count_(kFirstBuckets), buckets_(make_buckets(hid, kFirstBuckets)) {}

Index::~Index() { qk_mem_clear_handle(hid_); }

void Index::add(const char* text, Place place) {
  Word** link = link_to(text);
  if (!*link) {
    if (size_ == bucket_count_) {
      grow();
      link = link_to(text);
    }
    *link = make_word(text);
    ++size_;
  }
  append(**link, place);
}

void Index::remove(const char* text) {
  Word** link = link_to(text);
  Word* word = *link;
  if (!word) return;
  *link = word->next;
  --size_;
}

const Word* Index::find(const char* text) const { return *link_to(text); }

Word** Index::link_to(const char* text) const {
  Word** link = bucket_of(text);
  while (*link && std::strcmp((*link)->text, text) != 0) link = &(*link)->next;
  return link;
}

Word** Index::bucket_of(const char* text) const {
  return &buckets_[std::hash<std::string_view>()(text) % bucket_count_];
}

Word* Index::make_word(const char* text) {
  auto* word = static_cast<Word*>(require(qk_mem_calloc(hid_, 1, sizeof(Word))));
  word->text = require(qk_mem_strdup(hid_, text));
  return word;
}

void Index::append(Word& word, Place place) {
  const std::size_t used = word.count % PlaceChunk::kPlaces;
  if (used == 0) {
    void* memory = require(qk_mem_calloc(hid_, 1, sizeof(PlaceChunk)));
    PlaceChunk*& link = word.last ? word.last->next : word.first;
    word.last = link = static_cast<PlaceChunk*>(memory);
  }
  word.last->places[used] = place;
  ++word.count;
}

void Index::grow() {
  const std::size_t old_count = std::exchange(bucket_count_, bucket_count_ * 2);
  Word** old_buckets = std::exchange(buckets_, make_buckets(hid_, bucket_count_));
  for (std::size_t i = 0; i < old_count; ++i) {
    for (Word* word = old_buckets[i]; word;) {
      Word* next = word->next;
      Word** bucket = bucket_of(word->text);
      word->next = *bucket;
      *bucket = word;
      word = next;
    }
  }
}

}  // namespace word_index

#ifndef EXAMPLES_WORD_INDEX_INDEX_H_
#define EXAMPLES_WORD_INDEX_INDEX_H_

#include <cstddef>
#include <cstdint>

namespace word_index {

/** Where a word stands. */
struct Place {
  std::uint32_t file;  ///< number of the file in the order of reading
  std::int32_t line;
};

/** Some places of a word, and the way to those behind them. */
struct PlaceChunk {
  static constexpr std::size_t kPlaces = 6;

  Place places[kPlaces];
  PlaceChunk* next;
};

/** A word and all its places, in the order of reading. */
struct Word {
  char* text;
  PlaceChunk* first;
  PlaceChunk* last;
  std::size_t count;  ///< of places; only the last chunk can be partly filled
  Word* next;         ///< in the same bucket

  /** Calls `visit(Place)` for each place. */
  template <class Visitor>
  void for_each_place(Visitor visit) const {
    std::size_t left = count;
    for (const PlaceChunk* chunk = first; chunk; chunk = chunk->next) {
      for (std::size_t i = 0; i < PlaceChunk::kPlaces && left > 0; ++i, --left) {
        visit(chunk->places[i]);
      }
    }
  }
};

/**
 * A hash table of words. All that it holds lives on one block-managed handle, which the index has
 * to itself: nothing is freed one by one, the handle is cleared when the index goes.
 */
class Index {
 public:
  explicit Index(int hid);
  ~Index();
  Index(const Index&) = delete;
  Index& operator=(const Index&) = delete;

  void add(const char* text, Place place);

  /** Takes a word out, if it is there. Its memory stays with the handle until the index goes. */
  void remove(const char* text);

  /** The word, or null. */
  [[nodiscard]] const Word* find(const char* text) const;

  /** Number of different words. */
  [[nodiscard]] std::size_t size() const { return size_; }

  /** Calls `visit(const Word&)` for each word, in no useful order. */
  template <class Visitor>
  void for_each(Visitor visit) const {
    for (std::size_t i = 0; i < bucket_count_; ++i) {
      for (const Word* word = buckets_[i]; word; word = word->next) visit(*word);
    }
  }

 private:
  /** The link that leads to the word, or the empty one where it belongs. */
  [[nodiscard]] Word** link_to(const char* text) const;
  [[nodiscard]] Word** bucket_of(const char* text) const;
  Word* make_word(const char* text);
  void append(Word& word, Place place);
  void grow();

  int hid_;
  std::size_t bucket_count_;
  Word** buckets_;
  std::size_t size_ = 0;
};

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_INDEX_H_

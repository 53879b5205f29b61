#ifndef EXAMPLES_WORD_INDEX_INDEX_H_
#define EXAMPLES_WORD_INDEX_INDEX_H_

#include <cstddef>
#include <cstdint>

namespace word_index {

/** An occurrence of a word. */
struct Place {
  std::uint32_t file;  ///< number of the file in the order of reading
  std::int32_t line;
};

/** Some places of a word, and a link to the next chunk. */
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
  std::size_t count;  ///< number of places; only the last chunk can be partly filled
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
 * A hash table of words. All its memory is on one block-managed handle that nothing else uses:
 * nothing is freed one by one, and the destructor clears the handle.
 */
class Index {
 public:
  explicit Index(int hid);
  ~Index();
  Index(const Index&) = delete;
  Index& operator=(const Index&) = delete;

  void add(const char* text, Place place);

  /** Removes a word if it is there. Its memory stays on the handle as long as the index exists. */
  void remove(const char* text);

  /** Returns the word, or null if it is not there. */
  [[nodiscard]] const Word* find(const char* text) const;

  /** Returns the number of different words. */
  [[nodiscard]] std::size_t size() const { return size_; }

  /** Calls `visit(const Word&)` for each word, in no useful order. */
  template <class Visitor>
  void for_each(Visitor visit) const {
    for (std::size_t i = 0; i < bucket_count_; ++i) {
      for (const Word* word = buckets_[i]; word; word = word->next) visit(*word);
    }
  }

 private:
  /** Returns the link to the word, or the null link where it belongs. */
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

#ifndef TESTS_LIVES_LIFE_H_
#define TESTS_LIVES_LIFE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "tests/lives/companion.h"

/** A random program that uses the library, chosen by a seed. */
namespace lives {

/** Chooses at random, the same for the same seed. */
class Choice {
 public:
  explicit Choice(unsigned seed) : random_(seed) {}

  /** A number below `end`, which is above 0. */
  [[nodiscard]] unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

  /** Whether something that happens in one of `n` cases does. */
  [[nodiscard]] bool one_in(unsigned n) { return below(n) == 0; }

  template <class T, std::size_t kSize>
  [[nodiscard]] T of(const T (&all)[kSize]) {
    return all[below(kSize)];
  }

 private:
  std::mt19937 random_;
};

/** What a life is like. */
struct Character {
  explicit Character(Choice& choice);

  bool crowded;   // thousands of records, few of them logged
  bool careless;  // misuses much
  unsigned steps;
  unsigned most_live;  // entries of one handle
  unsigned largest;    // bytes of an ordinary request
};

class Life {
 public:
  explicit Life(unsigned seed);

  /** Sets the environment that the library reads. */
  void choose_environment();

  void live();

  /** Ends the process, in one of several ways. */
  [[noreturn]] void end();

 private:
  enum class Kind { kMemory, kExternal, kObject, kArray };
  struct Entry {
    char* memory;
    std::size_t size;
    Kind kind;
  };
  struct Pool {
    int hid;
    bool in_blocks;
    std::uint32_t generation;
    std::vector<Entry> entries;
    void* array = nullptr;  // a managed one
    std::size_t element = 0;
    std::size_t factor = 0;
  };

  void step();
  void call_on_some_thread(unsigned number);

  // Memory.
  void allocate();
  void allocate_many();
  void resize();
  void release();
  void release_newest();
  void misuse_free();
  void misuse_realloc();
  void push();
  void free_array();
  char* allocate_on(Pool& pool, std::size_t size);
  std::size_t size_for(const Pool& pool);
  int alignment();
  void keep(Pool& pool, char* memory, std::size_t size, Kind kind);
  void* wrong_pointer(const Pool& pool);

  // What comes from elsewhere.
  void register_external();
  void register_object();
  void deregister();
  void misuse_registration();
  void give_back(const Entry& entry);

  // Handles, and what is asked of them.
  void create();
  void create_many();
  void destroy();
  void clear();
  void ask();
  void drop_contents(Pool& pool);

  // The library as a whole.
  void configure();
  void print_report();
  void set_baseline();
  void ask_for_info();
  void fail_some_request();
  void change_threads();
  void fork_child();
  void be_the_child();

  Pool& any_pool();
  Entry* any_entry(Pool& pool);
  void forget(Pool& pool, const Entry& entry);
  int wrong_number();

  // Where all calls of a step are made.
  void choose_place();
  [[nodiscard]] const char* file() const { return file_; }
  [[nodiscard]] int line() const { return line_; }

  Choice choice_;
  Character character_;
  std::vector<Pool> pools_;
  std::vector<void*> gone_;  // what was memory once
  Companion companion_;
  const char* file_ = "app.c";
  int line_ = 1;
  std::FILE* report_ = nullptr;
  bool is_child_ = false;
  bool is_loud_ = false;  // writes much for every event
};

}  // namespace lives

#endif  // TESTS_LIVES_LIFE_H_

#ifndef TESTS_KIT_PROGRAM_H_
#define TESTS_KIT_PROGRAM_H_

#include <cstddef>
#include <cstdint>

/** For scenarios of run_with_failures(). */
namespace kit {

/**
 * A program that uses handles and continues after each failure: it repeats a call that failed, with
 * memory available again, and the call must then succeed. It fills the memory that it gets and
 * checks the contents of all of it after each step. It requests no memory itself.
 */
class Program {
 public:
  Program() = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /** Returns 0 if has_lost_handle_array(). */
  int create_handle(const char* options, const char* tag = "");

  /** The library releases what the handle has recorded; the program frees the rest. */
  void delete_handle(int hid);

  /** Releases pieces and what was registered. */
  void clear(int hid);

  /** These return the index of the new memory, or -1 if there is none. */
  int malloc(int hid, std::size_t size);
  int calloc(int hid, std::size_t num, std::size_t size);
  int strdup(int hid, const char* text);
  int realloc_new(int hid, std::size_t size);
  void realloc(int index, std::size_t size);
  void recalloc(int index, std::size_t num, std::size_t size);
  void free(int index);

  /** Registers memory that the program allocates itself. */
  int register_external(int hid, std::size_t size);
  void deregister(int index);

  /** Appends an element of 8 bytes to the program's managed array; there is only one. */
  void push(int hid, std::size_t block_factor);
  void free_array(int hid);

  /** Checks the contents of all memory. */
  void check() const;

  /** Requires that all allocated memory is the program's or the library's. */
  void expect_nothing_lost() const;

 private:
  struct Piece {
    char* memory;
    std::size_t size;
    int hid;
    char mark;
  };
  struct Array {
    void* elements = nullptr;
    std::int64_t count = 0;
  };
  static constexpr int kMost = 400;

  static int note_created(int hid);
  int hold(int hid, void* memory, std::size_t size);
  void forget(int index);
  [[nodiscard]] bool holds_at(int index) const;
  [[nodiscard]] bool holds(const void* memory) const;
  template <class Call>
  void* attempt(int hid, Call call);
  template <class Call>
  void* attempt_resize(const Piece& piece, Call call);

  Piece pieces_[kMost] = {};
  int count_ = 0;
  char mark_ = 0;
  Array array_;
};

/** Whether there is a handle of this number. */
[[nodiscard]] bool has_handle(int hid);

/** Whether the handle array couldn't grow, after which no handle can be created. */
[[nodiscard]] bool has_lost_handle_array();

}  // namespace kit

#endif  // TESTS_KIT_PROGRAM_H_

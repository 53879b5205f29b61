#ifndef TESTS_KIT_PROGRAM_H_
#define TESTS_KIT_PROGRAM_H_

#include <cstddef>
#include <cstdint>

/** For scenarios of run_with_failures(). */
namespace kit {

/**
 * A program that uses handles and goes on after each failure: what a call refused is asked for once
 * more, with memory to be had again, and is then given. It holds what it was given and keeps it
 * filled, and looks after each step whether all of that is as it was. It makes no request of its
 * own.
 */
class Program {
 public:
  Program() = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /** 0 where the library can't make any: it lost its table of handles. */
  int create_handle(const char* options, const char* tag = "");

  /** All that a handle has recorded goes with it, what it hasn't is freed by the program. */
  void delete_handle(int hid);

  /** Pieces go; memory and objects that were registered too. */
  void clear(int hid);

  /** Each keeps what it was given under an index; -1 stands for nothing. */
  int malloc(int hid, std::size_t size);
  int calloc(int hid, std::size_t num, std::size_t size);
  int strdup(int hid, const char* text);
  int realloc_new(int hid, std::size_t size);
  void realloc(int index, std::size_t size);
  void recalloc(int index, std::size_t num, std::size_t size);
  void free(int index);

  /** External memory of the program's. */
  int register_external(int hid, std::size_t size);
  void deregister(int index);

  /** The program's managed array, of elements of 8 bytes; it has one at a time. */
  void push(int hid, std::size_t block_factor);
  void free_array(int hid);

  /** Looks at all that is held. */
  void check() const;

  /** All that was obtained is held, recorded, or what the library keeps for itself. */
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

  static int note_made(int hid);
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

/** Whether a piece of memory is the library's: tables, handles, blocks, or recorded on a handle. */
[[nodiscard]] bool is_library_memory(const void* memory);

/** Whether there is a handle of this number. */
[[nodiscard]] bool has_handle(int hid);

/** Whether the table of handles couldn't grow, after which no handle can be made. */
[[nodiscard]] bool has_lost_handle_array();

}  // namespace kit

#endif  // TESTS_KIT_PROGRAM_H_

#ifndef TESTS_FUZZ_FUZZING_H_
#define TESTS_FUZZ_FUZZING_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/** What all fuzz targets share. A target is a file with one LLVMFuzzerTestOneInput(). */
namespace fuzz {

/** Ends the process as a crash, with a line that tells what was wrong. */
void require(bool holds, const char* what, int line = __builtin_LINE());

/**
 * The library as a process begins with it, but for its two standing handles: no handle of the
 * program, no tag, no configuration, no log and no trace file; and an empty current folder. What an
 * input finds so doesn't depend on the inputs before it.
 */
void start_anew();

/** The part of an input up to the next newline, which is taken off; a copy of exactly its size. */
class Words {
 public:
  Words(const std::uint8_t* data, std::size_t size)
      : next_(reinterpret_cast<const char*>(data)), end_(next_ + size) {}

  [[nodiscard]] std::string next();

 private:
  const char* next_;
  const char* end_;
};

/** A text in memory of exactly its size, so that a sanitizer sees each byte read behind it. */
class ExactText {
 public:
  explicit ExactText(const std::string& text);
  ExactText(const ExactText&) = delete;
  ExactText& operator=(const ExactText&) = delete;
  ~ExactText() { std::free(text_); }

  operator const char*() const { return text_; }  // NOLINT: it stands for its text
  [[nodiscard]] char* begin() { return text_; }

 private:
  char* text_;
};

/** Whether a call that reads options can refuse them with this code. */
[[nodiscard]] bool is_refusal(int code);

/** Makes and releases a little memory of every kind, under whatever is configured. */
void use_library();

}  // namespace fuzz

#endif  // TESTS_FUZZ_FUZZING_H_

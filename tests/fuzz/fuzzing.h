#ifndef TESTS_FUZZ_FUZZING_H_
#define TESTS_FUZZ_FUZZING_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/** Helpers of the fuzz targets. Each target is a file with one LLVMFuzzerTestOneInput(). */
namespace fuzz {

/** Unless `holds`, writes `what` and aborts. */
void require(bool holds, const char* what, int line = __builtin_LINE());

/**
 * Resets the library and empties the current folder, so that an input doesn't depend on the inputs
 * before it: only the library's own two handles remain, without tags, configuration, log and trace
 * file.
 */
void reset();

/** Splits an input into lines. */
class Lines {
 public:
  Lines(const std::uint8_t* data, std::size_t size)
      : next_(reinterpret_cast<const char*>(data)), end_(next_ + size) {}

  /** The next line without its newline, cut at a zero byte. */
  [[nodiscard]] std::string next();

 private:
  const char* next_;
  const char* end_;
};

/** A text in memory of exactly its size, so that a sanitizer finds reads beyond its end. */
class ExactText {
 public:
  explicit ExactText(const std::string& text);
  ExactText(const ExactText&) = delete;
  ExactText& operator=(const ExactText&) = delete;
  ~ExactText() { std::free(text_); }

  operator const char*() const { return text_; }  // NOLINT: used like its text
  [[nodiscard]] char* begin() { return text_; }

 private:
  char* text_;
};

/** Whether this is a code with which calls refuse options. */
[[nodiscard]] bool is_refusal(int code);

/** Allocates and releases memory of several kinds under the current configuration. */
void use_library();

}  // namespace fuzz

#endif  // TESTS_FUZZ_FUZZING_H_

#ifndef TESTS_FUZZ_ASKING_H_
#define TESTS_FUZZ_ASKING_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

/** Helpers of the targets that give any bytes to the command qkmem. */
namespace fuzz {

/** What the first bytes of a fuzzer's input choose: the question, and how it is put. */
struct Choice {
  static constexpr std::size_t kBytes = 4;

  std::uint8_t view;
  std::uint8_t by;    // and the style, and at which moment
  std::uint8_t sort;  // and which rows and threads
  std::uint8_t time;

  /** Of the first bytes, of which there are enough. */
  [[nodiscard]] static Choice of(const std::uint8_t* data) {
    return {data[0], data[1], data[2], data[3]};
  }
};

/**
 * Writes the bytes to a file, and those of the tail beside it unless there are none, and asks the
 * command about it. It has to answer, or to throw one of the errors whose text is for the user.
 */
void ask(const Choice& choice, std::string_view input, std::string_view tail);

}  // namespace fuzz

#endif  // TESTS_FUZZ_ASKING_H_

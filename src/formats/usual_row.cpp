#include "formats/usual_row.h"

#include <bit>
#include <cstdint>
#include <limits>

#include "formats/digits.h"
#include "formats/little_endian.h"
#include "formats/row_at_once.h"

namespace qk::mem {
namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101;
constexpr std::uint64_t kHighBits = 0x8080808080808080;

/** Marks the bytes that are zero. Behind the first of them others can be marked too. */
constexpr std::uint64_t zeros_in(std::uint64_t word) { return (word - kOnes) & ~word & kHighBits; }

/** Goes through a row as long as it is usual. Inline, so that all of it stays in registers. */
class Row {
 public:
  explicit Row(std::string_view bytes) : at_(bytes.data()), end_(at_ + bytes.size()) {}

  [[nodiscard]] bool is_usual() const { return is_usual_; }
  [[nodiscard]] const char* at() const { return at_; }

  /** A number in front of a character, of at most 16 digits. */
  template <class Number>
  [[gnu::always_inline]] void take(Number& number, char behind) {
    if (!has_room()) return;
    const bool is_negative = std::numeric_limits<Number>::is_signed && *at_ == '-';
    if (is_negative) ++at_;
    const std::uint64_t size = digits();
    is_usual_ = is_usual_ && *at_ == behind &&
                size <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max());
    ++at_;
    number = static_cast<Number>(is_negative ? 0 - size : size);
  }

  [[gnu::always_inline]] void take(unsigned char& byte) {
    if (!has_room()) return;
    byte = static_cast<unsigned char>(*at_);
    is_usual_ = is_usual_ && byte != '\t' && byte != '\n' && at_[1] == '\t';
    at_ += 2;
  }

  /** An address of 16 digits. */
  [[gnu::always_inline]] void take(TraceAddress& address) {
    if (!has_room()) return;
    const std::uint64_t high = eight_hexadecimal_digits();
    address = TraceAddress{high << 32 | eight_hexadecimal_digits()};
    is_usual_ = is_usual_ && *at_ == '\t';
    ++at_;
  }

  [[gnu::always_inline]] void take(std::string_view& text) {
    const char* const begin = at_;
    for (; has_room(); at_ += sizeof(std::uint64_t)) {
      const auto word = read_little<std::uint64_t>(at_);
      const std::uint64_t ends = zeros_in(word ^ eight('\t')) | zeros_in(word ^ eight('\n'));
      if (ends == 0) continue;
      at_ += std::countr_zero(ends) / 8;
      text = {begin, static_cast<std::size_t>(at_ - begin)};
      is_usual_ = is_usual_ && *at_ == '\t';
      ++at_;
      return;
    }
  }

 private:
  /** So many bytes follow that a column can be read without a look at the end. */
  [[nodiscard]] bool has_room() {
    constexpr std::ptrdiff_t kEnough = 32;
    is_usual_ = is_usual_ && end_ - at_ >= kEnough;
    return is_usual_;
  }

  [[gnu::always_inline]] std::uint64_t digits() {
    const auto [first, count] = some_digits();
    if (count < 8) return first;
    const auto [second, more] = some_digits();
    if (more == 0) {
      is_usual_ = true;
      return first;
    }
    constexpr std::uint64_t kPowers[] = {1,      10,      100,      1000,     10000,
                                         100000, 1000000, 10000000, 100000000};
    return first * kPowers[more] + second;
  }

  struct Digits {
    std::uint64_t number;
    int count;
  };

  /** Up to eight digits. */
  [[gnu::always_inline]] Digits some_digits() {
    const std::uint64_t word = read_little<std::uint64_t>(at_) ^ eight('0');
    const std::uint64_t others = ((word + eight(6)) | word) & eight('\xF0');
    const int count = std::countr_zero(others) / 8;
    if (count == 0) {
      is_usual_ = false;
      return {0, 0};
    }
    at_ += count;
    return {eight_digits(word << (64 - 8 * count)), count};
  }

  /** Lower-case ones. */
  [[gnu::always_inline]] std::uint64_t eight_hexadecimal_digits() {
    const auto word = read_little<std::uint64_t>(at_);
    const std::uint64_t values = (word & eight(15)) + 9 * ((word >> 6) & kOnes);
    // Whatever is no digit would be written otherwise.
    const std::uint64_t letters = ((values + eight(6)) >> 4) & kOnes;
    const std::uint64_t written = values + eight('0') + letters * ('a' - '0' - 10);
    is_usual_ = is_usual_ && written == word && (values & eight('\xF0')) == 0;
    at_ += sizeof word;
    std::uint64_t number = (values << 4 | values >> 8) & 0x00FF00FF00FF00FF;
    number = (number << 8 | number >> 16) & 0x0000FFFF0000FFFF;
    return (number << 16 | number >> 32) & 0xFFFFFFFF;
  }

  const char* at_;
  const char* const end_;
  bool is_usual_ = true;
};

/** Reads one column after the other. They can be longer than read_row_at_once() takes them. */
std::size_t read_columns(std::string_view bytes, TraceRow& row) noexcept {
  Row from(bytes);
  from.take(row.sequence, '\t');
  from.take(row.handle, '\t');
  from.take(row.type);
  from.take(row.address);
  from.take(row.num, '\t');
  from.take(row.size, '\t');
  from.take(row.handle_size, '\t');
  from.take(row.file);
  from.take(row.line, '\t');
  from.take(row.current, '\t');
  from.take(row.heap, '\t');
  from.take(row.unknown, '\t');
  from.take(row.change, '\t');
  from.take(row.growth, '\t');
  from.take(row.difference, '\n');
  return from.is_usual() ? static_cast<std::size_t>(from.at() - bytes.data()) : 0;
}

}  // namespace

std::size_t read_usual_row(std::string_view bytes, TraceRow& row) noexcept {
  if constexpr (kReadsAtOnce) {
    if (const std::size_t length = read_row_at_once(bytes, row)) return length;
  }
  return read_columns(bytes, row);
}

}  // namespace qk::mem

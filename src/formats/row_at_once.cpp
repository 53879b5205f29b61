#include "formats/row_at_once.h"

#include <bit>
#include <cstdint>
#include <limits>

#include "formats/digit_vectors.h"
#include "formats/digits.h"
#include "formats/little_endian.h"

namespace qk::mem {

#ifdef __SSE2__

namespace {

/** Where tabs and newlines are in a block of bytes: bit n is set if byte n is one. */
struct Marks {
  [[gnu::always_inline]] explicit Marks(const ByteBlock& block)
      : tabs(block.with('\t')), newlines(block.with('\n')) {}

  std::uint64_t tabs;
  std::uint64_t newlines;
};

/** Few rows need it. Those that don't are read faster if its instructions are elsewhere. */
[[gnu::noinline, gnu::cold]] Marks marks_of_another(const char* block) {
  return Marks(ByteBlock(block));
}

/** The columns of a row that are next, in a block of bytes. */
class Ends {
 public:
  /** @param block  of which ByteBlock::kSize can be read. */
  [[gnu::always_inline]] explicit Ends(const char* block)
      : block_(block), at_(block), marks_(ByteBlock(block)) {}

  [[nodiscard]] const char* at() const { return at_; }

  /** Takes a column in front of a tab, unless the block ends before. */
  [[nodiscard, gnu::always_inline]] bool take(std::string_view& column) {
    if (marks_.tabs == 0) return false;
    take_until(marks_.tabs, column);
    marks_.tabs &= marks_.tabs - 1;
    return true;
  }

  /** Same, but if the block ends before, goes on with another one in front of `end`. */
  [[nodiscard, gnu::always_inline]] bool take(std::string_view& column, const char* end) {
    if (marks_.tabs == 0 && (marks_.newlines != 0 || !look_on(end))) [[unlikely]]
      return false;
    return take(column);
  }

  /** Takes a column in front of the first newline, unless that is in another column. */
  [[nodiscard, gnu::always_inline]] bool take_last(std::string_view& column, const char* end) {
    if (marks_.newlines == 0 && !look_on(end)) [[unlikely]]
      return false;
    if (marks_.newlines == 0 || block_ + first_of(marks_.newlines) < at_) return false;
    take_until(marks_.newlines, column);
    return true;
  }

 private:
  [[gnu::always_inline]] static std::size_t first_of(std::uint64_t marks) {
    return static_cast<std::uint32_t>(std::countr_zero(marks));
  }

  [[gnu::always_inline]] bool look_on(const char* end) {
    if (end - at_ < static_cast<std::ptrdiff_t>(ByteBlock::kSize)) return false;
    block_ = at_;
    marks_ = marks_of_another(at_);
    return true;
  }

  [[gnu::always_inline]] void take_until(std::uint64_t marks, std::string_view& column) {
    const char* const end = block_ + first_of(marks);
    column = {at_, static_cast<std::size_t>(end - at_)};
    at_ = end + 1;
  }

  const char* block_;
  const char* at_;
  Marks marks_;  // without the tabs of columns that were taken
};

/** The values of digits in front of an end, of which there are at most eight. */
std::uint64_t values_before(const char* end, std::size_t count) {
  return (read_little<std::uint64_t>(end - count) ^ eight('0')) << (64 - 8 * count);
}

/** A number of 9 to 17 bytes with its sign, and of at most 16 digits. */
template <class Number>
[[gnu::noinline]] bool read_long_number(std::string_view text, Number& number) {
  if (text.size() <= DigitVectors::kMostDigits) return false;
  const bool is_negative = std::numeric_limits<Number>::is_signed && text[0] == '-';
  const std::size_t digits = text.size() - static_cast<std::size_t>(is_negative);
  if (digits > 16) return false;
  const char* const end = text.data() + text.size();
  const std::uint64_t low = values_before(end, 8);
  const std::uint64_t high = digits == 8 ? 0 : values_before(end - 8, digits - 8);
  const std::uint64_t size = eight_digits(high) * 100000000 + eight_digits(low);
  if (!are_digits(high) || !are_digits(low)) return false;
  if (size > static_cast<std::uint64_t>(std::numeric_limits<Number>::max())) return false;
  number = static_cast<Number>(is_negative ? 0 - size : size);
  return true;
}

/** @param if_short  the number that the text is if it has at most eight bytes. */
template <class Number>
[[nodiscard, gnu::always_inline]] inline bool set(Number& number, std::string_view text,
                                                  std::int32_t if_short) {
  number = static_cast<Number>(if_short);
  const bool is_short = text.size() - 1 < DigitVectors::kMostDigits;
  return is_short || read_long_number(text, number);
}

}  // namespace

std::size_t read_row_at_once(std::string_view bytes, TraceRow& row) noexcept {
  if (bytes.size() < ByteBlock::kSize) return 0;
  std::string_view sequence;
  std::string_view handle;
  std::string_view type;
  std::string_view address;
  std::string_view num;
  std::string_view size;
  std::string_view handle_size;
  Ends ends(bytes.data());
  if (!ends.take(sequence) || !ends.take(handle) || !ends.take(type) || !ends.take(address) ||
      !ends.take(num) || !ends.take(size) || !ends.take(handle_size)) {
    return 0;
  }
  if (type.size() != 1 || type[0] == '\n' || address.size() != 16) return 0;
  const char* const end = bytes.data() + bytes.size();
  if (end - ends.at() < static_cast<std::ptrdiff_t>(ByteBlock::kSize)) return 0;

  std::string_view line;
  std::string_view current;
  std::string_view heap;
  std::string_view unknown;
  std::string_view change;
  std::string_view growth;
  std::string_view difference;
  Ends more(ends.at());
  if (!more.take(row.file) || !more.take(line, end) || !more.take(current, end) ||
      !more.take(heap, end) || !more.take(unknown, end) || !more.take(change, end) ||
      !more.take(growth, end) || !more.take_last(difference, end)) {
    return 0;
  }

  // Handles and lines are never negative.
  DigitVectors vectors;
  const auto levels = DigitVectors::numbers_of(vectors.take_signed(current, heap),
                                               vectors.take_signed(unknown, change));
  const auto others = DigitVectors::numbers_of(vectors.take_signed(growth, difference),
                                               vectors.take_unsigned(handle_size, line));
  const auto first = DigitVectors::numbers_of(vectors.take_at_begin(sequence, handle),
                                              vectors.take_unsigned(num, size));
  row.type = static_cast<unsigned char>(type[0]);
  row.address = TraceAddress{vectors.take_hexadecimal(address.data())};
  const bool is_row = vectors.are_numbers() && set(row.current, current, levels[0]) &&
                      set(row.heap, heap, levels[1]) && set(row.unknown, unknown, levels[2]) &&
                      set(row.change, change, levels[3]) && set(row.growth, growth, others[0]) &&
                      set(row.difference, difference, others[1]) &&
                      set(row.handle_size, handle_size, others[2]) &&
                      set(row.line, line, others[3]) && set(row.sequence, sequence, first[0]) &&
                      set(row.handle, handle, first[1]) && set(row.num, num, first[2]) &&
                      set(row.size, size, first[3]);
  return is_row ? static_cast<std::size_t>(more.at() - bytes.data()) : 0;
}

#else

std::size_t read_row_at_once(std::string_view /*bytes*/, TraceRow& /*row*/) noexcept { return 0; }

#endif

}  // namespace qk::mem

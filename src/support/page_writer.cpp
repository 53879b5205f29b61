#include "support/page_writer.h"

namespace qk {
namespace {

/** Room for a number. */
struct Digits {
  char text[Cursor::kLongestNumber + Cursor::kOverrun];
};

}  // namespace

PageWriter& PageWriter::number(std::uint64_t value) noexcept {
  Digits digits;
  return put(Cursor(digits.text).number(value).text());
}

PageWriter& PageWriter::signed_number(std::int64_t value) noexcept {
  Digits digits;
  return put(Cursor(digits.text).signed_number(value).text());
}

}  // namespace qk

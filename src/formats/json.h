#ifndef QKMEM_FORMATS_JSON_H_
#define QKMEM_FORMATS_JSON_H_

#include <cstdint>
#include <string_view>

#include "support/page_buffer.h"
#include "support/page_writer.h"

namespace qk::mem {

/**
 * Writes JSON text to a PageBuffer, value by value, without the heap and the same in every locale.
 * It sets the commas; the caller ends what he begins, and gives each member of an object a key.
 *
 * Texts can be any bytes: what is not UTF-8 becomes U+FFFD. Integers are exact, which a reader can
 * rely on that doesn't take all numbers as floating-point.
 */
class JsonWriter {
 public:
  explicit JsonWriter(qk::PageBuffer& out) noexcept : out_(out) {}

  JsonWriter& begin_object() noexcept { return begin('{'); }
  JsonWriter& end_object() noexcept { return end('}'); }
  JsonWriter& begin_array() noexcept { return begin('['); }
  JsonWriter& end_array() noexcept { return end(']'); }

  JsonWriter& key(std::string_view name) noexcept;

  JsonWriter& text(std::string_view text) noexcept;
  JsonWriter& number(std::uint64_t value) noexcept;
  JsonWriter& signed_number(std::int64_t value) noexcept;
  /** value / 10^digits, with so many decimals: 0 to 19 of them. */
  JsonWriter& decimal(std::int64_t value, int digits) noexcept;
  JsonWriter& boolean(bool value) noexcept { return literal(value ? "true" : "false"); }
  JsonWriter& null() noexcept { return literal("null"); }

  /** Puts what follows on a line of its own, after the comma if it needs one. */
  JsonWriter& start_line() noexcept {
    starts_line_ = true;
    return *this;
  }

  /** Whether all is there; otherwise there was no memory. */
  [[nodiscard]] bool is_complete() const noexcept { return !out_.has_failed(); }

 private:
  JsonWriter& begin(char bracket) noexcept;
  JsonWriter& end(char bracket) noexcept;
  JsonWriter& literal(std::string_view text) noexcept;
  void put_line_break() noexcept;
  void separate() noexcept;
  void put_quoted(std::string_view text) noexcept;
  void put_escaped(std::string_view utf8) noexcept;

  qk::PageWriter out_;
  bool needs_comma_ = false;
  bool starts_line_ = false;
};

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_JSON_H_

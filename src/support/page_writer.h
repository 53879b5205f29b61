#ifndef SUPPORT_PAGE_WRITER_H_
#define SUPPORT_PAGE_WRITER_H_

#include <cstdint>
#include <string_view>

#include "support/cursor.h"
#include "support/page_buffer.h"

namespace qk {

/**
 * Appends to a PageBuffer with functions of a Cursor. Without memory for a piece, this one and all
 * later ones are left out, and has_failed() says so.
 */
class PageWriter {
 public:
  explicit PageWriter(PageBuffer& buffer) noexcept : buffer_(buffer) {}

  PageWriter& put(std::string_view text) noexcept {
    failed_ = failed_ || !buffer_.append(text);
    return *this;
  }
  PageWriter& put(char c) noexcept { return put(std::string_view(&c, 1)); }
  PageWriter& number(std::uint64_t value) noexcept;
  PageWriter& signed_number(std::int64_t value) noexcept;

  [[nodiscard]] bool has_failed() const noexcept { return failed_; }

  /** Leaves out all that follows, for a caller who lacks memory himself. */
  void fail() noexcept { failed_ = true; }

 private:
  PageBuffer& buffer_;
  bool failed_ = false;
};

}  // namespace qk

#endif  // SUPPORT_PAGE_WRITER_H_

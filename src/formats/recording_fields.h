#ifndef QKMEM_FORMATS_RECORDING_FIELDS_H_
#define QKMEM_FORMATS_RECORDING_FIELDS_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/recording.h"

/** Writes the fields of records. */
namespace qk::mem::recording {

/** Counts what a record takes. */
class FieldCount {
 public:
  void number(std::uint64_t number) {
    char bytes[kLongestVarint];
    size_ += static_cast<std::size_t>(put_varint(bytes, number) - bytes);
  }
  void signed_number(std::int64_t value) { number(zigzag(value)); }
  void text(std::string_view text) {
    number(text.size());
    size_ += text.size();
  }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  std::size_t size_ = 0;
};

/** Writes its fields. */
class FieldWriter {
 public:
  explicit FieldWriter(char* to) : to_(to) {}

  void number(std::uint64_t number) { to_ = put_varint(to_, number); }
  void signed_number(std::int64_t value) { number(zigzag(value)); }
  void text(std::string_view text) {
    number(text.size());
    to_ += text.copy(to_, text.size());
  }
  [[nodiscard]] char* end() const { return to_; }

 private:
  char* to_;
};

/** Texts of records are cut to this. */
inline constexpr std::size_t kLongestText = 8192;

}  // namespace qk::mem::recording

#endif  // QKMEM_FORMATS_RECORDING_FIELDS_H_

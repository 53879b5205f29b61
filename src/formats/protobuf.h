#ifndef QKMEM_FORMATS_PROTOBUF_H_
#define QKMEM_FORMATS_PROTOBUF_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/varint.h"

/**
 * Fields of protocol buffers. `Out` has put(std::string_view). A field that is left out counts as
 * zero, so zeros are left out, except in put_packed() and put_text(), whose parts are counted.
 */
namespace qk::mem::proto {

inline constexpr std::uint64_t kVarint = 0;
inline constexpr std::uint64_t kBytes = 2;

/** An Out that only counts. */
class ByteCount {
 public:
  void put(std::string_view text) noexcept { bytes_ += text.size(); }
  [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }

 private:
  std::uint64_t bytes_ = 0;
};

template <class Out>
void put_varint(Out& out, std::uint64_t value) noexcept {
  char bytes[kLongestVarint];
  const char* const end = mem::put_varint(bytes, value);
  out.put(std::string_view(bytes, static_cast<std::size_t>(end - bytes)));
}

template <class Out>
void put_tag(Out& out, int field, std::uint64_t type) noexcept {
  put_varint(out, static_cast<std::uint64_t>(field) << 3 | type);
}

/** A number or a boolean. Negative numbers are cast, and take ten bytes. */
template <class Out>
void put_number(Out& out, int field, std::uint64_t value) noexcept {
  if (value == 0) return;
  put_tag(out, field, kVarint);
  put_varint(out, value);
}

/** UTF-8. */
template <class Out>
void put_text(Out& out, int field, std::string_view text) noexcept {
  put_tag(out, field, kBytes);
  put_varint(out, text.size());
  out.put(text);
}

/** `write` gets an Out and writes the message to it. It is called twice, with the same result. */
template <class Out, class Write>
void put_message(Out& out, int field, Write&& write) noexcept {
  ByteCount count;
  write(count);
  put_tag(out, field, kBytes);
  put_varint(out, count.bytes());
  write(out);
}

/** Numbers, or what converts to them. */
template <class Out, class Range>
void put_packed(Out& out, int field, const Range& values) noexcept {
  if (values.empty()) return;
  put_message(out, field, [&values](auto& packed) {
    for (const auto value : values) put_varint(packed, static_cast<std::uint64_t>(value));
  });
}

}  // namespace qk::mem::proto

#endif  // QKMEM_FORMATS_PROTOBUF_H_

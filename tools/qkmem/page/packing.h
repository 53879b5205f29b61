#ifndef QKMEM_TOOLS_PAGE_PACKING_H_
#define QKMEM_TOOLS_PAGE_PACKING_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace qk::command {

/** Numbers for a page's script, small ones in few bytes. */
class Packing {
 public:
  /** Seven bits in a byte, the lowest first; the eighth says that more follow. */
  void put(std::uint64_t number) {
    for (; number >= 0x80; number >>= 7) bytes_ += static_cast<char>(number | 0x80);
    bytes_ += static_cast<char>(number);
  }

  /** The difference, as an even number if it is positive and an odd one otherwise. */
  void put_change(std::uint64_t before, std::uint64_t now) {
    const std::uint64_t change = now - before;
    put(now >= before ? change << 1 : ~change << 1 | 1);
  }

  [[nodiscard]] const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

/** Compressed as browsers can undo it ("deflate"), and in the letters of Base64. */
[[nodiscard]] std::string packed(std::string_view bytes);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PAGE_PACKING_H_

#ifndef QKMEM_FORMATS_XXH64_H_
#define QKMEM_FORMATS_XXH64_H_

#include <cstdint>
#include <string_view>

namespace qk::mem {

/** The check sum XXH64 of some bytes. */
[[nodiscard]] std::uint64_t xxh64(std::string_view bytes, std::uint64_t seed = 0) noexcept;

}  // namespace qk::mem

#endif  // QKMEM_FORMATS_XXH64_H_

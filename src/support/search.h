#ifndef SUPPORT_SEARCH_H_
#define SUPPORT_SEARCH_H_

#include <cstdint>

namespace qk {

/**
 * Finds the first of `values[from]` to `values[end - 1]` that equals `value`. Compares as many at a
 * time as the processor can.
 *
 * @return its index, or -1 if there is none.
 */
[[nodiscard]] std::int32_t find_value(const std::uint16_t* values, std::int32_t from,
                                      std::int32_t end, std::uint16_t value) noexcept;

}  // namespace qk

#endif  // SUPPORT_SEARCH_H_

#ifndef QKMEM_CONFIG_OPTION_VALUES_H_
#define QKMEM_CONFIG_OPTION_VALUES_H_

#include <cstdint>
#include <optional>
#include <string_view>

/** Values of keywords that the profile and the checks have in common. */
namespace qk::mem {

/** A number without a sign, up to `most`. */
[[nodiscard]] std::optional<std::uint64_t> read_number(std::string_view text, std::uint64_t most);

/** Bytes, with K, M or G for the powers of 1,024. */
[[nodiscard]] std::optional<std::uint64_t> read_bytes(std::string_view text);

/** FAIL, for the usual code of processes that failed, or FAIL=code. */
[[nodiscard]] std::optional<std::uint8_t> read_failing_code(std::string_view text);

/** Whether a name is one of a destination or a pattern of a file's that can be expanded. */
[[nodiscard]] bool is_report_name(const char* name);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_OPTION_VALUES_H_

#ifndef SUPPORT_NEAREST_NAME_H_
#define SUPPORT_NEAREST_NAME_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qk {

/** Finds the name that a misspelt word most likely means, in either case. */
class NearestName {
 public:
  explicit NearestName(std::string_view word) noexcept : word_(word) {}

  /** Takes a name into account. Of equally near ones the first counts. */
  void try_name(std::string_view name) noexcept;

  /** The nearest of the names; empty if there was none. */
  [[nodiscard]] std::string_view name() const noexcept { return name_; }

 private:
  std::string_view word_;
  std::string_view name_;
  std::size_t distance_ = SIZE_MAX;
};

}  // namespace qk

#endif  // SUPPORT_NEAREST_NAME_H_

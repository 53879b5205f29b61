#ifndef SUPPORT_MEMORY_MAP_H_
#define SUPPORT_MEMORY_MAP_H_

#include <cstdint>
#include <string_view>

#include "support/mapped_array.h"
#include "support/modules.h"
#include "support/page_buffer.h"

namespace qk {

/** One mapping of the process, as /proc shows it. */
struct Mapping {
  AddressRange range;
  bool is_readable;
  bool is_writable;
  bool is_shared;
  std::string_view path;  // of a file, "[heap]", "[stack]" and the like, or empty

  /** Whether it is a file's, which can be a deleted one. */
  [[nodiscard]] bool is_of_file() const { return !path.empty() && path.front() == '/'; }
  [[nodiscard]] bool is_accessible() const { return is_readable || is_writable; }
};

/** Parses a line of /proc/self/maps, without its end. Of other lines nothing is accessible. */
[[nodiscard]] Mapping parse_mapping(std::string_view line) noexcept;

/**
 * The mappings of the process at one moment, in the order of their addresses, in pages of their own.
 * What is mapped later isn't among them.
 */
class MemoryMap {
 public:
  MemoryMap() noexcept;
  MemoryMap(const MemoryMap&) = delete;
  MemoryMap& operator=(const MemoryMap&) = delete;
  ~MemoryMap() { text_.clear(); }

  /** False if /proc can't be read or there is no memory. */
  [[nodiscard]] bool is_complete() const { return mappings_.size() != 0; }

  [[nodiscard]] std::size_t count() const { return mappings_.size(); }
  [[nodiscard]] const Mapping& at(std::size_t index) const { return mappings_[index]; }

 private:
  PageBuffer text_;
  MappedArray<Mapping> mappings_;
};

}  // namespace qk

#endif  // SUPPORT_MEMORY_MAP_H_

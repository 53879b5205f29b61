#ifndef QKMEM_TOOLS_INPUT_STORAGE_H_
#define QKMEM_TOOLS_INPUT_STORAGE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "input/bytes.h"

namespace qk::command {

/** An input that can be read at any place. */
class Storage {
 public:
  /**
   * Takes bytes of which none was read. What is no plain file is copied to a temporary one first,
   * and standard error says so. Throws InputError.
   */
  explicit Storage(std::unique_ptr<Bytes> bytes);
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;
  ~Storage();

  [[nodiscard]] std::uint64_t size() const { return size_; }

  /** Reads up to so many bytes at a place: fewer at the end. Throws InputError. */
  std::size_t read(std::uint64_t at, char* to, std::size_t most) const;

  /** All of it, mapped when it is first wanted. Throws InputError. */
  [[nodiscard]] std::string_view mapped();

 private:
  void copy();

  std::unique_ptr<Bytes> bytes_;
  int file_ = -1;
  int own_file_ = -1;
  std::uint64_t size_ = 0;
  void* mapping_ = nullptr;
};

/** A whole file; empty if there is none. */
[[nodiscard]] std::string whole_file(const std::string& name);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_STORAGE_H_

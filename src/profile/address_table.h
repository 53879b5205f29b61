#ifndef QKMEM_PROFILE_ADDRESS_TABLE_H_
#define QKMEM_PROFILE_ADDRESS_TABLE_H_

#include <cstdint>
#include <optional>
#include <span>

#include "profile/marks.h"

namespace qk::mem::profile {

/** Live memory that the core keeps no record of. */
struct Unrecorded {
  const void* address;
  std::uint64_t bytes;
  Mark mark;
};

/** The unrecorded memory of a handle, by address. The caller holds the lock of the handle. */
class AddressTable {
 public:
  /** False if there is no memory. */
  [[nodiscard]] bool add(const Unrecorded& memory);

  /** Removes and returns what is known of an address. */
  [[nodiscard]] std::optional<Unrecorded> take(const void* address);

  /** Forgets all. */
  void clear();

  /** All entries. Those without an address are free. */
  [[nodiscard]] std::span<const Unrecorded> entries() const { return {entries_, capacity_}; }
  [[nodiscard]] std::span<Unrecorded> entries() { return {entries_, capacity_}; }

 private:
  [[nodiscard]] std::uint64_t home_of(const void* address) const;
  [[nodiscard]] std::uint64_t next(std::uint64_t place) const {
    return (place + 1) & (capacity_ - 1);
  }
  [[nodiscard]] bool make_room();
  void place(const Unrecorded& memory);
  void close_gap(std::uint64_t gap);

  Unrecorded* entries_;  // free ones have no address
  std::uint64_t capacity_;
  std::uint64_t used_;
};

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_ADDRESS_TABLE_H_

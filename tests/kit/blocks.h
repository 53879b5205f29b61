#ifndef TESTS_KIT_BLOCKS_H_
#define TESTS_KIT_BLOCKS_H_

#include <cstdint>
#include <initializer_list>
#include <string>

#include "tests/kit/standalone_handle.h"

/** The blocks of block-managed handles, seen from inside. */
namespace kit {

/** The blocks in the order of the list, each as "capacity:low-high": "64:0-12 128:40-128". */
[[nodiscard]] std::string blocks_of(const qk_mem_handle& handle);
[[nodiscard]] std::string blocks_of(int hid);

/** Where a piece lies: "block 2 at 16", the first block of the list being 1; or "no block". */
[[nodiscard]] std::string position_of(const qk_mem_handle& handle, const void* piece);
[[nodiscard]] std::string position_of(int hid, const void* piece);

/** A block to be made. */
struct Marks {
  std::uint64_t capacity;
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

/**
 * A block-managed handle that the library doesn't know, with blocks linked by hand. Starts the
 * library up, which settles the size of the header.
 */
class StandaloneBlocks : public StandaloneHandle {
 public:
  explicit StandaloneBlocks(std::uint64_t blocksize, std::initializer_list<Marks> blocks = {});
  ~StandaloneBlocks();

  [[nodiscard]] std::string blocks() const { return blocks_of(record); }
  [[nodiscard]] std::string position(const void* piece) const { return position_of(record, piece); }
};

}  // namespace kit

#endif  // TESTS_KIT_BLOCKS_H_

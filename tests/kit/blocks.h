#ifndef TESTS_KIT_BLOCKS_H_
#define TESTS_KIT_BLOCKS_H_

#include <cstdint>
#include <initializer_list>
#include <string>

#include "tests/kit/standalone_handle.h"

/** The internal state of blocks. */
namespace kit {

/** The blocks in list order, each as "capacity:low-high": "64:0-12 128:40-128". */
[[nodiscard]] std::string blocks_of(const qk_mem_handle& handle);
[[nodiscard]] std::string blocks_of(int hid);

/** The block and offset of a piece: "block 2 at 16", or "no block". Blocks count from 1. */
[[nodiscard]] std::string position_of(const qk_mem_handle& handle, const void* piece);
[[nodiscard]] std::string position_of(int hid, const void* piece);

/** A block to create. */
struct Marks {
  std::uint64_t capacity;
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

/**
 * A block-managed handle that the library doesn't know, with blocks that the test links itself.
 * Starts the library up, which sets Qk_mem_blocksize.
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

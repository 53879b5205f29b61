#ifndef TESTS_BLOCKS_MODEL_H_
#define TESTS_BLOCKS_MODEL_H_

#include <algorithm>
#include <cstdint>
#include <list>

/** A plain model of where a block-managed handle puts its pieces. */
namespace model {

struct Block {
  std::uint64_t capacity;
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  char* data = nullptr;  // of the real block, once that is known
};

using Blocks = std::list<Block>;

struct Place {
  Blocks::iterator block;
  std::uint64_t offset;
};

class Handle {
 public:
  explicit Handle(std::uint64_t blocksize) : blocksize_(blocksize) {}

  Place allocate(std::uint64_t size, std::uint64_t alignment) {
    for (auto block = blocks.begin(); block != blocks.end(); ++block) {
      std::uint64_t pad = block->high % alignment;
      if (pad != 0) pad = alignment - pad;
      if (pad + size <= block->capacity - block->high) {
        const Place place = {block, block->high + pad};
        block->high += pad + size;
        used += pad + size;
        return place;
      }
      if (size > block->low) continue;
      pad = (block->low - size) % alignment;
      if (pad + size <= block->low) {
        block->low -= pad + size;
        used += pad + size;
        return {block, block->low};
      }
    }
    const auto block = add_block(size);
    block->high = size;
    used += size;
    return {block, 0};
  }

  /** Whether allocate() needs no new block. */
  [[nodiscard]] bool has_room(std::uint64_t size, std::uint64_t alignment) const {
    Handle copy = *this;
    copy.allocate(size, alignment);
    return copy.blocks.size() == blocks.size();
  }

  Blocks::iterator add_block(std::uint64_t size) {
    const bool big = size >= blocksize_;
    auto place = blocks.begin();
    if (big && !blocks.empty()) {
      auto last = blocks.begin();
      while (std::next(last) != blocks.end() && std::next(last)->high < std::next(last)->capacity) {
        ++last;
      }
      if (std::next(last) != blocks.end()) place = std::next(last);
    }
    return blocks.insert(place, {std::max(size, blocksize_)});
  }

  static void release(const Place& place, std::uint64_t bytes) {
    Block& block = *place.block;
    if (place.offset == block.low) {
      block.low += bytes;
    } else if (place.offset == block.high - bytes) {
      block.high -= bytes;
    }
    if (block.low == block.high) block.low = block.high = 0;
  }

  void clear() {
    for (Block& block : blocks) block.low = block.high = 0;
  }

  Blocks blocks;
  std::uint64_t used = 0;

 private:
  std::uint64_t blocksize_;
};

}  // namespace model

#endif  // TESTS_BLOCKS_MODEL_H_

#ifndef QKMEM_LOST_BLOCKS_H_
#define QKMEM_LOST_BLOCKS_H_

#include <cstdint>

#include "support/mapped_array.h"
#include "support/modules.h"

namespace qk::mem::lost {

/** A live block of the program's memory. */
struct Block {
  qk::AddressRange range;  // at least one byte
  std::uint64_t bytes;     // that the program has asked for
  std::uint32_t site;      // by which the result tells blocks apart
  std::uint32_t event;     // of its allocation
  bool is_sampled;         // it stands for others too
};

using Blocks = qk::MappedArray<Block>;

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_BLOCKS_H_

#ifndef QKMEM_LOST_COLLECTED_H_
#define QKMEM_LOST_COLLECTED_H_

#include "core/registry.h"
#include "lost/blocks.h"
#include "lost/findings.h"
#include "support/mapped_array.h"
#include "support/modules.h"

namespace qk::mem::lost {

using Ranges = qk::MappedArray<qk::AddressRange>;

/**
 * All live blocks that the library knows, and memory of its own that holds their addresses: it must
 * not be taken for the program's. Needs the registry's lock, and those of all handles.
 */
class Collected {
 public:
  explicit Collected(const Findings& findings) noexcept QK_REQUIRES(Qk_mem_mtx);

  /** False if there was no memory. */
  [[nodiscard]] bool is_complete() const { return is_complete_; }

  Blocks blocks;
  Ranges own;  // not sorted

 private:
  void add_records(const Findings& findings, const qk_mem_handle& handle);
  void add_unrecorded(const Findings& findings, const qk_mem_handle& handle);
  void add_own(const qk_mem_handle& handle);
  void add_block(const Block& block) { is_complete_ = blocks.push_back(block) && is_complete_; }
  void add_own(const void* begin, std::size_t bytes);
  void add_own(qk::AddressRange range) { is_complete_ = own.push_back(range) && is_complete_; }

  bool is_complete_ = true;
};

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_COLLECTED_H_

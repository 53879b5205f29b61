#ifndef QKMEM_REPORT_SUMS_H_
#define QKMEM_REPORT_SUMS_H_

#include <cstdint>

#include "core/handle_array.h"
#include "core/registry.h"

/** Sums over handles. They wrap as the counters do that they are made of. */
namespace qk::mem {

/** A number of records and their bytes. */
struct Sum {
  std::uint32_t qty = 0;
  std::uint64_t amount = 0;

  void add(const Sum& other) {
    qty += other.qty;
    amount += other.amount;
  }
};

[[nodiscard]] inline Sum data_of(const qk_mem_handle& handle) {
  return {qk::load(handle.qty), qk::load(handle.amount)};
}

[[nodiscard]] inline Sum management_of(const qk_mem_handle& handle) {
  return {qk::load(handle.overhead_qty), qk::load(handle.overhead_amount)};
}

[[nodiscard]] inline Sum data_of(const qk_mem_tag& tag) {
  return {qk::load(tag.qty), qk::load(tag.amount)};
}

/** The heap that was obtained since start-up and that the handles do not account for. */
[[nodiscard]] inline std::int64_t untracked_heap(std::int64_t heap, const Sum& data,
                                                 const Sum& management) {
  return heap - Qk_mem_init_heap - static_cast<std::int64_t>(data.amount + management.amount);
}

}  // namespace qk::mem

#endif  // QKMEM_REPORT_SUMS_H_

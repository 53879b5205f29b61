#ifndef QKMEM_PROFILE_SAMPLING_H_
#define QKMEM_PROFILE_SAMPLING_H_

#include <cstdint>

#include "profile/state.h"

/**
 * A Poisson sample of allocations: each byte that is allocated has the same chance to bring its
 * block into the sample, one in `interval`. A block of the sample stands for all of its size, so
 * that sums are unbiased: by 1 / (1 - exp(-size / interval)), the inverse of its chance.
 *
 * Their standard error is at most the square root of the sum times the interval. A block adds
 * (1 - p) / p^2 * size^2 to the variance, where p is its chance: that is size / p, which it adds to
 * the sum, times size * (1 - p) / p, which is never above the interval.
 */
namespace qk::mem::profile {

/** How many blocks a block of the sample stands for, and their bytes. */
struct Amount {
  std::uint64_t bytes;
  std::uint64_t blocks;
};

/** Bytes between two blocks of the sample, in the mean; 0 if there was never a sample. */
[[nodiscard]] std::uint64_t sample_interval();

[[nodiscard]] inline bool is_sampling() { return needs_attention_for(attention::kSample); }

/**
 * Samples from now on, or books all allocations if the interval is 0. The first interval stays:
 * what a block stands for must be the same when it is released. Returns false if another one was asked
 * for.
 */
[[nodiscard]] bool set_sampling(std::uint64_t interval);

/**
 * Whether the calling thread's allocation is part of the sample. Each thread draws its own. A call
 * may ask again, as long as that does not depend on the answer.
 */
[[nodiscard]] bool draw(std::uint64_t bytes);

/**
 * What a block of the sample stands for, in whole blocks and bytes. Which way they are rounded
 * depends on the event of the allocation, so that the mean is right, and the same at the release.
 */
[[nodiscard]] Amount sampled_amount(std::uint64_t bytes, std::uint32_t event);

/** The most that the standard error of a sum of bytes can be; 0 if there was never a sample. */
[[nodiscard]] std::uint64_t standard_error(std::uint64_t bytes);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_SAMPLING_H_

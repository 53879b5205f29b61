#ifndef QKMEM_PROFILE_REPORT_VERDICT_H_
#define QKMEM_PROFILE_REPORT_VERDICT_H_

#include <cstdint>

#include "profile/report/rows.h"

/** What a report comes to, in short. */
namespace qk::mem::profile {

/** Why a report is made. */
enum class Occasion : std::uint8_t {
  kRunning,  // the program goes on
  kEnd       // it ends: AUTOFREE handles are deleted next
};

/** Sums of rows. */
struct Sums {
  std::uint64_t sites = 0;
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;

  void add(const Row& row) { add({row.live_bytes, row.live_blocks}); }

  /** What there is of a site. */
  void add(lost::Quantity quantity) {
    if (quantity.blocks == 0) return;
    ++sites;
    bytes += quantity.bytes;
    blocks += quantity.blocks;
  }
};

struct Verdict {
  Sums held;
  Sums autofree;              // released with their handles when the program ends
  Sums ignored;               // known leaks
  bool was_searched = false;  // for lost blocks
  Sums lost;                  // of what is held; with what only that leads to
  Sums kept;                  // by sites that have lost nothing
  std::uint64_t made_bytes = 0;
  std::uint64_t made_blocks = 0;

  /** Whether there is something that LEAKS=FAIL is about. */
  [[nodiscard]] bool leaks_found() const { return (was_searched ? lost : held).blocks != 0; }
};

/** `findings` is null if nobody has asked for lost blocks. */
[[nodiscard]] Verdict judge(const Rows& rows, Occasion occasion,
                            const lost::Findings* findings = nullptr);

/** Whether what a row holds is released with its handle in a moment. */
[[nodiscard]] bool ends_with_handle(const Row& row, Occasion occasion);

/** Whether what a row holds is neither that nor known. */
[[nodiscard]] bool counts_as_held(const Row& row, Occasion occasion);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_VERDICT_H_

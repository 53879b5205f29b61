#ifndef QKMEM_LOST_FINDINGS_H_
#define QKMEM_LOST_FINDINGS_H_

#include <cstdint>
#include <string_view>

#include "core/records.h"
#include "profile/marks.h"
#include "profile/site.h"

/** What a search for lost blocks has found. */
namespace qk::mem::lost {

/** Why there was no search. */
enum class Obstacle : std::uint8_t {
  kNone,
  kNoMemory,
  kSanitizer,   // its memory looks like the program's
  kNoCopy,      // the system refuses a copy of the process
  kNoMap,       // /proc can't be read
  kCopyEnded,   // the copy has come to an early end
  kTooLong,     // for the time that a signal leaves
  kLockIsHeld,  // by a thread that a signal has stopped
};

/** The same for people. */
[[nodiscard]] std::string_view reason_of(Obstacle obstacle);

/** Bytes and blocks. */
struct Quantity {
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;

  void add(Quantity more) {
    bytes += more.bytes;
    blocks += more.blocks;
  }
};

/** What is lost of one site. */
struct Losses {
  Quantity lost;        // its blocks where a loss begins
  Quantity with_owner;  // blocks of any site that only those lead to
  Quantity gone;        // its blocks that can't be reached, for one reason or the other
};

/** The result, in memory that a copy of the process can fill in. */
class Findings {
 public:
  Findings() noexcept;
  Findings(Findings&& other) noexcept;
  Findings(const Findings&) = delete;
  Findings& operator=(const Findings&) = delete;
  ~Findings();

  /** What is true of the whole search. */
  struct Summary {
    Obstacle obstacle = Obstacle::kNone;
    bool lacks_registers = false;  // of other threads, which could not be stopped
    bool lacks_heap = false;       // its free memory looks like memory in use
  };

  [[nodiscard]] Summary& summary() { return head_ == nullptr ? instead_ : head_->summary; }
  [[nodiscard]] const Summary& summary() const {
    return head_ == nullptr ? instead_ : head_->summary;
  }
  [[nodiscard]] bool has_room() const { return head_ != nullptr; }

  /** The index of a block's site; 0 if it has none. */
  [[nodiscard]] std::uint32_t index_of(const qk_mem_handle& handle, profile::Mark mark) const;

  [[nodiscard]] Losses& at(std::uint32_t index);

  /** The losses of a site. None of one that is younger than the search. */
  [[nodiscard]] Losses of(const profile::Site& site) const;

 private:
  struct alignas(Losses) Head {
    Summary summary;
    std::uint32_t first_of_pools;  // two sites of each pool come behind the others
    std::uint32_t count;
  };

  [[nodiscard]] std::uint32_t index_of(std::uint32_t site, std::uint32_t pool) const;
  [[nodiscard]] Losses* losses() const;

  Head* head_ = nullptr;
  std::size_t bytes_ = 0;
  Summary instead_ = {Obstacle::kNoMemory, false, false};
};

}  // namespace qk::mem::lost

#endif  // QKMEM_LOST_FINDINGS_H_

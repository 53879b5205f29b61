#include "table/first_fit.h"

#include <algorithm>

#include "core/registry.h"
#include "support/shortcuts.h"

namespace qk::mem {
namespace {

using Run = qk_mem_skips::Run;

std::uint64_t remainder(std::uint64_t offset, std::uint64_t alignment) {
  const bool power_of_two = (alignment & (alignment - 1)) == 0;
  return power_of_two ? offset & (alignment - 1) : offset % alignment;
}

std::uint64_t room_above(const qk_mem_block& block, std::uint64_t alignment) {
  const std::uint64_t free = block.capacity - block.high_mark;
  const std::uint64_t beyond = remainder(block.high_mark, alignment);
  const std::uint64_t padding = beyond == 0 ? 0 : alignment - beyond;
  return padding > free ? 0 : free - padding;
}

/** The sizes of the largest pieces that fit a block at any alignment, at 8 and at 16. */
qk_mem_room room_of(const qk_mem_block& block) {
  return {std::max(room_above(block, 1), block.low_mark),
          std::max(room_above(block, 8), block.low_mark),
          std::max(room_above(block, 16), block.low_mark)};
}

void raise(qk_mem_room& room, const qk_mem_room& other) {
  room.any = std::max(room.any, other.any);
  room.by8 = std::max(room.by8, other.by8);
  room.by16 = std::max(room.by16, other.by16);
}

/**
 * The room to compare a request with. The common alignments have figures of their own, because
 * padding can make room useless for them.
 */
std::uint64_t qk_mem_room::*bound_for(std::uint64_t alignment) {
  if (alignment % 16 == 0) return &qk_mem_room::by16;
  return alignment % 8 == 0 ? &qk_mem_room::by8 : &qk_mem_room::any;
}

bool covers(const qk_mem_room& room, const qk_mem_room& other) {
  return other.any <= room.any && other.by8 <= room.by8 && other.by16 <= room.by16;
}

bool take_upward(qk_mem_block& block, std::uint64_t size, std::uint64_t alignment, Piece& piece) {
  const std::uint64_t free = block.capacity - block.high_mark;
  if (size > free) return false;
  const std::uint64_t beyond = remainder(block.high_mark, alignment);
  const std::uint64_t padding = beyond == 0 ? 0 : alignment - beyond;
  if (padding > free - size) return false;
  piece = {&block, block.high_mark + padding, padding};
  block.high_mark += padding + size;
  return true;
}

bool take_downward(qk_mem_block& block, std::uint64_t size, std::uint64_t alignment, Piece& piece) {
  if (size > block.low_mark) return false;
  const std::uint64_t padding = remainder(block.low_mark - size, alignment);
  piece = {&block, block.low_mark - size - padding, padding};
  block.low_mark -= padding + size;
  return true;
}

bool take(qk_mem_block& block, std::uint64_t size, std::uint64_t alignment, Piece& piece) {
  return take_upward(block, size, alignment, piece) || take_downward(block, size, alignment, piece);
}

/**
 * What joining two neighboring runs costs future walks: nothing if the figure of the longer run
 * covers both, otherwise about one walk through both.
 */
std::uint64_t cost_of_joining(const Run& left, const Run& right) {
  const Run& longer = left.length >= right.length ? left : right;
  const Run& shorter = left.length >= right.length ? right : left;
  return covers(longer.room, shorter.room) ? 0 : left.length + right.length;
}

void join(qk_mem_skips& skips, int run) {
  Run& left = skips.runs[run];
  const Run& right = skips.runs[run + 1];
  raise(left.room, right.room);
  left.length += right.length;
  std::copy(skips.runs + run + 2, skips.runs + skips.count, skips.runs + run + 1);
  --skips.count;
}

/** Makes room for one more run. */
void make_place(qk_mem_skips& skips) {
  if (skips.count < qk_mem_skips::kMaxRuns) return;
  auto cost = [&](int run) { return cost_of_joining(skips.runs[run], skips.runs[run + 1]); };
  int best = 0;
  for (int run = 1; run + 1 < skips.count; ++run) {
    if (cost(run) < cost(best)) best = run;
  }
  join(skips, best);
}

/** Runs shorter than this are not worth splitting. */
constexpr std::uint64_t kWorthSplitting = 8;

/** One allocation's walk over a handle's blocks. */
class Walk {
 public:
  Walk(qk_mem_handle& handle, std::uint64_t size, std::uint64_t alignment)
      : skips_(handle.skips),
        head_(handle.blocks),
        size_(size),
        alignment_(alignment),
        bound_(bound_for(alignment)) {
    if (skips_.head != head_ || skips_.count == 0) forget_room(handle);
  }

  Piece find() {
    if (!find_in_front() && !find_in_runs()) find_in_unexplored();
    return piece_;
  }

 private:
  bool take(qk_mem_block& block) { return mem::take(block, size_, alignment_, piece_); }

  [[nodiscard]] qk_mem_block* front_end() const {
    return skips_.count == 0 ? skips_.unexplored : skips_.runs[0].first;
  }

  [[nodiscard]] qk_mem_block* end_of(int run) const {
    return run + 1 < skips_.count ? skips_.runs[run + 1].first : skips_.unexplored;
  }

  bool find_in_front() {
    for (qk_mem_block* block = head_; block != front_end(); block = block->next) {
      if (take(*block)) return true;
    }
    return false;
  }

  bool find_in_runs() {
    if (size_ > skips_.most_room.*bound_) return false;
    make_place(skips_);
    for (int run = 0; run < skips_.count; ++run) {
      if (size_ <= skips_.runs[run].room.*bound_ && find_in_run(run)) return true;
    }
    most_room_changed();
    return false;
  }

  bool find_in_run(int run) {
    Run walked = {skips_.runs[run].first, {}, 0};
    for (qk_mem_block* block = walked.first; block != end_of(run); block = block->next) {
      if (take(*block)) {
        split(run, walked, block);
        return true;
      }
      raise(walked.room, room_of(*block));
      ++walked.length;
    }
    skips_.runs[run] = walked;
    return false;
  }

  /**
   * Makes the blocks that were walked in vain a run of their own, so that the next walk skips them.
   */
  void split(int run, const Run& walked, qk_mem_block* rest) {
    if (walked.length < kWorthSplitting) return;
    Run* whole = skips_.runs + run;
    const std::uint64_t left = whole->length > walked.length ? whole->length - walked.length : 1;
    const Run behind = {rest, whole->room, left};
    std::copy_backward(whole + 1, skips_.runs + skips_.count, skips_.runs + skips_.count + 1);
    whole[0] = walked;
    whole[1] = behind;
    ++skips_.count;
  }

  void find_in_unexplored() {
    while (qk_mem_block* block = skips_.unexplored) {
      if (take(*block)) return;
      append_run({block, room_of(*block), 1});
      skips_.unexplored = block->next;
    }
  }

  void append_run(Run run) {
    make_place(skips_);
    skips_.runs[skips_.count++] = run;
    raise(skips_.most_room, run.room);
  }

  void most_room_changed() {
    skips_.most_room = {};
    for (int run = 0; run < skips_.count; ++run) raise(skips_.most_room, skips_.runs[run].room);
  }

  qk_mem_skips& skips_;
  qk_mem_block* head_;
  std::uint64_t size_;
  std::uint64_t alignment_;
  std::uint64_t qk_mem_room::*bound_;
  Piece piece_;
};

/**
 * Makes a run of the blocks in front of the first one, none of which had room for the request that
 * failed.
 */
void absorb_front(qk_mem_skips& skips, qk_mem_block* front) {
  if (skips.count == 0 || front == skips.runs[0].first) return;
  Run run = {front, {}, 0};
  for (const qk_mem_block* block = front; block != skips.runs[0].first; block = block->next) {
    raise(run.room, room_of(*block));
    ++run.length;
  }
  make_place(skips);
  std::copy_backward(skips.runs, skips.runs + skips.count, skips.runs + skips.count + 1);
  skips.runs[0] = run;
  ++skips.count;
  raise(skips.most_room, run.room);
}

/** The same without skipping any block. */
Piece find_without_skips(qk_mem_block* block, std::uint64_t size, std::uint64_t alignment) {
  Piece piece;
  while (block != nullptr && !take(*block, size, alignment, piece)) block = block->next;
  return piece;
}

}  // namespace

Piece take_first_fit(qk_mem_handle& handle, std::uint64_t size, std::uint64_t alignment) {
  assert_held(handle);
  if constexpr (!qk::kShortcuts) return find_without_skips(handle.blocks, size, alignment);
  return Walk(handle, size, alignment).find();
}

void block_was_added(qk_mem_handle& handle, const qk_mem_block* head_before) {
  assert_held(handle);
  qk_mem_skips& skips = handle.skips;
  if (skips.head != head_before) return;
  const bool in_front = handle.blocks != head_before;
  absorb_front(skips, in_front ? handle.blocks->next : handle.blocks);
  skips.head = handle.blocks;
}

void gained_room(qk_mem_handle& handle, const qk_mem_block& block) {
  assert_held(handle);
  qk_mem_skips& skips = handle.skips;
  const qk_mem_room room = room_of(block);
  for (int run = 0; run < skips.count; ++run) raise(skips.runs[run].room, room);
  raise(skips.most_room, room);
}

void forget_room(qk_mem_handle& handle) {
  assert_held(handle);
  handle.skips.head = handle.blocks;
  handle.skips.unexplored = handle.blocks;
  handle.skips.most_room = {};
  handle.skips.count = 0;
}

}  // namespace qk::mem

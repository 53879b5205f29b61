#include "table/first_fit.h"

#include <algorithm>

#include "core/registry.h"
#include "support/shortcuts.h"

namespace qk::mem {
namespace {

using Run = qk_mem_skips::Run;

[[gnu::always_inline]] inline std::uint64_t remainder(std::uint64_t offset,
                                                      std::uint64_t alignment) {
  const bool power_of_two = (alignment & (alignment - 1)) == 0;
  return power_of_two ? offset & (alignment - 1) : offset % alignment;
}

[[gnu::always_inline]] inline std::uint64_t room_above(const qk_mem_block& block,
                                                       std::uint64_t alignment) {
  const std::uint64_t free = block.capacity - block.high_mark;
  const std::uint64_t beyond = remainder(block.high_mark, alignment);
  const std::uint64_t padding = beyond == 0 ? 0 : alignment - beyond;
  return padding > free ? 0 : free - padding;
}

/** The size of the largest piece that fits a block at an alignment. */
[[gnu::always_inline]] inline std::uint64_t room_for(const qk_mem_block& block,
                                                     std::uint64_t alignment) {
  return std::max(room_above(block, alignment), block.low_mark);
}

qk_mem_room room_of(const qk_mem_block& block) {
  return {room_for(block, 1), room_for(block, 8), room_for(block, 16)};
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

[[gnu::always_inline]] inline bool take_upward(qk_mem_block& block, std::uint64_t size,
                                               std::uint64_t alignment, Piece& piece) {
  const std::uint64_t free = block.capacity - block.high_mark;
  if (size > free) return false;
  const std::uint64_t beyond = remainder(block.high_mark, alignment);
  const std::uint64_t padding = beyond == 0 ? 0 : alignment - beyond;
  if (padding > free - size) return false;
  piece = {&block, block.high_mark + padding, padding};
  block.high_mark += padding + size;
  return true;
}

[[gnu::always_inline]] inline bool take_downward(qk_mem_block& block, std::uint64_t size,
                                                 std::uint64_t alignment, Piece& piece) {
  if (size > block.low_mark) return false;
  const std::uint64_t padding = remainder(block.low_mark - size, alignment);
  piece = {&block, block.low_mark - size - padding, padding};
  block.low_mark -= padding + size;
  return true;
}

[[gnu::always_inline]] inline bool take(qk_mem_block& block, std::uint64_t size,
                                        std::uint64_t alignment, Piece& piece) {
  return take_upward(block, size, alignment, piece) || take_downward(block, size, alignment, piece);
}

void set_cursor(qk_mem_skips& skips, std::uint64_t number, qk_mem_block* block) {
  skips.cursors[number] = block;
  skips.same_cursors = std::min(skips.same_cursors, static_cast<std::int32_t>(number));
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
        bound_(bound_for(alignment)),
        cursor_(cursor_for(size, alignment)) {
    if (skips_.head != head_ || (skips_.count == 0 && skips_.unexplored == nullptr)) {
      forget_room(handle);
    }
  }

  Piece find() {
    if (!find_in_front() && !find_in_runs()) find_in_unexplored();
    if (has_cursor()) {
      set_cursor(skips_, cursor_, may_serve_ != nullptr ? may_serve_ : piece_.block);
    }
    return piece_;
  }

 private:
  [[nodiscard]] bool has_cursor() const { return cursor_ < qk_mem_skips::kCursors; }

  /** Whether blocks with this room at most have room for no request of the cursor's class. */
  [[nodiscard]] bool serves_none(const qk_mem_room& room) const {
    return room.by16 < smallest_for_cursor(cursor_);
  }

  /** Notes blocks from `first` on that were passed and have this room at most. */
  void pass(qk_mem_block* first, const qk_mem_room& room) {
    if (has_cursor() && may_serve_ == nullptr && !serves_none(room)) may_serve_ = first;
  }

  void pass(qk_mem_block* block) {
    if (has_cursor() && may_serve_ == nullptr) pass(block, room_of(*block));
  }

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
      pass(block);
    }
    return false;
  }

  bool find_in_runs() {
    if (skips_.count == 0) return false;
    if (size_ > skips_.most_room.*bound_) {
      pass(skips_.runs[0].first, skips_.most_room);
      return false;
    }
    make_place(skips_);
    for (int run = 0; run < skips_.count; ++run) {
      if (size_ <= skips_.runs[run].room.*bound_ && find_in_run(run)) return true;
      pass(skips_.runs[run].first, skips_.runs[run].room);
    }
    most_room_changed();
    return false;
  }

  bool find_in_run(int run) {
    Run walked = {skips_.runs[run].first, {}, 0};
    for (qk_mem_block* block = walked.first; block != end_of(run); block = block->next) {
      if (take(*block)) {
        pass(walked.first, walked.room);
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
      const qk_mem_room room = room_of(*block);
      pass(block, room);
      append_run({block, room, 1});
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
  std::uint64_t cursor_;               // its number
  qk_mem_block* may_serve_ = nullptr;  // the first block with room for others of the cursor's class
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
[[maybe_unused]] Piece find_without_skips(qk_mem_block* block, std::uint64_t size,
                                          std::uint64_t alignment) {
  Piece piece;
  while (block != nullptr && !take(*block, size, alignment, piece)) block = block->next;
  return piece;
}

/**
 * Moves the cursors of the requests that a block has room for now: to the block if it is the first
 * one, `head`. Otherwise it isn't known whether it lies before them. Mostly they have been moved
 * already, since blocks that gain room do so again and again.
 */
void turn_cursors(qk_mem_skips& skips, const qk_mem_block* head, qk_mem_block& block,
                  std::uint64_t room) {
  qk_mem_block* const target = &block == head ? &block : nullptr;
  const std::uint64_t classes = (room + kCursorAlignment - 1) / kCursorAlignment;
  const auto end = static_cast<std::int32_t>(std::min<std::uint64_t>(classes, skips.kCursors));
  if (end <= skips.same_cursors && skips.cursors[0] == target) return;
  skips.same_cursors = end;
  for (std::int32_t number = 0; number < end; ++number) {
    if (skips.cursors[number] != &block) {
      skips.cursors[number] = target;
    } else if (target == nullptr) {
      skips.same_cursors = 0;
    }
  }
}

/**
 * Looks at the next few blocks from a cursor on, and moves it past those that have no room for any
 * request of its class.
 */
Piece find_from_cursor(qk_mem_skips& skips, std::uint64_t number, std::uint64_t size) {
  constexpr int kFew = 6;
  Piece piece;
  qk_mem_block* block = skips.cursors[number];
  for (int i = 0; i < kFew && block != nullptr; ++i, block = block->next) {
    if (take(*block, size, kCursorAlignment, piece)) break;
    if (room_for(*block, kCursorAlignment) >= smallest_for_cursor(number)) break;
  }
  if (block != skips.cursors[number]) set_cursor(skips, number, block);
  return piece;
}

}  // namespace

Piece take_first_fit(qk_mem_handle& handle, std::uint64_t size, std::uint64_t alignment) {
  assert_held(handle);
  if constexpr (!qk::kShortcuts) return find_without_skips(handle.blocks, size, alignment);
  if (const auto cursor = cursor_for(size, alignment); cursor < qk_mem_skips::kCursors) {
    const Piece piece = find_from_cursor(handle.skips, cursor, size);
    if (piece.block != nullptr) return piece;
  }
  return Walk(handle, size, alignment).find();
}

void block_was_added(qk_mem_handle& handle, const qk_mem_block* head_before) {
  assert_held(handle);
  qk_mem_skips& skips = handle.skips;
  if (skips.head != head_before) return;
  const bool in_front = handle.blocks != head_before;
  if (in_front) {
    qk_mem_block& head = *handle.blocks;
    turn_cursors(skips, &head, head, room_for(head, kCursorAlignment));
  }
  absorb_front(skips, in_front ? handle.blocks->next : handle.blocks);
  skips.head = handle.blocks;
}

void gained_room(qk_mem_handle& handle, qk_mem_block& block) {
  assert_held(handle);
  qk_mem_skips& skips = handle.skips;
  const qk_mem_room room = room_of(block);
  for (int run = 0; run < skips.count; ++run) raise(skips.runs[run].room, room);
  raise(skips.most_room, room);
  turn_cursors(skips, handle.blocks, block, room.by16);
}

void forget_room(qk_mem_handle& handle) {
  assert_held(handle);
  handle.skips.head = handle.blocks;
  handle.skips.unexplored = handle.blocks;
  handle.skips.most_room = {};
  handle.skips.count = 0;
  std::fill(std::begin(handle.skips.cursors), std::end(handle.skips.cursors), handle.blocks);
  handle.skips.same_cursors = qk_mem_skips::kCursors;
}

}  // namespace qk::mem

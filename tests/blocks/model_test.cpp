#include "tests/blocks/model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "accounting/kept_calls.h"
#include "core/registry.h"
#include "table/pointer_table.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

using kit::Pool;
using kit::Scene;

constexpr int kSteps = 100000;
constexpr std::size_t kMostPieces = 600;

struct Case {
  const char* name;
  const char* options;
  std::uint64_t blocksize;
  unsigned seed;
};

/** A piece that the program holds. */
struct Piece {
  char* memory;
  model::Place place;
  std::uint64_t size;  // as recorded
  char mark;           // fills its bytes
};

/** A handle and its model, put through the same random steps. */
class Comparison {
 public:
  explicit Comparison(const Case& row)
      : pool_(row.options), handle_(pool_.record()), random_(row.seed), model_(row.blocksize) {
    // A handle starts with empty blocks.
    for (qk_mem_block* block = handle_.blocks; block != nullptr; block = block->next) {
      model_.blocks.push_back({block->capacity, 0, 0, data_of(block)});
    }
  }

  void step() {
    const unsigned kind = pick(100);
    if (pieces_.size() >= kMostPieces || pick(clear_every_) == 0) {
      clear();
    } else if (kind < 25) {
      allocate();
    } else if (kind < 35) {
      allocate_zeroed();
    } else if (kind < 42) {
      copy_string();
    } else if (kind < 58) {
      resize();
    } else if (kind < 60) {
      fail_to_allocate();
    } else {
      release();
    }
  }

  /** Compares all marks and the order of the list. */
  void expect_same_blocks() const {
    const qk_mem_block* real = handle_.blocks;
    for (const model::Block& block : model_.blocks) {
      ASSERT_NE(real, nullptr);
      ASSERT_EQ(data_of(real), block.data);
      ASSERT_EQ(real->capacity, block.capacity);
      ASSERT_EQ(real->low_mark, block.low);
      ASSERT_EQ(real->high_mark, block.high);
      real = real->next;
    }
    ASSERT_EQ(real, nullptr);
  }

  void expect_same_totals() const {
    ASSERT_EQ(handle_.num_blocks, model_.blocks.size());
    ASSERT_EQ(handle_.block_used, model_.used);
  }

 private:
  static char* data_of(const qk_mem_block* block) {
    return reinterpret_cast<char*>(const_cast<qk_mem_block*>(block)) + Qk_mem_blocksize;
  }

  unsigned pick(unsigned end) { return static_cast<unsigned>(random_() % end); }

  std::uint64_t pick_size() {
    const auto blocksize = static_cast<unsigned>(handle_.blocksize);
    if (pick(4) == 0) return pick(20);
    return pick(40) == 0 ? pick(3 * blocksize + 1) : pick(201);
  }

  int pick_alignment() {
    constexpr int kAlignments[] = {16, 16, 16, 16, 1, 2, 4, 8, 32, 3};
    return kAlignments[pick(std::size(kAlignments))];
  }

  void allocate() {
    const std::uint64_t size = pick_size();
    const int alignment = pick_alignment();
    void* memory = qk_mem_imalloc(pool_, size, alignment, "src/app.c", 1);
    hold(memory, size, alignment);
  }

  void allocate_zeroed() {
    const std::uint64_t num = pick(11);
    const std::uint64_t size = pick(21);
    const int alignment = pick_alignment();
    void* memory = qk_mem_icalloc(pool_, num, size, alignment, "src/app.c", 2);
    ASSERT_EQ(std::string(static_cast<char*>(memory), num * size), std::string(num * size, '\0'));
    hold(memory, num * size, alignment);
  }

  void copy_string() {
    const std::string text(pick(200), 'x');
    char* copy = qk_mem_istrdup(pool_, text.c_str(), "src/app.c", 3);
    ASSERT_EQ(copy, text);
    hold(copy, text.size() + 1, 1);
  }

  /** A request whose new block can't be allocated changes nothing. */
  void fail_to_allocate() {
    const std::uint64_t size = pick_size();
    const int alignment = pick_alignment();
    if (model_.has_room(size, alignment)) return;
    kit::fail_request(1);
    ASSERT_EQ(qk_mem_imalloc(pool_, size, alignment, "src/app.c", 4), nullptr);
    ASSERT_EQ(qk_mem_error(), 5012);
  }

  void resize() {
    const std::uint64_t size = pick_size();
    const int alignment = pick_alignment();
    if (pieces_.empty() || pick(8) == 0) {
      hold(qk_mem_irealloc(pool_, nullptr, size, alignment, "src/app.c", 5), size, alignment);
      return;
    }
    const std::size_t index = pick_piece();
    const Piece piece = pieces_[index];
    void* memory = qk_mem_irealloc(pool_, piece.memory, size, alignment, "src/app.c", 6);
    if (handle_.blockfree == 0) {
      ASSERT_EQ(memory, nullptr);
    } else if (size <= piece.size) {
      ASSERT_EQ(memory, piece.memory);
      expect_marked(piece);
      forget(index);
      enter({piece.memory, piece.place, size, piece.mark});
    } else {
      expect_marked(piece);
      forget(index);
      model::Handle::release(piece.place, piece.size);
      hold(memory, size, alignment);
    }
  }

  void release() {
    if (pieces_.empty()) return;
    const std::size_t index = pick_piece();
    const Piece piece = pieces_[index];
    expect_marked(piece);
    qk_mem_ifree(pool_, piece.memory, "src/app.c", 7);
    if (handle_.blockfree == 0) return;
    forget(index);
    model::Handle::release(piece.place, piece.size);
    expect_same_marks(*piece.place.block);
  }

  void clear() {
    for (const Piece& piece : pieces_) expect_marked(piece);
    ASSERT_EQ(qk_mem_iclear_handle(pool_, "src/app.c", 8), 0);
    model_.clear();
    pieces_.clear();
    extents_.clear();
    clear_every_ = 20 + pick(2000);
  }

  /**
   * Picks a piece. Pieces without bytes can share an address with others; of these it returns the
   * one that the library finds.
   */
  std::size_t pick_piece() {
    const std::size_t index = pick(static_cast<unsigned>(pieces_.size()));
    if (handle_.blockfree == 0) return index;
    const char* memory = pieces_[index].memory;
    const qk_mem_ptr* record = qk_mem_get_ptr(&handle_, memory);
    EXPECT_NE(record, nullptr);
    const std::uint64_t size = record->count * record->size;
    if (pieces_[index].size == size) return index;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      if (pieces_[i].memory == memory && pieces_[i].size == size) return i;
    }
    ADD_FAILURE() << "no piece matches the record of " << size << " bytes";
    return index;
  }

  /** Expects allocated memory where the model puts it. */
  void hold(void* memory, std::uint64_t size, int alignment) {
    ASSERT_NE(memory, nullptr);
    const model::Place place = model_.allocate(size, static_cast<std::uint64_t>(alignment));
    auto* bytes = static_cast<char*>(memory);
    if (place.block->data == nullptr) place.block->data = bytes;  // of a new block, at offset 0
    ASSERT_EQ(bytes, place.block->data + place.offset);
    ASSERT_EQ(place.offset % static_cast<std::uint64_t>(alignment), 0U);
    ASSERT_LE(place.offset + size, place.block->capacity);
    expect_same_marks(*place.block);
    const Piece piece = {bytes, place, size, static_cast<char>('a' + pick(26))};
    std::memset(bytes, piece.mark, size);
    enter(piece);
  }

  /** Adds a piece, which must not overlap another. */
  void enter(const Piece& piece) {
    pieces_.push_back(piece);
    if (piece.size == 0) return;
    const auto next = extents_.lower_bound(piece.memory);
    if (next != extents_.end()) {
      ASSERT_LE(piece.memory + piece.size, next->first);
    }
    if (next != extents_.begin()) {
      ASSERT_LE(std::prev(next)->first + std::prev(next)->second, piece.memory);
    }
    extents_[piece.memory] = piece.size;
  }

  void forget(std::size_t index) {
    if (pieces_[index].size > 0) extents_.erase(pieces_[index].memory);
    pieces_[index] = pieces_.back();
    pieces_.pop_back();
  }

  static void expect_same_marks(const model::Block& block) {
    const auto* real = reinterpret_cast<qk_mem_block*>(block.data - Qk_mem_blocksize);
    ASSERT_EQ(real->capacity, block.capacity);
    ASSERT_EQ(real->low_mark, block.low);
    ASSERT_EQ(real->high_mark, block.high);
  }

  static void expect_marked(const Piece& piece) {
    for (std::uint64_t i = 0; i < piece.size; ++i) ASSERT_EQ(piece.memory[i], piece.mark);
  }

  const Pool pool_;
  qk_mem_handle& handle_;
  std::mt19937 random_;
  model::Handle model_;
  std::vector<Piece> pieces_;
  std::map<char*, std::uint64_t> extents_;
  unsigned clear_every_ = 500;
};

class BlockAllocator : public ::testing::TestWithParam<Case> {};

constexpr Case kCases[] = {
    {"Plain64", "BLOCKMGMT BLOCKSIZE=64", 64, 11},
    {"Plain100", "BLOCKMGMT BLOCKSIZE=100", 100, 77},
    {"Plain1000Shared", "BLOCKMGMT BLOCKSIZE=1000 MULTITHREADED", 1000, 22},
    {"Plain4096", "BLOCKMGMT BLOCKSIZE=4096 BLOCKINITIAL=5", 4096, 33},
    {"Blockfree64Shared", "BLOCKMGMT BLOCKFREE BLOCKSIZE=64 MULTITHREADED", 64, 44},
    {"Blockfree300", "BLOCKMGMT BLOCKFREE BLOCKSIZE=300 BLOCKINITIAL=0", 300, 55},
    {"Blockfree4096", "BLOCKMGMT BLOCKFREE BLOCKSIZE=4096 BLOCKINITIAL=3", 4096, 66},
};

INSTANTIATE_TEST_SUITE_P(Model, BlockAllocator, ::testing::ValuesIn(kCases),
                         [](const auto& row) { return row.param.name; });

TEST_P(BlockAllocator, PutsEveryPieceWhereTheModelPutsIt) {
  Scene scene;
  Comparison comparison(GetParam());
  comparison.expect_same_blocks();
  for (int step = 1; step <= kSteps; ++step) {
    comparison.step();
    comparison.expect_same_totals();
    if (step % 1000 == 0) comparison.expect_same_blocks();
    ASSERT_FALSE(HasFailure()) << "in step " << step;
  }
}

}  // namespace

#ifndef QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_
#define QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "ledger/index_table.h"
#include "ledger/large_array.h"
#include "ledger/lazy_list.h"
#include "ledger/ledger.h"

namespace qk::command {

/**
 * The live blocks of a table, by handle and address: one address can be recorded on several handles.
 *
 * A realloc that has moved its block names only the new address. The old block is one of the handle's
 * blocks of its size, and until later rows tell more it can be any of them. So the newest is presumed
 * gone, and stays known: a release of it shows that another one is gone, and a new block at its
 * address that it really was. As many blocks as are gone are presumed to be at any time, so sums are
 * exact, whichever they are.
 */
class TableBlocks {
 public:
  explicit TableBlocks(Ledger& ledger) : ledger_(ledger) {}

  /** What was live at the address of a new block, and can't be gone. */
  struct Added {
    std::optional<Block> in_place_of;
  };

  /** Adds a block at an address. What lived there and was presumed gone was so. */
  Added add(HandleIndex handle, const Block& block);

  /** A block at an address is soon added, taken or resized. */
  void expect(HandleIndex handle, std::uint64_t address, std::uint64_t bytes) const {
    table_.expect(hash_of(address, handle));
    size_table_.expect(hash_of(bytes, handle));
  }

  /** Same, later: what the tables say has come by then. */
  void expect_soon(HandleIndex handle, std::uint64_t address, std::uint64_t bytes) const {
    const std::uint32_t number = table_.first(hash_of(address, handle));
    if (number != kNone) expect_memory(&nodes_[number]);
    const std::uint32_t size = size_table_.first(hash_of(bytes, handle));
    if (size != kNone) expect_memory(&sizes_[size]);
  }

  /** Removes the block at an address and returns it, if there is one. */
  std::optional<Block> take(HandleIndex handle, std::uint64_t address);

  /** Which block a realloc has resized. */
  struct Resized {
    std::optional<Block> block;
    bool has_moved = false;
    bool had_choice = false;  // between several blocks
  };

  /** Removes the block that a realloc has resized, which had so many bytes. */
  Resized take_resized(HandleIndex handle, std::uint64_t new_address, std::uint64_t old_bytes);

  /** Removes the program's blocks of a handle. */
  void take_all(HandleIndex handle);

 private:
  static constexpr std::uint32_t kNone = IndexTable::kNone;

  /** As large as what the processor reads at once. */
  struct alignas(64) Node {
    Block block;
    HandleIndex handle = 0;
    std::uint32_t size = 0;       // its place in sizes_
    std::uint32_t newer = kNone;  // of its size, live or presumed gone
    std::uint32_t older = kNone;  // or the next free node
    std::uint32_t generation = 0;
    bool is_used = false;
    bool is_presumed_gone = false;
  };

  /** The blocks of a handle and a size. */
  struct Size {
    std::uint64_t bytes = 0;
    HandleIndex handle = 0;
    std::uint32_t newest_live = kNone;
    std::uint32_t newest_presumed_gone = kNone;
  };

  /** What a list says of a node, which can be another block's by now. */
  struct Mention {
    std::uint32_t number = 0;
    std::uint32_t generation = 0;
  };

  [[nodiscard]] std::uint32_t find(HandleIndex handle, std::uint64_t address) const;
  [[nodiscard]] std::uint32_t free_node();
  [[nodiscard]] std::uint32_t size_of(HandleIndex handle, std::uint64_t bytes);
  [[nodiscard]] std::uint32_t& newest_of(const Node& node) {
    Size& size = sizes_[node.size];
    return node.is_presumed_gone ? size.newest_presumed_gone : size.newest_live;
  }
  [[nodiscard]] std::vector<std::uint32_t> all_of_program() const;
  void make_lists_of_sizes();
  void make_lists_of_handles();
  void link_to_size(std::uint32_t number);
  void link(std::uint32_t number);
  void unlink(std::uint32_t number);
  void list(std::uint32_t number);
  [[nodiscard]] bool is_there(const Mention& mention) const {
    return nodes_[mention.number].generation == mention.generation;
  }
  void remove(std::uint32_t number);
  void presume(std::uint32_t number, bool is_gone);
  [[nodiscard]] bool settle_live(std::uint32_t number);
  [[nodiscard]] bool settle_gone(std::uint32_t number);

  Ledger& ledger_;
  LargeArray<Node> nodes_;
  std::uint32_t free_ = kNone;
  IndexTable table_;                 // of nodes
  bool has_lists_of_sizes_ = false;  // from the first realloc on that has moved
  std::vector<Size> sizes_;
  IndexTable size_table_;
  bool has_lists_of_handles_ = false;  // from the first handle on that is deleted
  std::vector<LazyList<Mention>> lists_of_handles_;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_

#ifndef QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_
#define QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "ledger/index_table.h"
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

  struct Node {
    Block block;
    HandleIndex handle = 0;
    std::uint32_t newer = kNone;  // of its size, live or presumed gone
    std::uint32_t older = kNone;  // or the next free node
    std::uint32_t next = kNone;   // of its handle
    std::uint32_t before = kNone;
    bool is_used = false;
    bool is_presumed_gone = false;
  };

  struct List {
    std::uint32_t newest = kNone;
    std::uint64_t count = 0;
  };

  /** The blocks of a handle and a size. */
  struct Size {
    std::uint64_t bytes = 0;
    HandleIndex handle = 0;
    List live;
    List presumed_gone;
  };

  [[nodiscard]] std::uint32_t find(HandleIndex handle, std::uint64_t address) const;
  [[nodiscard]] std::uint32_t free_node();
  [[nodiscard]] Size& size_of(HandleIndex handle, std::uint64_t bytes);
  void make_lists();
  [[nodiscard]] List& list_of(const Node& node);
  void link(std::uint32_t number);
  void unlink(std::uint32_t number);
  void link_to_handle(std::uint32_t number);
  void remove(std::uint32_t number);
  void presume(std::uint32_t number, bool is_gone);
  [[nodiscard]] bool settle_live(std::uint32_t number);
  [[nodiscard]] bool settle_gone(std::uint32_t number);

  Ledger& ledger_;
  std::vector<Node> nodes_;
  std::uint32_t free_ = kNone;
  IndexTable table_;        // of nodes
  bool has_lists_ = false;  // from the first realloc on that has moved
  std::vector<Size> sizes_;
  IndexTable size_table_;
  std::vector<std::uint32_t> first_of_handle_;  // of the program's
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_TABLE_BLOCKS_H_

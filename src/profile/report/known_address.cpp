#include "profile/report/known_address.h"

#include "profile/pool.h"
#include "profile/report/misuse_report.h"
#include "support/text.h"

namespace qk::mem::profile {
namespace {

/** A piece that was freed is known better than the free part of the block that it was in. */
bool is_piece_of(const ManagedBlock& managed, const history::FreedBlock& freed) {
  return managed.kind != AddressKind::kBlockHeader &&
         pools.at(freed.writer).hid == managed.handle.hid;
}

void put_ending(qk::Line& line, const history::FreedBlock& block) {
  switch (block.release.ending) {
    case history::Ending::kFreed:
      line.put(" that was freed");
      break;
    case history::Ending::kResized:
      line.put(" that was resized");
      break;
    case history::Ending::kDeregistered:
      line.put(" that was deregistered");
      break;
    case history::Ending::kWithHandle: {
      const Pool& pool = pools.at(block.writer);
      put_handle(line.put(" that went with "), pool.hid, tag_levels.at(pool.tag).name);
    }
  }
  if (block.release.path == nullptr) return;
  line.put(" at ").put(qk::file_name_only(block.release.path)).put(':');
  line.number(static_cast<std::uint64_t>(block.release.line));
}

void put_live(qk::Line& line, const LiveBlock& block, bool names_handle) {
  put_offset(line, block.offset, block.bytes, names_handle ? "block" : "piece");
  if (names_handle) put_handle(line.put(" on "), block.handle);
  put_allocation(line, "allocated", block.place);
  if (block.event != 0) put_event(line, block.event);
}

void put_freed(qk::Line& line, const history::FreedBlock& block, const void* address) {
  put_offset(line, offset_in(block.address, address), block.bytes);
  put_ending(line, block);
  put_allocation(line, "was allocated",
                 place_of(pools.at(block.writer), Mark::of_word(block.allocation)));
}

/** Whether a block is near, and the address in none. */
bool is_near_block(const Knowledge& knowledge) { return knowledge.live || knowledge.freed; }

/** Whether there is no more to say than which block is near. */
bool is_told_by_nearest(AddressKind kind) { return kind >= AddressKind::kHeap; }

/** Appends what lies at an address of none of the program's blocks. */
void put_surroundings(qk::Line& line, const Knowledge& knowledge) {
  if (knowledge.managed) {
    put_managed_block(line, *knowledge.managed);
  } else if (knowledge.process &&
             !(is_near_block(knowledge) && is_told_by_nearest(knowledge.kind))) {
    put_process_memory(line, *knowledge.process, knowledge.address);
  } else {
    return;
  }
  if (is_near_block(knowledge)) line.put(", ");
}

void put_nearest(qk::Line& line, const Knowledge& knowledge) {
  if (!knowledge.live) {
    if (knowledge.freed) put_freed(line, *knowledge.freed, knowledge.address);
    return;
  }
  const bool is_on_same_handle =
      knowledge.managed && knowledge.managed->handle.hid == knowledge.live->handle.hid;
  put_live(line, *knowledge.live, !is_on_same_handle);
}

/** If no live block is near. */
std::optional<history::FreedBlock> nearest_freed(const Knowledge& known) {
  if (known.live) return std::nullopt;
  return freed_blocks.nearest(known.address, kNear);
}

}  // namespace

Knowledge know(const void* address) {
  Knowledge known = {address, AddressKind::kNull, {}, {}, {}, {}, {}};
  if (address == nullptr) return known;
  const LiveBlocks live = find_live_blocks(address);
  known.live = live.around;
  known.kind = AddressKind::kLiveBlock;
  if (known.live) return known;
  known.library = find_library_memory(address);
  known.kind = AddressKind::kLibrary;
  if (known.library) return known;
  known.managed = find_managed_block(address);
  known.freed = freed_blocks.find(address);
  known.kind = AddressKind::kFreedBlock;
  if (known.freed && (!known.managed || is_piece_of(*known.managed, *known.freed))) return known;
  known.live = live.nearest;
  known.freed = nearest_freed(known);
  if (known.managed) {
    known.kind = known.managed->kind;
    return known;
  }
  known.process = find_in_process(address);
  known.kind = known.process->kind;
  return known;
}

std::optional<Knowledge> know_of_blocks(const void* address) {
  const auto live = try_to_find_live_blocks(address);
  if (!live) return std::nullopt;
  Knowledge known = {address, AddressKind::kLiveBlock, live->around, {}, {}, {}, {}};
  if (known.live) return known;
  known.freed = freed_blocks.find(address);
  known.kind = AddressKind::kFreedBlock;
  if (known.freed) return known;
  known.kind = AddressKind::kUnknown;
  known.live = live->nearest;
  known.freed = nearest_freed(known);
  if (!is_near_block(known)) return std::nullopt;
  return known;
}

void put_knowledge(qk::Line& line, const Knowledge& knowledge) {
  switch (knowledge.kind) {
    case AddressKind::kNull:
      line.put("null");
      break;
    case AddressKind::kLiveBlock:
      put_live(line, *knowledge.live, true);
      break;
    case AddressKind::kLibrary:
      put_library_memory(line, *knowledge.library);
      break;
    case AddressKind::kFreedBlock:
      put_freed(line, *knowledge.freed, knowledge.address);
      break;
    default:
      put_surroundings(line, knowledge);
      put_nearest(line, knowledge);
  }
}

}  // namespace qk::mem::profile

#include "profile/report/managed_block.h"

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "formats/figures.h"
#include "support/careful_reading.h"
#include "support/shared_variable.h"
#include "table/blocks.h"

namespace qk::mem::profile {
namespace {

/**
 * Reads what another thread may be deleting together with its handle, which takes no lock as long as
 * there are blocks. False if it is gone.
 */
template <class T>
bool read(const T* from, T& to) {
  if (!qk::is_single_threaded()) {
    return qk::copy_if_there(reinterpret_cast<std::uintptr_t>(from), &to, sizeof to);
  }
  to = *from;
  return true;
}

AddressKind kind_in(const qk_mem_handle& handle, const qk_mem_block& header, std::uint64_t offset) {
  if (offset < Qk_mem_blocksize) return AddressKind::kBlockHeader;
  const std::uint64_t in_data = offset - Qk_mem_blocksize;
  if (in_data < header.low_mark || in_data >= header.high_mark) return AddressKind::kBlockFree;
  return handle.track != 0 ? AddressKind::kBlockHole : AddressKind::kBlockPieces;
}

std::optional<ManagedBlock> find_on(const qk_mem_handle& handle, const void* address) {
  if (!is_blockmgmt(handle)) return std::nullopt;
  const HandleLock lock(handle);
  qk_mem_block header = {};
  if (!read(&handle.blocks, header.next)) return std::nullopt;
  // The list can end anywhere, or nowhere, if its handle is being deleted.
  for (std::uint32_t left = qk::load(handle.num_blocks); left != 0 && header.next != nullptr;
       --left) {
    const qk_mem_block* const block = header.next;
    if (!read(block, header)) return std::nullopt;
    const std::uint64_t offset = offset_in(block, address);
    if (offset >= bytes_of_block(header.capacity)) continue;
    return ManagedBlock{kind_in(handle, header, offset), header.capacity, name_of(handle)};
  }
  return std::nullopt;
}

std::string_view words_for(AddressKind kind) {
  switch (kind) {
    case AddressKind::kBlockHeader:
      return "in the header";
    case AddressKind::kBlockFree:
      return "in the free part";
    case AddressKind::kBlockHole:
      return "in a hole between the pieces";
    default:
      return "among the pieces, which are in no record,";
  }
}

}  // namespace

std::optional<ManagedBlock> find_managed_block(const void* address) {
  std::optional<ManagedBlock> found;
  const RegistryLock lock;
  for_each_handle([&](const qk_mem_handle& handle) {
    if (!found) found = find_on(handle, address);
  });
  return found;
}

void put_managed_block(qk::Line& line, const ManagedBlock& block) {
  line.put(words_for(block.kind)).put(" of a block of ");
  put_handle(line.put(count_figure(block.capacity).text()).put(" on "), block.handle);
}

}  // namespace qk::mem::profile

#include "tests/kit/blocks.h"

#include <cstdlib>

#include "core/registry.h"
#include "table/block_index.h"
#include "tests/kit/scene.h"

namespace kit {

std::string blocks_of(const qk_mem_handle& handle) {
  std::string text;
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    text += (text.empty() ? "" : " ") + std::to_string(block->capacity) + ":" +
            std::to_string(block->low_mark) + "-" + std::to_string(block->high_mark);
  }
  return text;
}

std::string blocks_of(int hid) { return blocks_of(handle_of(hid)); }

std::string position_of(const qk_mem_handle& handle, const void* piece) {
  const auto address = reinterpret_cast<std::uintptr_t>(piece);
  int number = 1;
  for (const qk_mem_block* block = handle.blocks; block != nullptr; block = block->next) {
    const auto data = reinterpret_cast<std::uintptr_t>(block) + Qk_mem_blocksize;
    if (data <= address && address <= data + block->capacity) {
      return "block " + std::to_string(number) + " at " + std::to_string(address - data);
    }
    ++number;
  }
  return "no block";
}

std::string position_of(int hid, const void* piece) { return position_of(handle_of(hid), piece); }

StandaloneBlocks::StandaloneBlocks(std::uint64_t blocksize, std::initializer_list<Marks> blocks) {
  qk_mem_init();
  record.blockmgmt = 'B';
  record.blocksize = blocksize;
  qk_mem_block** end = &record.blocks;
  for (const Marks& marks : blocks) {
    *end = static_cast<qk_mem_block*>(std::malloc(Qk_mem_blocksize + marks.capacity));
    **end = {nullptr, marks.capacity, marks.low, marks.high};
    end = &(*end)->next;
  }
}

StandaloneBlocks::~StandaloneBlocks() {
  qk::mem::BlockIndex::destroy(record.block_index);
  while (qk_mem_block* block = record.blocks) {
    record.blocks = block->next;
    std::free(block);
  }
}

}  // namespace kit

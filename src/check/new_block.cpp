#include "check/new_block.h"

#include <algorithm>
#include <cstring>

#include "check/guards.h"
#include "check/quarantine.h"
#include "profile/filling.h"
#include "support/system_memory.h"

namespace qk::mem::check {
namespace {

/** A second attempt, with what the quarantine has kept. */
template <class Allocate>
void* with_quarantine(Allocate allocate) {
  void* const memory = allocate();
  return memory != nullptr || !empty_quarantine() ? memory : allocate();
}

}  // namespace

void NewBlock::give_up_front(std::uint64_t bytes) {
  char* const base = guard_in_front(address, layout);
  address = std::memmove(base, address, bytes);
  layout = {};
}

NewBlock allocate_after_emptying(std::size_t size, const Layout& layout) {
  if (!empty_quarantine()) return {};
  return block_in(user_memory::allocate(sum(size, layout.total())), size, layout);
}

NewBlock allocate(const qk_mem_handle& handle, std::size_t size) {
  const Layout layout = layout_of_new(handle);
  NewBlock block = block_in(user_memory::allocate(sum(size, layout.total())), size, layout);
  if (block.address == nullptr) [[unlikely]]
    block = allocate_after_emptying(size, layout);
  profile::filled(handle, block.address, size);
  return block;
}

NewBlock allocate_zeroed(const qk_mem_handle& handle, std::size_t num, std::size_t size) {
  const Layout layout = layout_of_new(handle);
  const std::size_t bytes = product(num, size);
  return block_in(with_quarantine([&] {
                    return layout.total() == 0
                               ? user_memory::allocate_zeroed(num, size)
                               : user_memory::allocate_zeroed(1, sum(bytes, layout.total()));
                  }),
                  bytes, layout);
}

NewBlock copy_of(const qk_mem_handle& handle, const char* text) {
  const std::size_t bytes = std::strlen(text) + 1;
  // A record has the low 32 bits of a longer text's size, so its guard would not be found.
  const Layout layout = bytes > UINT32_MAX ? Layout{} : layout_of_new(handle);
  if (layout.total() == 0) return {with_quarantine([&] { return user_memory::copy_of(text); }), {}};
  const NewBlock block =
      block_in(with_quarantine([&] { return user_memory::allocate(sum(bytes, layout.total())); }),
               bytes, layout);
  if (block.address != nullptr) std::memcpy(block.address, text, bytes);
  return block;
}

NewBlock resize(const qk_mem_handle& handle, void* old, std::uint64_t old_bytes, profile::Mark mark,
                std::size_t size) {
  const Layout before = layout_of(mark);
  Layout layout = layout_of_new(handle);
  // What lies in front of the contents can't be added or taken away by a realloc.
  layout.front = before.front;
  layout.flags = (layout.flags & ~profile::Mark::kGuardedInFront) |
                 (before.flags & profile::Mark::kGuardedInFront);
  void* const base = old == nullptr ? nullptr : guard_in_front(old, before);
  const NewBlock block = block_in(
      with_quarantine([&] { return user_memory::resize(base, sum(size, layout.total())); }), size,
      layout);
  if (profile::is_watched(handle)) profile::fill_new(block.address, old_bytes, size);
  return block;
}

NewBlock copy_elsewhere(const qk_mem_handle& handle, const BlockFacts& old, std::size_t size) {
  if (qk::load(settings.quarantines) == 0) return {};
  const NewBlock block = allocate(handle, size);
  if (block.address != nullptr) {
    std::memcpy(block.address, old.address, std::min<std::uint64_t>(old.bytes, size));
  }
  return block;
}

}  // namespace qk::mem::check

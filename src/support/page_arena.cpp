#include "support/page_arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "support/shared_variable.h"

namespace qk {
namespace {

constexpr std::size_t kSmallest = 16;
constexpr std::size_t kChunk = std::size_t{1} << 16;
constexpr std::size_t kPage = 4096;

/** A class holds memory of a power of two. */
int class_of(std::size_t bytes) {
  return static_cast<int>(std::bit_width((std::max(bytes, kSmallest) - 1) / kSmallest));
}

std::size_t bytes_of_class(int number) { return kSmallest << number; }

}  // namespace

std::uint64_t PageArena::mapped() const noexcept { return qk::load(mapped_); }

char* PageArena::map(std::size_t bytes) noexcept {
  if (bytes > limit_ || mapped_ > limit_ - bytes) return nullptr;
  const int error = errno;
  void* const pages =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  errno = error;
  if (pages == MAP_FAILED) return nullptr;
  qk::store(mapped_, mapped_ + bytes);
  const auto begin = reinterpret_cast<std::uintptr_t>(pages);
  note({begin, begin + bytes});
  return static_cast<char*>(pages);
}

void PageArena::note(AddressRange pages) noexcept {
  for (AddressRange& range : ranges_) {
    if (range.end == 0) {
      range = pages;
    } else if (range.end == pages.begin) {
      range.end = pages.end;
    } else if (range.begin == pages.end) {
      range.begin = pages.begin;
    } else {
      continue;
    }
    return;
  }
}

bool PageArena::has(const void* memory) const noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  return std::any_of(std::begin(ranges_), std::end(ranges_),
                     [address](const AddressRange& range) { return range.has(address); });
}

void* PageArena::carve(std::size_t bytes) noexcept {
  if (bytes > kChunk / 4) return map((bytes + kPage - 1) / kPage * kPage);
  if (bytes > left_) {
    char* const chunk = map(kChunk);
    if (chunk == nullptr) return nullptr;
    next_ = chunk;
    left_ = kChunk;
  }
  const std::size_t gap = left_ % std::min(bytes, kAlignment);  // a chunk ends at a page's end
  next_ += gap;
  left_ -= gap + bytes;
  return std::exchange(next_, next_ + bytes);
}

void* PageArena::take(std::size_t bytes) noexcept {
  const int number = class_of(bytes);
  if (number >= kClasses) return nullptr;
  const std::size_t room = bytes_of_class(number);
  Free* const reused = free_[number];
  if (reused == nullptr) return carve(room);
  free_[number] = reused->next;
  return std::memset(static_cast<void*>(reused), 0, bytes);
}

void PageArena::give_back(void* memory, std::size_t bytes) noexcept {
  if (memory == nullptr) return;
  const int number = class_of(bytes);
  free_[number] = std::construct_at(static_cast<Free*>(memory), Free{free_[number]});
}

}  // namespace qk

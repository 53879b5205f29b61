#include "profile/stack_table.h"

#include <array>
#include <cstring>
#include <utility>

namespace qk::mem {

/** The frames follow. */
struct StackTable::Entry {
  std::uint64_t depth;

  [[nodiscard]] std::uintptr_t* frames() { return reinterpret_cast<std::uintptr_t*>(this + 1); }
  [[nodiscard]] const std::uintptr_t* frames() const {
    return reinterpret_cast<const std::uintptr_t*>(this + 1);
  }
};

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;

/** Random numbers, one for each frame. */
constexpr std::array<std::uint64_t, kMostFrames + 1> kKeys = [] {
  std::array<std::uint64_t, kMostFrames + 1> keys = {};
  std::uint64_t state = 0;
  for (std::uint64_t& key : keys) {
    key = state += kOdd;
    key = (key ^ (key >> 30)) * 0xBF58476D1CE4E5B9;
    key = (key ^ (key >> 27)) * 0x94D049BB133111EB;
    key ^= key >> 31;
  }
  return keys;
}();

std::uint64_t folded_product(std::uint64_t one, std::uint64_t other) {
  const Wide product = static_cast<Wide>(one) * other;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::size_t bytes_of(const Stack& stack) {
  return static_cast<std::size_t>(stack.depth) * sizeof *stack.frames;
}

/** A hash of the whole stack. No product waits for another one, so they take little time. */
std::uint32_t print_of(const Stack& stack) {
  const auto depth = static_cast<std::size_t>(stack.depth);
  std::uint64_t sum = depth;
  std::size_t i = 0;
  for (; i + 1 < depth; i += 2) {
    sum += folded_product(stack.frames[i] ^ kKeys[i], stack.frames[i + 1] ^ kKeys[i + 1]);
  }
  if (i < depth) sum += folded_product(stack.frames[i] ^ kKeys[i], kKeys[i + 1]);
  return static_cast<std::uint32_t>(folded_product(sum, kOdd) >> 32);
}

/** Entries are carved from chunks of this size, of which the arena wastes nothing. */
constexpr std::size_t kChunk = std::size_t{1} << 14;

}  // namespace

std::uint32_t StackTable::find(const Stack& stack) const noexcept {
  return find(stack, print_of(stack));
}

std::uint32_t StackTable::find(const Stack& stack, std::uint32_t print) const noexcept {
  if (stack.depth <= 0) return 0;
  return index_.find(print, [&](std::uint32_t number) { return is(number, stack); });
}

bool StackTable::is(std::uint32_t number, const Stack& stack) const noexcept {
  const Stack known = this->stack(number);
  return known.depth == stack.depth &&
         std::memcmp(known.frames, stack.frames, bytes_of(stack)) == 0;
}

std::optional<std::uint32_t> StackTable::intern(const Stack& stack) noexcept {
  if (stack.depth <= 0) return 0;
  const std::uint32_t print = print_of(stack);
  if (const std::uint32_t known = find(stack, print); known != 0) return known;
  if (!index_.reserve(*arena_)) return std::nullopt;
  Entry* const entry = carve_entry(stack);
  const std::uint32_t number = entry == nullptr ? 0 : entries_.add(*arena_);
  if (number == 0) return std::nullopt;
  entries_.at(number) = entry;
  entries_.publish_added();
  index_.add(print, number);
  return number;
}

Stack StackTable::stack(std::uint32_t number) const noexcept {
  if (number == 0 || number > entries_.count()) return {};
  const Entry* const entry = entries_.at(number);
  return {entry->frames(), static_cast<int>(entry->depth)};
}

std::uint32_t StackTable::size() const noexcept { return entries_.count(); }

StackTable::Entry* StackTable::carve_entry(const Stack& stack) noexcept {
  const std::size_t bytes = sizeof(Entry) + bytes_of(stack);
  if (bytes > left_) {
    auto* const chunk = static_cast<char*>(arena_->take(kChunk));
    if (chunk == nullptr) return nullptr;
    next_ = chunk;
    left_ = kChunk;
  }
  left_ -= bytes;
  auto* const entry = reinterpret_cast<Entry*>(std::exchange(next_, next_ + bytes));
  entry->depth = static_cast<std::uint64_t>(stack.depth);
  std::memcpy(entry->frames(), stack.frames, bytes_of(stack));
  return entry;
}

}  // namespace qk::mem

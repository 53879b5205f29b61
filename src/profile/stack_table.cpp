#include "profile/stack_table.h"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "support/shared_variable.h"

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

/** A word of a hash table, never 0. */
constexpr std::uint64_t word_of(std::uint32_t number, std::uint32_t print) {
  return std::uint64_t{print} << 32 | number;
}
constexpr std::uint32_t number_in(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
constexpr std::uint32_t print_in(std::uint64_t word) {
  return static_cast<std::uint32_t>(word >> 32);
}

constexpr std::size_t kFirstTable = 256;

constexpr std::size_t words_of_table(int table) { return kFirstTable << table; }

/** Puts a word in its place. Readers see it with all that was written before. */
void put(std::uint64_t* words, std::size_t size, std::uint64_t word) {
  std::size_t place = print_in(word) & (size - 1);
  while (load(words[place]) != 0) place = (place + 1) & (size - 1);
  publish(words[place], word);
}

constexpr std::size_t kFirstSegment = 64;

constexpr std::size_t entries_of_segment(int segment) { return kFirstSegment << segment; }

struct Place {
  int segment;
  std::size_t index;
};

/** Where the entry of a number above 0 is. */
Place place_of(std::uint32_t number) {
  const std::uint64_t shifted = number - 1 + std::uint64_t{kFirstSegment};
  const int segment = static_cast<int>(std::bit_width(shifted / kFirstSegment)) - 1;
  return {segment, shifted - entries_of_segment(segment)};
}

/** Entries are carved from chunks of this size, of which the arena wastes nothing. */
constexpr std::size_t kChunk = std::size_t{1} << 14;

}  // namespace

std::uint32_t StackTable::find(const Stack& stack) const noexcept {
  return find(stack, print_of(stack));
}

std::uint32_t StackTable::find(const Stack& stack, std::uint32_t print) const noexcept {
  const int in_use = acquire(tables_in_use_);
  if (in_use == 0 || stack.depth <= 0) return 0;
  const std::uint64_t* const words = tables_[in_use - 1];
  const std::size_t mask = words_of_table(in_use - 1) - 1;
  // It ends: a quarter of the words is free.
  for (std::size_t place = print & mask;; place = (place + 1) & mask) {
    const std::uint64_t word = acquire(words[place]);
    if (word == 0) return 0;
    if (print_in(word) == print && is(number_in(word), stack)) return number_in(word);
  }
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
  const std::uint32_t number = size_ + 1;
  if (!ensure_table() || !ensure_segment(number)) return std::nullopt;
  Entry* const entry = carve_entry(stack);
  if (entry == nullptr) return std::nullopt;
  const Place place = place_of(number);
  publish(segments_[place.segment][place.index], entry);
  put(tables_[tables_in_use_ - 1], words_of_table(tables_in_use_ - 1), word_of(number, print));
  publish(size_, number);
  return number;
}

Stack StackTable::stack(std::uint32_t number) const noexcept {
  if (number == 0) return {};
  const Place place = place_of(number);
  if (place.segment >= kSegments) return {};
  const Entry* const* const entries = acquire(segments_[place.segment]);
  const Entry* const entry = entries == nullptr ? nullptr : acquire(entries[place.index]);
  if (entry == nullptr) return {};
  return {entry->frames(), static_cast<int>(entry->depth)};
}

std::uint32_t StackTable::size() const noexcept { return acquire(size_); }

/** Room for one more stack, with a quarter of the table free. */
bool StackTable::ensure_table() noexcept {
  const std::size_t used = std::size_t{size_} + 1;
  if (tables_in_use_ != 0 && used <= words_of_table(tables_in_use_ - 1) / 4 * 3) return true;
  if (tables_in_use_ == kTables) return false;
  const std::size_t size = words_of_table(tables_in_use_);
  auto* const words = static_cast<std::uint64_t*>(arena_->take(size * sizeof(std::uint64_t)));
  if (words == nullptr) return false;
  if (tables_in_use_ != 0) {
    const std::uint64_t* const old = tables_[tables_in_use_ - 1];
    for (std::size_t i = 0; i < words_of_table(tables_in_use_ - 1); ++i) {
      if (const std::uint64_t word = load(old[i]); word != 0) put(words, size, word);
    }
  }
  tables_[tables_in_use_] = words;
  publish(tables_in_use_, tables_in_use_ + 1);
  return true;
}

bool StackTable::ensure_segment(std::uint32_t number) noexcept {
  const int segment = place_of(number).segment;
  if (segment >= kSegments) return false;
  if (segments_[segment] != nullptr) return true;
  void* const memory = arena_->take(entries_of_segment(segment) * sizeof(Entry*));
  if (memory == nullptr) return false;
  publish(segments_[segment], static_cast<const Entry**>(memory));
  return true;
}

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

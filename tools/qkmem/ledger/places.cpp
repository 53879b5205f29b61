#include "ledger/places.h"

#include <algorithm>
#include <cstring>

namespace qk::command {
namespace {

constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;

void add_word(std::uint64_t& hash, std::uint64_t word) {
  hash = (hash ^ word) * kFactor;
  hash ^= hash >> 32;
}

/** The last word overlaps the one before, since copies of a length that varies take long. */
void add_text(std::uint64_t& hash, std::string_view text) {
  const auto word_at = [&](auto word, std::size_t at) {
    std::memcpy(&word, text.data() + at, sizeof word);
    return std::uint64_t{word};
  };
  const std::size_t size = text.size();
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) add_word(hash, word_at(std::uint64_t{}, at));
    add_word(hash, word_at(std::uint64_t{}, size - 8));
  } else if (size >= 4) {
    add_word(hash, word_at(std::uint32_t{}, 0) << 32 | word_at(std::uint32_t{}, size - 4));
  } else {
    for (const char c : text) add_word(hash, static_cast<unsigned char>(c));
  }
  hash += size;
}

std::uint64_t hash_of(const SiteKey& key) {
  std::uint64_t hash = std::uint64_t{key.handle} << 32 | static_cast<std::uint32_t>(key.line);
  hash = (hash * kFactor ^ key.stack) * kFactor + key.thread;
  add_text(hash, key.file);
  add_text(hash, key.label);
  return hash ^ hash >> 32;
}

}  // namespace

SiteIndex Sites::index_of(const SiteKey& key) {
  const std::uint64_t hash = hash_of(key);
  const SiteIndex found =
      table_.find(hash, [&](std::uint32_t candidate) { return keys_[candidate] == key; });
  if (found != IndexTable::kNone) return found;
  const auto index = static_cast<SiteIndex>(keys_.size());
  SiteKey& added = keys_.emplace_back(key);
  added.file = kept(key.file);
  added.label = kept(key.label);
  table_.add(hash, index);
  return index;
}

std::string_view Sites::kept(std::string_view text) {
  if (text.empty()) return {};
  const auto found = texts_.find(text);
  return found != texts_.end() ? *found : *texts_.emplace(text).first;
}

}  // namespace qk::command

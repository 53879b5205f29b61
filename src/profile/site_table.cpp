#include "profile/site_table.h"

#include "support/shared_variable.h"

namespace qk::mem::profile {

constinit SiteTable sites;

/** A hash table. One that is full is replaced, but stays readable for those who are in it. */
struct SiteTable::Buckets {
  std::uint64_t mask;

  /** The upper half of a hash and a number each; 0 if free. They follow the mask. */
  [[nodiscard]] std::uint64_t* entries() { return reinterpret_cast<std::uint64_t*>(this + 1); }
  [[nodiscard]] const std::uint64_t* entries() const {
    return reinterpret_cast<const std::uint64_t*>(this + 1);
  }

  static constexpr std::size_t bytes(std::uint64_t capacity) {
    return sizeof(Buckets) + capacity * sizeof(std::uint64_t);
  }
};

namespace {

constexpr std::uint64_t kFirstCapacity = 256;

std::uint64_t hash_of(const SiteKey& key) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  std::uint64_t hash = reinterpret_cast<std::uintptr_t>(key.file) * kFactor;
  hash = (hash ^ (hash >> 32) ^ (std::uint64_t{key.line} << 32 | key.pool)) * kFactor;
  hash = (hash ^ (hash >> 32) ^ (std::uint64_t{key.stack} << 32 | key.label)) * kFactor;
  return hash ^ (hash >> 29);
}

constexpr std::uint64_t kUpperHalf = 0xFFFFFFFF00000000U;

std::uint64_t entry_of(std::uint64_t hash, std::uint32_t number) {
  return (hash & kUpperHalf) | number;
}

}  // namespace

std::uint32_t SiteTable::find(const SiteKey& key) const {
  const Buckets* const buckets = qk::acquire(buckets_);
  if (buckets == nullptr) return kNoSite;
  const std::uint64_t hash = hash_of(key);
  for (std::uint64_t i = hash & buckets->mask;; i = (i + 1) & buckets->mask) {
    const std::uint64_t entry = qk::acquire(buckets->entries()[i]);
    if (entry == 0) return kNoSite;
    if (((entry ^ hash) & kUpperHalf) != 0) continue;
    const auto number = static_cast<std::uint32_t>(entry);
    if (sites_.at(number).key == key) return number;
  }
}

void SiteTable::enter(Buckets& buckets, std::uint32_t number) const {
  const std::uint64_t hash = hash_of(sites_.at(number).key);
  std::uint64_t i = hash & buckets.mask;
  while (qk::load(buckets.entries()[i]) != 0) i = (i + 1) & buckets.mask;
  qk::publish(buckets.entries()[i], entry_of(hash, number));
}

/** At most half of the entries are taken. */
bool SiteTable::has_room() const {
  return buckets_ != nullptr && std::uint64_t{2} * (sites_.count() + 1) <= buckets_->mask;
}

bool SiteTable::replace_buckets() {
  assert_growth_held();
  const std::uint64_t capacity = buckets_ == nullptr ? kFirstCapacity : 2 * (buckets_->mask + 1);
  auto* const buckets = static_cast<Buckets*>(arena.take(Buckets::bytes(capacity)));
  if (buckets == nullptr) return false;
  buckets->mask = capacity - 1;
  for (std::uint32_t number = 1; number <= sites_.count(); ++number) enter(*buckets, number);
  qk::publish(buckets_, buckets);
  return true;
}

std::uint32_t SiteTable::find_or_add(const SiteKey& key, std::uint32_t& first_of_pool) {
  assert_growth_held();
  const std::uint32_t present = find(key);
  if (present != kNoSite) return present;
  if (sites_.count() == kMaxSites || (!has_room() && !replace_buckets())) return kNotRecordedSite;
  const std::uint32_t number = sites_.add(arena);
  if (number == 0) return kNotRecordedSite;
  sites_.at(number).key = key;
  sites_.at(number).next_of_pool = first_of_pool;
  sites_.publish_added();
  qk::publish(first_of_pool, number);
  enter(*buckets_, number);
  return number;
}

}  // namespace qk::mem::profile

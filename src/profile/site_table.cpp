#include "profile/site_table.h"

#include "support/shared_variable.h"

namespace qk::mem::profile {

constinit SiteTable sites;

namespace {

std::uint32_t hash_of(const SiteKey& key) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  std::uint64_t hash = reinterpret_cast<std::uintptr_t>(key.file) * kFactor;
  hash = (hash ^ (hash >> 32) ^ (std::uint64_t{key.line} << 32 | key.pool)) * kFactor;
  hash = (hash ^ (hash >> 32) ^ (std::uint64_t{key.stack} << 32 | key.label)) * kFactor;
  return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

Site* SiteTable::find(const SiteKey& key) const {
  const std::uint32_t number = index_.find(
      hash_of(key), [&](std::uint32_t candidate) { return sites_.at(candidate).key == key; });
  return number == kNoSite ? nullptr : &sites_.at(number);
}

Site* SiteTable::find_or_add(const SiteKey& key, std::uint32_t& first_of_pool) {
  assert_growth_held();
  if (Site* const present = find(key); present != nullptr) return present;
  if (sites_.count() == kMaxSites || !index_.reserve(arena)) return nullptr;
  const std::uint32_t number = sites_.add(arena);
  if (number == 0) return nullptr;
  Site& site = sites_.at(number);
  site.key = key;
  site.number = number;
  site.next_of_pool = first_of_pool;
  sites_.publish_added();
  qk::publish(first_of_pool, number);
  index_.add(hash_of(key), number);
  return &site;
}

}  // namespace qk::mem::profile

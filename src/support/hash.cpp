#include "support/hash.h"

#include <cstdint>

extern "C" int qk_hash(const char* key, int buckets, int seed) {
  if (buckets <= 0) return 0;
  // FNV-1a, with the seed mixed into the offset basis.
  std::uint32_t hash = 2166136261U ^ static_cast<std::uint32_t>(seed);
  for (const char* c = key; c != nullptr && *c != '\0'; ++c) {
    hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619U;
  }
  return static_cast<int>(hash % static_cast<std::uint32_t>(buckets));
}

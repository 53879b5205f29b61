#include "formats/xxh64.h"

#include <bit>
#include <cstddef>

#include "formats/little_endian.h"

namespace qk::mem {
namespace {

constexpr std::uint64_t kPrime1 = 0x9E3779B185EBCA87U;
constexpr std::uint64_t kPrime2 = 0xC2B2AE3D27D4EB4FU;
constexpr std::uint64_t kPrime3 = 0x165667B19E3779F9U;
constexpr std::uint64_t kPrime4 = 0x85EBCA77C2B2AE63U;
constexpr std::uint64_t kPrime5 = 0x27D4EB2F165667C5U;

std::uint64_t mixed(std::uint64_t lane, std::uint64_t input) {
  return std::rotl(lane + input * kPrime2, 31) * kPrime1;
}

std::uint64_t merged(std::uint64_t hash, std::uint64_t lane) {
  return (hash ^ mixed(0, lane)) * kPrime1 + kPrime4;
}

/** Stripes of 32 bytes, each in four lanes. Takes them from the bytes. */
std::uint64_t hash_of_stripes(std::string_view& bytes, std::uint64_t seed) {
  std::uint64_t lanes[] = {seed + kPrime1 + kPrime2, seed + kPrime2, seed, seed - kPrime1};
  while (bytes.size() >= 32) {
    for (std::size_t i = 0; i < 4; ++i) {
      lanes[i] = mixed(lanes[i], read_little<std::uint64_t>(bytes.data() + 8 * i));
    }
    bytes.remove_prefix(32);
  }
  std::uint64_t hash = std::rotl(lanes[0], 1) + std::rotl(lanes[1], 7) + std::rotl(lanes[2], 12) +
                       std::rotl(lanes[3], 18);
  for (const std::uint64_t lane : lanes) hash = merged(hash, lane);
  return hash;
}

std::uint64_t with_rest(std::uint64_t hash, std::string_view rest) {
  for (; rest.size() >= 8; rest.remove_prefix(8)) {
    hash ^= mixed(0, read_little<std::uint64_t>(rest.data()));
    hash = std::rotl(hash, 27) * kPrime1 + kPrime4;
  }
  if (rest.size() >= 4) {
    hash ^= read_little<std::uint32_t>(rest.data()) * kPrime1;
    hash = std::rotl(hash, 23) * kPrime2 + kPrime3;
    rest.remove_prefix(4);
  }
  for (const char byte : rest) {
    hash ^= static_cast<unsigned char>(byte) * kPrime5;
    hash = std::rotl(hash, 11) * kPrime1;
  }
  return hash;
}

}  // namespace

std::uint64_t xxh64(std::string_view bytes, std::uint64_t seed) noexcept {
  const std::uint64_t size = bytes.size();
  std::uint64_t hash = size >= 32 ? hash_of_stripes(bytes, seed) : seed + kPrime5;
  hash = with_rest(hash + size, bytes);
  hash = (hash ^ (hash >> 33)) * kPrime2;
  hash = (hash ^ (hash >> 29)) * kPrime3;
  return hash ^ (hash >> 32);
}

}  // namespace qk::mem

#include "profile/sampling.h"

#include <algorithm>
#include <bit>

#include "support/shared_variable.h"

namespace qk::mem::profile {
namespace {

constinit std::uint64_t interval = 0;
constinit std::uint64_t threads_so_far = 0;

constexpr double kTwoTo32 = 4294967296.0;

// Logarithm and exponential function are here because a C program that contains the library may not
// be linked with the mathematical functions. Their errors are below 1e-9.

/** The natural logarithm of a number between 0 and 1. */
double logarithm(double number) {
  constexpr double kLn2 = 0.693147180559945309;
  constexpr std::uint64_t kMantissa = (std::uint64_t{1} << 52) - 1;
  constexpr std::uint64_t kExponentOf1 = std::uint64_t{1023} << 52;
  const auto bits = std::bit_cast<std::uint64_t>(number);
  const int exponent = static_cast<int>(bits >> 52) - 1023;
  const auto mantissa = std::bit_cast<double>((bits & kMantissa) | kExponentOf1);
  // ln(m) = 2 atanh(z), by its series.
  const double z = (mantissa - 1) / (mantissa + 1);
  const double square = z * z;
  double sum = 0;
  for (int term = 17; term >= 1; term -= 2) sum = sum * square + 1.0 / term;
  return 2 * z * sum + exponent * kLn2;
}

/** 1 - exp(-x) for an x that is not negative. */
double chance_of(double x) {
  if (x > 40) return 1;
  // exp(-x) - 1 by its series for x / 2^k, then k times: e^2y - 1 = (e^y - 1) * (e^y - 1 + 2).
  int halvings = 0;
  while (x > 0.25) {
    x /= 2;
    ++halvings;
  }
  double below = 0;
  for (int term = 9; term >= 1; --term) below = -x / term * (1 + below);
  for (; halvings != 0; --halvings) below *= below + 2;
  return -below;
}

struct Draws {
  std::uint64_t random;  // 0 before the first draw
  std::uint64_t left;    // bytes up to the next block of the sample
};
// In the thread's static memory: the first use of another variable of a thread can allocate.
[[gnu::tls_model("initial-exec")]] constinit thread_local Draws draws = {};

std::uint64_t mixed(std::uint64_t number) {
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31);
}

/** Exponentially distributed, with the interval as its mean. */
std::uint64_t next_distance() {
  draws.random += 0x9E3779B97F4A7C15U;
  const double uniform = (static_cast<double>(mixed(draws.random) >> 32) + 0.5) / kTwoTo32;
  const double distance = -logarithm(uniform) * static_cast<double>(qk::load(interval));
  return distance >= 9e18 ? UINT64_MAX / 2 : static_cast<std::uint64_t>(distance);
}

}  // namespace

std::uint64_t sample_interval() { return qk::load(interval); }

bool set_sampling(std::uint64_t wanted) {
  const std::uint64_t first = qk::load(interval);
  if (wanted == 0) {
    qk::clear_bits(reasons_for_attention, attention::kSample);
    qk::clear_bits(unusual_made, unusual::kSample);
    return true;
  }
  if (first == 0) qk::store(interval, wanted);
  qk::set_bits(reasons_for_attention, attention::kSample);
  qk::set_bits(unusual_made, unusual::kSample);
  return first == 0 || first == wanted;
}

bool draw(std::uint64_t bytes) {
  if (draws.random == 0) [[unlikely]] {
    // The same numbers in each run of a program whose threads come in the same order.
    draws.random = mixed(qk::add(threads_so_far, 1));
    draws.left = next_distance();
  }
  const std::uint64_t size = std::max<std::uint64_t>(bytes, 1);
  if (size <= draws.left) [[likely]] {
    draws.left -= size;
    return false;
  }
  draws.left = next_distance();
  return true;
}

Amount sampled_amount(std::uint64_t bytes, std::uint32_t event) {
  const double size = static_cast<double>(std::max<std::uint64_t>(bytes, 1));
  const double blocks = 1 / chance_of(size / static_cast<double>(qk::load(interval)));
  const double part = static_cast<double>(mixed(event) >> 32) / kTwoTo32;
  return {static_cast<std::uint64_t>(static_cast<double>(bytes) * blocks + part),
          static_cast<std::uint64_t>(blocks + part)};
}

std::uint64_t standard_error(std::uint64_t bytes) {
  const double square = static_cast<double>(bytes) * static_cast<double>(qk::load(interval));
  if (square == 0) return 0;
  // Heron's way: 64 rounds halve any double that is too large, and then double the right digits.
  double root = square;
  for (int round = 0; round < 72; ++round) root = (root + square / root) / 2;
  return static_cast<std::uint64_t>(root);
}

}  // namespace qk::mem::profile

#ifndef QKMEM_TOOLS_LEDGER_FIGURES_H_
#define QKMEM_TOOLS_LEDGER_FIGURES_H_

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace qk::command {

/** A block that lives no longer than this is short-lived, in events, as in the profile. */
inline constexpr std::uint64_t kSoon = 16;

/** When something took place. The time is that since the start, 0 in inputs that have none. */
struct Moment {
  std::uint64_t event = 0;
  std::uint64_t nanoseconds = 0;
};

struct Amount {
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;

  Amount& operator+=(const Amount& other) {
    bytes += other.bytes;
    blocks += other.blocks;
    return *this;
  }
  Amount& operator-=(const Amount& other) {
    bytes -= other.bytes;
    blocks -= other.blocks;
    return *this;
  }
  bool operator==(const Amount&) const = default;
};

/** What is known of the blocks of a site, or of a group of sites. */
struct Figures {
  Amount live;
  Amount before;  // of the live ones, those that were made before the input begins
  Amount made;
  Amount at_peak;  // of the whole
  Amount highest;  // when the site alone had most bytes; a group has the sum of its sites
  std::uint64_t released = 0;
  std::uint64_t released_soon = 0;
  std::uint64_t lives = 0;   // that the released blocks have had, together, by the ledger's clock
  std::uint64_t begins = 0;  // of the live ones that were made since, together, modulo 2^64
  std::uint64_t longest_life = 0;
  std::uint64_t largest = 0;  // bytes
  std::uint64_t first_event = 0;
  std::uint64_t last_event = 0;

  /** Adds those of another site. */
  void add(const Figures& other) {
    live += other.live;
    before += other.before;
    made += other.made;
    at_peak += other.at_peak;
    highest += other.highest;
    released += other.released;
    released_soon += other.released_soon;
    lives += other.lives;
    begins += other.begins;
    longest_life = std::max(longest_life, other.longest_life);
    largest = std::max(largest, other.largest);
    if (other.first_event != 0 && (first_event == 0 || other.first_event < first_event)) {
      first_event = other.first_event;
    }
    last_event = std::max(last_event, other.last_event);
  }

  /** Live blocks that were made since the input begins: they were not released. */
  [[nodiscard]] Amount left() const {
    Amount left = live;
    return left -= before;
  }

  [[nodiscard]] bool is_empty() const {
    return made.blocks == 0 && highest == Amount() && live.blocks == 0;
  }
};

/** How often numbers occur, by powers of two: 0, 1, 2 to 3, 4 to 7 and so on. */
class Histogram {
 public:
  static constexpr std::size_t kClasses = 65;

  void add(std::uint64_t number, std::uint64_t weight) {
    Class& of_number = classes_[static_cast<std::size_t>(std::bit_width(number))];
    ++of_number.count;
    of_number.weight += weight;
  }

  struct Class {
    std::uint64_t count = 0;
    std::uint64_t weight = 0;
  };
  [[nodiscard]] const std::array<Class, kClasses>& classes() const { return classes_; }

  [[nodiscard]] static std::uint64_t least_of(std::size_t number) {
    return number == 0 ? 0 : std::uint64_t{1} << (number - 1);
  }

 private:
  std::array<Class, kClasses> classes_ = {};
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_FIGURES_H_

#ifndef QKMEM_PROFILE_OPTIONS_H_
#define QKMEM_PROFILE_OPTIONS_H_

#include <cstdint>

/** What the profile keeps and reports, as the program or its user has configured it. */
namespace qk::mem::profile {

enum class Sort : std::uint8_t {
  kBytes,
  kBlocks,
  kPeak,   // bytes when the whole was largest
  kMade,   // bytes ever made
  kShort,  // blocks that were released soon
  kLost    // bytes lost, with what only they lead to; for one part of the report only
};

enum class Format : std::uint8_t { kText, kJson, kPprof, kOpenMetrics };

inline constexpr std::uint32_t kDefaultTop = 20;
inline constexpr std::uint32_t kDefaultDepth = 16;
inline constexpr std::uint32_t kMaxDepth = 64;
inline constexpr std::uint64_t kDefaultMaxBytes = std::uint64_t{256} << 20;
inline constexpr std::uint64_t kDefaultHistory = 65536;

struct KnownLeaks;

struct Options {
  std::uint32_t depth = 0;  // frames of a stack; 0 for no stacks
  bool peak = false;
  bool lost = false;                // search for lost blocks when the program ends
  std::uint32_t top = kDefaultTop;  // sites shown; 0 for all
  Sort sort = Sort::kBytes;
  Format format = Format::kText;
  const char* report = "STDERR";  // or STDOUT, LOG, or the pattern of a file name
  const char* skip = nullptr;     // functions whose frames are not shown
  std::uint64_t max_bytes = kDefaultMaxBytes;
  std::uint64_t history = kDefaultHistory;  // blocks that are remembered after their release
  std::uint64_t sample_bytes = 0;           // between two blocks that are booked; 0 to book all
  std::uint64_t every_seconds = 0;          // between reports while the program runs; 0 for none
  const char* control = nullptr;            // a file with commands
  const char* ignore = nullptr;             // a file with known leaks
  const char* record = nullptr;             // the pattern of a recording's name; null for none
  std::uint64_t record_max = 0;             // bytes that it may have; 0 for any
  KnownLeaks* known_leaks = nullptr;        // what it says; null if there is none
  std::uint8_t leaks_code = 0;              // that a process with leaks ends with; 0 for its own
  bool may_have_colours = false;            // on a terminal
};

/** The options. Their texts stay until the process ends. For holders of the registry's lock. */
[[nodiscard]] const Options& options();
void set_options(const Options& now);

/** How many released blocks are remembered at least, whatever the options say. */
void set_least_history(std::uint64_t blocks);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_OPTIONS_H_

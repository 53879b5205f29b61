#ifndef QKMEM_TOOLS_LEDGER_PLACES_H_
#define QKMEM_TOOLS_LEDGER_PLACES_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ledger/figures.h"
#include "ledger/index_table.h"

/** Who allocates: handles, the lines of the program that allocate on them, and how they came there. */
namespace qk::command {

/** Places in the lists below. */
using HandleIndex = std::uint32_t;
using SiteIndex = std::uint32_t;
using StackIndex = std::uint32_t;

/** In place of a site: the library's own memory, which is the program's in no figure. */
inline constexpr SiteIndex kOwnSite = UINT32_MAX;

/** In place of a stack: none is known. */
inline constexpr StackIndex kNoStack = UINT32_MAX;

/** A handle from its creation to its deletion. Its number can be another one's before and after. */
struct Handle {
  int number = 0;
  std::string tag;   // empty if it has none, or the input doesn't say
  std::string file;  // that created it; empty if that is not in the input
  int line = 0;
};

/** A call in a stack. Inlined calls have frames of their own. */
struct Frame {
  std::string function;  // with its parameters in C++; as "libfoo.so+0x1234" if it is not known
  std::string file;      // empty if it is not known
  int line = 0;

  bool operator==(const Frame&) const = default;
};

/** A line of the program that allocates on a handle. */
struct SiteKey {
  HandleIndex handle = 0;
  int line = 0;
  std::string_view file;  // a path, as far as it is known
  std::string_view label;
  StackIndex stack = kNoStack;
  std::uint32_t thread = 0;  // 0 where threads are not told apart

  bool operator==(const SiteKey&) const = default;
};

/** All sites, numbered in the order in which they appear. */
class Sites {
 public:
  Sites() = default;
  // Keys point to the texts.
  Sites(const Sites&) = delete;
  Sites& operator=(const Sites&) = delete;
  Sites(Sites&&) = default;
  Sites& operator=(Sites&&) = default;
  ~Sites() = default;

  /** The number of a site, which is added if it is new. Its texts are copied then. */
  [[nodiscard]] SiteIndex index_of(const SiteKey& key);

  [[nodiscard]] const SiteKey& at(SiteIndex index) const { return keys_[index]; }
  [[nodiscard]] std::size_t count() const { return keys_.size(); }

 private:
  [[nodiscard]] std::string_view kept(std::string_view text);

  std::vector<SiteKey> keys_;
  IndexTable table_;
  /** Looks for texts without copies. */
  struct TextHash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  std::unordered_set<std::string, TextHash, std::equal_to<>> texts_;
};

/** A thread of the program. */
struct Thread {
  std::uint64_t number = 0;  // the system's
  std::string name;
};

/** A part of the program's code in memory. */
struct Module {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t bias = 0;  // what is added to its own addresses
  std::string path;
  std::string build_id;  // bytes
};

/** A moment to which the program has given a name. */
struct NamedMoment {
  Moment when;
  std::string name;
};

/** What an input says of the program beside its events. */
struct Program {
  std::uint64_t process = 0;  // 0 if that is not known
  std::uint64_t started = 0;  // nanoseconds since 1970
  std::string path;
  std::string command;  // line
  std::vector<Module> modules;
  std::vector<NamedMoment> snapshots;
  std::vector<Thread> threads;                     // from number 1 on
  std::vector<std::vector<std::uint64_t>> stacks;  // return addresses, the innermost first
  std::vector<std::vector<Frame>> frames;          // that tell something, by stack, once named
  // What the recording itself says of return addresses: inlined calls first.
  std::unordered_map<std::uint64_t, std::vector<Frame>> names;
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_LEDGER_PLACES_H_

#ifndef QKMEM_TOOLS_INPUT_CHECK_H_
#define QKMEM_TOOLS_INPUT_CHECK_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ledger/figures.h"
#include "ledger/places.h"

/** How far an input is whole. */
namespace qk::command {

/** Things that can't be as the input has them, of one kind. */
struct Problem {
  std::string_view what;  // "releases of memory that was not live"
  std::uint64_t count = 0;
  std::string first;    // where the first of them is: "line 12"
  std::string details;  // of the first, if there is more to say than the kind

  void note(std::string where, std::string more = {}) {
    if (count++ != 0) return;
    first = std::move(where);
    details = std::move(more);
  }
};

/** A handle whose events don't come to what the input says of it. */
struct WrongSum {
  HandleIndex handle;
  std::string_view of;  // what is summed up
  std::uint64_t counted;
  std::uint64_t said;
};

/** A number that is worth knowing, and is no problem. */
struct Remark {
  std::string_view key;   // for machines
  std::string_view noun;  // of one: "realloc"
  std::string_view what;  // behind the noun
  std::uint64_t count = 0;
};

struct Check {
  /** How the input ends. */
  enum class End : std::uint8_t {
    kUnknown,   // it can have been longer
    kFromTail,  // the program was killed or is still running: all that it had done is there
    kClosed     // the program has ended it
  };

  std::vector<Problem> problems;
  std::vector<WrongSum> wrong_sums;
  std::vector<Remark> remarks;
  End end = End::kUnknown;
  std::uint64_t last_event = 0;
  std::uint64_t complete_up_to = UINT64_MAX;  // no event up to this one is missing
  bool has_sums = false;                      // the input says what its events come to

  [[nodiscard]] bool is_whole() const { return problems.empty() && wrong_sums.empty(); }
};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_INPUT_CHECK_H_

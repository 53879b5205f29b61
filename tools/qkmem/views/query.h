#ifndef QKMEM_TOOLS_VIEWS_QUERY_H_
#define QKMEM_TOOLS_VIEWS_QUERY_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "input/reading.h"
#include "ledger/ledger.h"
#include "output/sheet.h"

/** What the user wants to know of an input. */
namespace qk::command {

/** A request that can't be answered. The text is for the user. */
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class By : std::uint8_t { kSite, kFile, kFunction, kHandle, kTag, kThread, kStack };
enum class Sort : std::uint8_t { kBytes, kBlocks, kMade, kPeak, kShort };
enum class At : std::uint8_t { kEnd, kPeak, kEver };

struct Query {
  std::string input = "-";
  std::string other;  // that a difference compares it with: the later one
  std::vector<std::string> tags;
  std::vector<int> handles;
  std::vector<std::string> files;  // patterns, as a shell has them
  std::vector<std::string> sites;  // "file:line"
  std::vector<std::uint32_t> threads;
  Moment from;
  Moment to = {UINT64_MAX, UINT64_MAX};
  By by = By::kSite;
  std::optional<Sort> sort;
  At at = At::kEnd;
  std::optional<Moment> at_moment;  // the figures are those behind it
  std::size_t rows = 20;            // 0 for all
  std::string subject;              // of a history: an address or a site
  bool is_ascii = false;
  std::size_t width = 80;
};

/** An input that was read to its end, or as far as was asked. */
struct Reading {
  Ledger ledger;
  InputFacts input;
  std::vector<std::string> remarks;  // for people

  explicit Reading(const Query& query);
};

/** What an answer is made of. Some inputs have figures only. */
enum class Needs : std::uint8_t { kFigures, kEvents };

/** Reads the input. Throws InputError, and UsageError if it doesn't have what is asked for. */
[[nodiscard]] Reading read(const Query& query, Needs needs = Needs::kFigures);

/** Same, and has `watch` see each event. */
void read(const Query& query, Reading& reading, std::function<void(const Happening&)> watch);

/** Names the calls that lead to sites. read() does it for those who ask for functions or stacks. */
void name_calls(Reading& reading);

/** The moment that was asked for: "at the end". */
[[nodiscard]] std::string when_text(const Query& query, const Ledger& ledger);

/** "standard input" for "-". */
[[nodiscard]] std::string shown_name(const std::string& input);

/** An answer with the figures that machines get with each answer, and what to know before. */
[[nodiscard]] Answer start_answer(std::string_view command, const Query& query,
                                  const Reading& reading);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_VIEWS_QUERY_H_

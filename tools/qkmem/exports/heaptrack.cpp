#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <tuple>

#include "exports/exports.h"
#include "exports/samples.h"
#include "views/names.h"

namespace qk::command {
namespace {

using Allocation = std::pair<SiteIndex, std::uint64_t>;

/**
 * The events as lines. Names of functions are known only at the end, and stand in front of them, so
 * the lines name allocations by the order in which these appear.
 */
class EventLines {
 public:
  explicit EventLines(const Ledger& ledger) : ledger_(ledger) {}

  void add(const Happening& happening) {
    note_time(happening.when);
    // Blocks from before the beginning were never made here.
    if (happening.gone != nullptr && happening.gone->made.event != 0) {
      put('-', *happening.gone);
    }
    if (happening.made != nullptr) put('+', *happening.made);
  }

  [[nodiscard]] const std::string& text() const { return text_; }
  [[nodiscard]] const std::vector<Allocation>& allocations() const { return allocations_; }

 private:
  void put(char sign, const Block& block) {
    if (!ledger_.counts(block)) return;
    const auto [found, is_new] =
        numbers_.try_emplace(Allocation(block.site, block.bytes), allocations_.size());
    if (is_new) allocations_.push_back(found->first);
    text_ += fmt::format("{} {:x}\n", sign, found->second);
  }

  /** In milliseconds; where there is no time an event takes one. */
  void note_time(const Moment& now) {
    constexpr std::uint64_t kNanoseconds = 1'000'000;
    const bool has_time = ledger_.clock() == Clock::kNanoseconds;
    const std::uint64_t time = has_time ? now.nanoseconds / kNanoseconds : now.event;
    if (time == time_) return;
    time_ = time;
    text_ += fmt::format("c {:x}\n", time);
  }

  const Ledger& ledger_;
  std::string text_;
  std::uint64_t time_ = 0;
  std::map<Allocation, std::size_t> numbers_;
  std::vector<Allocation> allocations_;
};

/**
 * heaptrack ends each stack at a function of these names, and would show neither the handle nor the
 * tag behind it.
 */
std::string name_that_ends_nothing(const std::string& function) {
  constexpr std::array<std::string_view, 3> kEnds = {"main", "__libc_start_main",
                                                     "__static_initialization_and_destruction_0"};
  const bool is_end = std::find(kEnds.begin(), kEnds.end(), function) != kEnds.end();
  return is_end ? function + "()" : function;
}

/** Texts, places and stacks, which are numbered from 1 as they appear. */
class Definitions {
 public:
  /** The number of a site's stack. */
  std::uint64_t stack_of(const std::vector<Frame>& frames) {
    std::uint64_t stack = 0;
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
      const auto key = std::pair(place_of(*frame), stack);
      const auto [found, is_new] = stacks_.try_emplace(key, stacks_.size() + 1);
      if (is_new) text_ += fmt::format("t {:x} {:x}\n", key.first, stack);
      stack = found->second;
    }
    return stack;
  }

  void add_allocation(std::uint64_t bytes, std::uint64_t stack) {
    text_ += fmt::format("a {:x} {:x}\n", bytes, stack);
  }

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::uint64_t text_number(const std::string& text) {
    const auto [found, is_new] = texts_.try_emplace(text, texts_.size() + 1);
    if (is_new) text_ += fmt::format("s {:x} {}\n", text.size(), text);
    return found->second;
  }

  std::uint64_t place_of(const Frame& frame) {
    const auto key = std::tuple(frame.function, frame.file, frame.line);
    if (const auto found = places_.find(key); found != places_.end()) return found->second;
    const std::uint64_t module = text_number("qkmem");
    const std::uint64_t function = text_number(name_that_ends_nothing(frame.function));
    const std::uint64_t number = places_.size() + 1;
    places_[key] = number;
    if (frame.file.empty()) {
      text_ += fmt::format("i {:x} {:x} {:x}\n", number, module, function);
    } else {
      const std::uint64_t file = text_number(frame.file);
      text_ +=
          fmt::format("i {:x} {:x} {:x} {:x} {:x}\n", number, module, function, file, frame.line);
    }
    return number;
  }

  std::string text_;
  std::map<std::string, std::uint64_t> texts_;
  std::map<std::tuple<std::string, std::string, int>, std::uint64_t> places_;
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t> stacks_;
};

}  // namespace

Export write_heaptrack(const Query& query) {
  Reading reading(query);
  EventLines events(reading.ledger);
  read(query, reading, [&events](const Happening& happening) { events.add(happening); });
  if (!reading.ledger.program().stacks.empty()) name_calls(reading);
  Definitions definitions;
  for (const auto& [site, bytes] : events.allocations()) {
    const SiteKey& key = reading.ledger.sites().at(site);
    definitions.add_allocation(bytes, definitions.stack_of(frames_of(reading.ledger, key)));
  }
  const std::string header =
      fmt::format("v 10400 3\nX {}\nI 1000 0\n", command_line_of(query, reading.ledger));
  return {header + definitions.text() + events.text(), reading.remarks};
}

}  // namespace qk::command

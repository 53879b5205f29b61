#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>

#include "exports/exports.h"
#include "exports/samples.h"
#include "views/levels.h"
#include "views/names.h"

namespace qk::command {
namespace {

/** Calls that lead to the same place, from the one that allocates outwards. */
struct Node {
  std::uint64_t bytes = 0;
  std::map<std::string, std::unique_ptr<Node>> callers;

  void add(const std::vector<Frame>& frames, std::size_t from, std::uint64_t more) {
    bytes += more;
    if (from == frames.size()) return;
    std::unique_ptr<Node>& caller = callers[name_of(frames[from])];
    if (caller == nullptr) caller = std::make_unique<Node>();
    caller->add(frames, from + 1, more);
  }
};

void put(std::string& text, const Node& node, const std::string& name, std::size_t depth) {
  text += fmt::format("{:{}}n{}: {} {}\n", "", depth, node.callers.size(), node.bytes, name);
  std::vector<std::pair<const std::string*, const Node*>> callers;
  for (const auto& [caller, below] : node.callers) callers.emplace_back(&caller, below.get());
  std::stable_sort(callers.begin(), callers.end(), [](const auto& one, const auto& other) {
    return one.second->bytes > other.second->bytes;
  });
  for (const auto& [caller, below] : callers) put(text, *below, "0x1: " + *caller, depth + 1);
}

std::string tree_of(const std::vector<Sample>& samples, Amount Figures::*amount) {
  Node root;
  for (const Sample& sample : samples) {
    const std::uint64_t bytes = (sample.figures->*amount).bytes;
    if (bytes != 0) root.add(sample.frames, 0, bytes);
  }
  std::string text;
  // The viewer takes the tree by these words.
  put(text, root, "(heap allocation functions) malloc/new/new[], --alloc-fns, etc.", 0);
  return text;
}

/** What the viewer's axis counts: it knows instructions, milliseconds and bytes. */
struct Scale {
  std::string_view unit;
  std::string_view words;
  std::uint64_t divisor;
};

Scale scale_of(const Ledger& ledger) {
  constexpr std::uint64_t kSecond = 1'000'000'000;
  if (ledger.clock() == Clock::kEvents) return {"i", "time is in events", 1};
  if (ledger.last().nanoseconds < kSecond) return {"i", "time is in microseconds", 1000};
  return {"ms", "time is in milliseconds", 1'000'000};
}

struct Snapshot {
  std::uint64_t time;
  std::uint64_t bytes;
  std::string tree = "heap_tree=empty\n";
};

}  // namespace

/** The level at some moments, with all sites at the peak and at the end. */
Export write_massif(const Query& query) {
  Reading reading = read(query, Needs::kEvents);
  const Ledger& ledger = reading.ledger;
  const Scale scale = scale_of(ledger);
  const std::vector<Sample> samples = samples_of(reading);
  const std::uint64_t peak = ledger.on_clock(ledger.peak_moment());
  const std::uint64_t end = ledger.on_clock(ledger.last());
  std::vector<Snapshot> snapshots;
  constexpr std::size_t kMost = 100;
  for (const Level& level : levels_of(ledger.timeline(), kMost)) {
    if (level.from < end) snapshots.push_back({level.from, level.lowest});
  }
  snapshots.push_back(
      {peak, ledger.peak(), "heap_tree=peak\n" + tree_of(samples, &Figures::at_peak)});
  snapshots.push_back(
      {end, ledger.whole().live.bytes, "heap_tree=detailed\n" + tree_of(samples, &Figures::live)});
  std::stable_sort(snapshots.begin(), snapshots.end(),
                   [](const auto& one, const auto& other) { return one.time < other.time; });
  std::string text = fmt::format("desc: qkmem; {}\ncmd: {}\ntime_unit: {}\n", scale.words,
                                 command_line_of(query, ledger), scale.unit);
  for (std::size_t i = 0; i < snapshots.size(); ++i) {
    text += fmt::format(
        "#-----------\nsnapshot={}\n#-----------\ntime={}\nmem_heap_B={}\nmem_heap_extra_B=0\n"
        "mem_stacks_B=0\n{}",
        i, snapshots[i].time / scale.divisor, snapshots[i].bytes, snapshots[i].tree);
  }
  return {text, reading.remarks};
}

}  // namespace qk::command

// Who has called what, by bytes.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "output/words.h"
#include "views/calls.h"
#include "views/groups.h"
#include "views/names.h"
#include "views/views.h"

namespace qk::command {
namespace {

/** A step on the way to a site. */
struct Step {
  std::string key;  // tells it from others at its place
  std::string name;
};

/** What was allocated below a step. */
struct Node {
  std::string name;
  Amount amount;
  std::vector<Node> children;
  std::unordered_map<std::string, std::size_t> places;  // of the children

  Node& child(const Step& step) {
    const auto [found, is_new] = places.try_emplace(step.key, children.size());
    if (is_new) children.push_back({step.name, {}, {}, {}});
    return children[found->second];
  }
};

/** What the tree shows of a site. */
Amount shown_of(const Query& query, const Figures& figures) {
  switch (query.sort.value_or(Sort::kBytes)) {
    case Sort::kMade:
      return figures.made;
    case Sort::kPeak:
      return figures.at_peak;
    case Sort::kShort:
      throw UsageError("tree: --sort 'short' is not bytes, blocks, made or peak");
    case Sort::kBytes:
    case Sort::kBlocks:
      break;
  }
  return amount_of(query, figures);
}

std::uint64_t rank_of(const Query& query, const Amount& amount) {
  return query.sort == Sort::kBlocks ? amount.blocks : amount.bytes;
}

Step step_of(const std::string& name) { return {name, name}; }

/** From the outermost caller to the line. */
std::vector<Step> steps_by_calls(const Ledger& ledger, const SiteKey& site) {
  std::vector<Step> steps;
  for (const Frame& frame : calls_to(ledger, site)) {
    steps.push_back({frame.function, short_name(frame)});
  }
  if (steps.empty()) steps.push_back(step_of("no stack"));
  std::reverse(steps.begin(), steps.end());
  steps.push_back({std::string(site.file) + '\n' + name_of(site), name_of(site)});
  return steps;
}

/** From the tag to the line. */
std::vector<Step> steps_by_handle(const Reading& reading, const SiteKey& site) {
  const Handle& handle = reading.ledger.handles()[site.handle];
  std::vector<Step> steps;
  if (reading.input.kind != InputKind::kTable) {
    steps.push_back(step_of(handle.tag.empty() ? "no tag" : "tag " + handle.tag));
  }
  steps.push_back(step_of("handle " + std::to_string(handle.number)));
  if (!site.file.empty())
    steps.push_back({std::string(site.file), std::string(base_of(site.file))});
  steps.push_back(step_of(name_of(site)));
  return steps;
}

bool has_stacks(const Ledger& ledger) {
  for (SiteIndex index = 0; index < ledger.sites().count(); ++index) {
    if (ledger.sites().at(index).stack != kNoStack) return true;
  }
  return false;
}

void sort(const Query& query, Node& node) {
  std::stable_sort(node.children.begin(), node.children.end(),
                   [&query](const Node& one, const Node& other) {
                     return rank_of(query, one.amount) > rank_of(query, other.amount);
                   });
  for (Node& child : node.children) sort(query, child);
}

Node tree_of(const Query& query, const Reading& reading, bool is_by_calls) {
  const Ledger& ledger = reading.ledger;
  Node root;
  for (SiteIndex index = 0; index < ledger.sites().count(); ++index) {
    const Amount amount = shown_of(query, ledger.figures_of(index));
    if (amount.blocks == 0) continue;
    const SiteKey& site = ledger.sites().at(index);
    root.amount += amount;
    Node* node = &root;
    for (const Step& step :
         is_by_calls ? steps_by_calls(ledger, site) : steps_by_handle(reading, site)) {
      node = &node->child(step);
      node->amount += amount;
    }
  }
  sort(query, root);
  return root;
}

/** Writes the rows of a tree. */
class TreeSheet {
 public:
  TreeSheet(const Query& query, const Node& root, std::string_view title)
      : query_(query), whole_(rank_of(query, root.amount)) {
    sheet_.key = "rows";
    sheet_.columns = {{"bytes", "bytes", Unit::kBytes},
                      {"share", "share", Unit::kShare},
                      {"blocks", "blocks", Unit::kCount},
                      {"", "node", Unit::kCount},
                      {"", "parent", Unit::kCount},
                      {"", "depth", Unit::kCount},
                      {title, "name"}};
    add_children(root, {});
  }

  [[nodiscard]] Sheet take() { return std::move(sheet_); }

 private:
  /** Where a row is. */
  struct Place {
    Cell parent;  // the number of its row
    std::uint64_t depth = 0;
    std::size_t indent = 0;
  };

  void add_children(const Node& node, const Place& place) {
    const bool is_chain = node.children.size() == 1 && place.depth != 0;
    const std::size_t shown = shown_children(node);
    for (std::size_t i = 0; i < shown; ++i) {
      const Node& child = node.children[i];
      // What has come to one place by one way stays on its level.
      const std::string lead = std::string(2 * (place.indent - (is_chain ? 1 : 0)), ' ');
      const std::uint64_t number =
          add_row(child.amount, place, {lead + (is_chain ? "> " : ""), child.name});
      add_children(child, {number, place.depth + 1, place.indent + (is_chain ? 0 : 1)});
    }
    if (shown != node.children.size()) add_rest(node, shown, place);
  }

  /** Those that come to something, and not more than was asked for. */
  [[nodiscard]] std::size_t shown_children(const Node& node) const {
    if (query_.rows == 0) return node.children.size();
    const auto small = std::find_if(node.children.begin(), node.children.end(),
                                    [this](const Node& child) { return is_small(child); });
    return std::min<std::size_t>(static_cast<std::size_t>(small - node.children.begin()),
                                 query_.rows);
  }

  /** Below 1 % of all. */
  [[nodiscard]] bool is_small(const Node& node) const {
    return static_cast<double>(rank_of(query_, node.amount)) < 0.01 * static_cast<double>(whole_);
  }

  void add_rest(const Node& node, std::size_t shown, const Place& place) {
    Amount rest;
    for (std::size_t i = shown; i < node.children.size(); ++i) rest += node.children[i].amount;
    add_row(rest, place,
            {std::string(2 * place.indent, ' '),
             fmt::format("{} more{}", count_text(node.children.size() - shown),
                         is_small(node.children[shown]) ? " below 1 %" : "")});
  }

  std::uint64_t add_row(const Amount& amount, const Place& place, Branch name) {
    const std::uint64_t number = sheet_.rows.size() + 1;
    sheet_.add(amount.bytes, Share{rank_of(query_, amount), whole_}, amount.blocks, number,
               place.parent, place.depth, std::move(name));
    return number;
  }

  const Query& query_;
  const std::uint64_t whole_;
  Sheet sheet_;
};

/** What the amounts are. */
std::string heading_of(const Query& query, const Ledger& ledger, const Amount& whole) {
  if (query.sort == Sort::kMade) return amount_text(whole) + " made";
  if (query.sort == Sort::kPeak) return "peak " + peak_text(ledger);
  return fmt::format("{} live {}", amount_text(whole), when_text(query, ledger));
}

}  // namespace

Found show_tree(const Query& query) {
  Reading reading = read(query);
  const bool is_by_calls = has_stacks(reading.ledger);
  if (is_by_calls) name_calls(reading);
  const Node root = tree_of(query, reading, is_by_calls);
  Answer answer = start_answer("tree", query, reading);
  answer.lines.push_back(heading_of(query, reading.ledger, root.amount));
  answer.sheets.push_back(
      TreeSheet(query, root, is_by_calls ? "function" : "handle, file and line").take());
  return {answer, false};
}

}  // namespace qk::command

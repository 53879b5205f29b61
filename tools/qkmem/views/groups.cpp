#include "views/groups.h"

#include <algorithm>
#include <unordered_map>

#include "views/calls.h"
#include "views/names.h"

namespace qk::command {
namespace {

std::string function_of(const Ledger& ledger, const SiteKey& site) {
  const std::vector<Frame> calls = calls_to(ledger, site);
  return calls.empty() ? name_of(site) : short_name(calls.front());
}

std::string stack_of(const Ledger& ledger, const SiteKey& site) {
  std::string stack = name_of(site);
  for (const Frame& frame : calls_to(ledger, site)) stack += " < " + name_of(frame);
  return stack;
}

std::string thread_of(const Ledger& ledger, const SiteKey& site) {
  if (site.thread == 0) return "before the recording";
  std::string name = std::to_string(site.thread);
  const auto& threads = ledger.program().threads;
  if (site.thread <= threads.size() && !threads[site.thread - 1].name.empty()) {
    name += " " + threads[site.thread - 1].name;
  }
  return name;
}

std::string tag_of(const Handle& handle) { return handle.tag.empty() ? "no tag" : handle.tag; }

std::string group_name(By by, const Ledger& ledger, const SiteKey& site) {
  const Handle& handle = ledger.handles()[site.handle];
  switch (by) {
    case By::kFile:
      return site.file.empty() ? "no site" : std::string(base_of(site.file));
    case By::kFunction:
      return function_of(ledger, site);
    case By::kHandle:
      return name_of(handle);
    case By::kTag:
      return tag_of(handle);
    case By::kThread:
      return thread_of(ledger, site);
    case By::kStack:
      return stack_of(ledger, site);
    case By::kSite:
      break;
  }
  return name_of(site);
}

/** A line that allocates on two handles is two sites; of one handle's number, one. */
std::string group_key(const Query& query, const Ledger& ledger, const SiteKey& site) {
  std::string key = group_name(query.by, ledger, site);
  if (query.by == By::kSite || query.by == By::kStack) {
    const Handle& handle = ledger.handles()[site.handle];
    key.append("\n").append(std::to_string(handle.number)).append(handle.tag);
    key.append("\n").append(site.file);
  }
  if (query.by == By::kFunction) {
    // Of one short name there can be several.
    const std::vector<Frame> calls = calls_to(ledger, site);
    if (!calls.empty()) key.append("\n").append(calls.front().function);
  }
  return key;
}

std::uint64_t rank_of(const Amount& amount, const Figures& figures, Sort sort) {
  switch (sort) {
    case Sort::kBytes:
      return amount.bytes;
    case Sort::kBlocks:
      return amount.blocks;
    case Sort::kMade:
      return figures.made.bytes;
    case Sort::kPeak:
      return figures.at_peak.bytes;
    case Sort::kShort:
      return figures.released_soon;
  }
  return 0;
}

Column name_column(By by) {
  switch (by) {
    case By::kFile:
      return {"file", "file"};
    case By::kFunction:
      return {"function", "function"};
    case By::kHandle:
      return {"handle", "handle"};
    case By::kTag:
      return {"tag", "tag"};
    case By::kThread:
      return {"thread", "thread"};
    case By::kStack:
      return {"site and its callers", "stack", Unit::kCallers};
    case By::kSite:
      break;
  }
  return {"site", "site"};
}

bool has_tags(const Ledger& ledger) {
  const auto& handles = ledger.handles();
  return std::any_of(handles.begin(), handles.end(),
                     [](const Handle& handle) { return !handle.tag.empty(); });
}

bool shows_handle(By by) { return by != By::kHandle && by != By::kTag && by != By::kThread; }

}  // namespace

std::vector<Group> groups_of(const Query& query, const Ledger& ledger, Sort sort, AmountOf amount) {
  std::vector<Group> groups;
  std::unordered_map<std::string, std::size_t> places;
  for (SiteIndex index = 0; index < ledger.sites().count(); ++index) {
    const Figures& figures = ledger.figures_of(index);
    if (figures.is_empty()) continue;
    const SiteKey& site = ledger.sites().at(index);
    const auto [found, is_new] = places.try_emplace(group_key(query, ledger, site), groups.size());
    if (is_new) groups.push_back({group_name(query.by, ledger, site), site.handle, {}, {}});
    Group& group = groups[found->second];
    if (group.handle &&
        ledger.handles()[*group.handle].number != ledger.handles()[site.handle].number) {
      group.handle.reset();
    }
    group.sites.push_back(index);
    group.figures.add(figures);
  }
  std::stable_sort(groups.begin(), groups.end(), [&](const Group& one, const Group& other) {
    const std::uint64_t left = rank_of(amount(query, one.figures), one.figures, sort);
    const std::uint64_t right = rank_of(amount(query, other.figures), other.figures, sort);
    return left != right ? left > right : one.figures.made.bytes > other.figures.made.bytes;
  });
  return groups;
}

Amount amount_of(const Query& query, const Figures& figures) {
  switch (query.at) {
    case At::kPeak:
      return figures.at_peak;
    case At::kEver:
      return figures.made;
    case At::kEnd:
      break;
  }
  return figures.live;
}

Amount left_of(const Query& /*query*/, const Figures& figures) { return figures.left(); }

std::vector<Column> columns_of(const Query& query, const Ledger& ledger) {
  std::vector<Column> columns;
  if (shows_handle(query.by)) {
    columns.push_back({"handle", "handle", Unit::kCount});
    if (has_tags(ledger)) columns.push_back({"tag", "tag"});
  }
  columns.push_back(name_column(query.by));
  return columns;
}

std::vector<Cell> cells_of(const Query& query, const Ledger& ledger, const Group& group) {
  std::vector<Cell> cells;
  if (shows_handle(query.by)) {
    const Handle* const handle = group.handle ? &ledger.handles()[*group.handle] : nullptr;
    cells.push_back(handle != nullptr ? Cell(static_cast<std::uint64_t>(handle->number)) : Cell());
    if (has_tags(ledger)) {
      cells.push_back(handle != nullptr && !handle->tag.empty() ? Cell(handle->tag) : Cell());
    }
  }
  cells.emplace_back(group.name);
  return cells;
}

}  // namespace qk::command

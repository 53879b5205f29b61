#include "input/profile.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

namespace qk::command {
namespace {

using Json = nlohmann::json;

/** What the report says in place of a line that was not seen. */
constexpr std::string_view kFromBefore = "(from before the profile was on)";

/** An object of the report, whose members are what they must be. */
class Object {
 public:
  /** @param what  it is, for errors: "site 3". */
  Object(const Json& json, const std::string& input, std::string what)
      : json_(json), input_(input), what_(std::move(what)) {
    if (!json.is_object()) fail("it is no object");
  }

  [[nodiscard]] bool has(const char* key) const { return json_.contains(key); }

  [[nodiscard]] std::uint64_t number(const char* key) const {
    const Json& value = member(key);
    if (!value.is_number_unsigned()) fail(fmt::format("'{}' is no size", key));
    return value.get<std::uint64_t>();
  }
  [[nodiscard]] int small_number(const char* key) const {
    const std::uint64_t value = number(key);
    if (value > INT_MAX) fail(fmt::format("'{}' is too large", key));
    return static_cast<int>(value);
  }
  [[nodiscard]] const std::string& text(const char* key) const {
    const Json& value = member(key);
    if (!value.is_string()) fail(fmt::format("'{}' is no text", key));
    return value.get_ref<const std::string&>();
  }
  [[nodiscard]] std::string text_if_any(const char* key) const {
    return has(key) ? text(key) : std::string();
  }
  [[nodiscard]] const Json& list(const char* key) const {
    const Json& value = member(key);
    if (!value.is_array()) fail(fmt::format("'{}' is no list", key));
    return value;
  }

 private:
  [[nodiscard]] const Json& member(const char* key) const {
    const auto found = json_.find(key);
    if (found == json_.end()) fail(fmt::format("there is no '{}'", key));
    return *found;
  }
  [[noreturn]] void fail(const std::string& why) const {
    throw InputError(fmt::format("{}: not the profile's report: {}: {}", input_, what_, why));
  }

  const Json& json_;
  const std::string& input_;
  const std::string what_;
};

/** Books one report. */
class ProfileInput {
 public:
  ProfileInput(std::string name, Ledger& ledger) : name_(std::move(name)), ledger_(ledger) {}

  std::vector<std::string> read(const Json& json) {
    const Object report(json, name_, "the report");
    if (report.has("since")) {
      throw InputError(name_ + ": a report of growth tells no more than what has grown");
    }
    ledger_.program().path = report.text("program");
    ledger_.program().process = report.number("process");
    ledger_.program().started = report.number("start_ns");
    for (const Json& handle : report.list("handles")) {
      const Object fields(handle, name_, "a handle");
      static_cast<void>(handle_of(fields.small_number("handle"), fields.text("tag")));
    }
    std::size_t count = 0;
    for (const Json& site : report.list("sites")) {
      take_site(Object(site, name_, fmt::format("site {}", ++count)));
    }
    ledger_.book_whole({report.number("events"), report.number("duration_ns")},
                       {report.number("peak_event"), report.number("peak_time_ns")},
                       report.number("peak_bytes"));
    if (!report.has("sample_interval_bytes")) return {};
    return {"the profile has looked at samples: its figures are estimates"};
  }

 private:
  using FrameKey = std::tuple<std::string, std::string, int>;

  void take_site(const Object& site) {
    const bool is_line = !site.has("place");
    const std::string file = is_line ? site.text("file") : std::string();
    const std::string label = site.text_if_any("label");
    SiteKey key;
    key.handle = is_line ? handle_of(site.small_number("handle"), site.text("tag"))
                         : handle_of(0, std::string());
    key.line = is_line ? site.small_number("line") : 0;
    key.file = file;
    key.label = label;
    if (site.has("stack")) key.stack = stack_of(site.list("stack"));
    Figures figures;
    figures.live = {site.number("live_bytes"), site.number("live_blocks")};
    figures.at_peak.bytes = site.number("bytes_at_peak");
    figures.highest.bytes = site.number("highest_bytes");
    figures.made = {site.number("made_bytes"), site.number("made_blocks")};
    figures.released = figures.made.blocks - std::min(figures.live.blocks, figures.made.blocks);
    figures.released_soon = site.number("freed_soon");
    figures.largest = site.number("largest_block");
    figures.first_event = site.number("first_event");
    figures.last_event = site.number("last_event");
    if (!is_line && site.text("place") == kFromBefore) figures.before = figures.live;
    ledger_.book(ledger_.site_of(key), figures);
  }

  HandleIndex handle_of(int number, const std::string& tag) {
    const auto [found, is_new] = handles_.try_emplace({number, tag}, 0);
    if (is_new) found->second = ledger_.add_handle({number, tag, {}, 0});
    return found->second;
  }

  StackIndex stack_of(const Json& frames) {
    std::vector<std::uint64_t> addresses;
    for (const Json& frame : frames) {
      addresses.push_back(address_of(Object(frame, name_, "a call")));
    }
    auto& stacks = ledger_.program().stacks;
    stacks.push_back(std::move(addresses));
    return static_cast<StackIndex>(stacks.size() - 1);
  }

  /** Calls have names instead of addresses, so they get numbers that stand for theirs. */
  std::uint64_t address_of(const Object& frame) {
    std::string function = frame.text_if_any("function");
    if (function.empty() && frame.has("module")) {
      const std::string& module = frame.text("module");
      function = fmt::format("{}+{:#x}", module.substr(module.find_last_of('/') + 1),
                             frame.number("offset"));
    }
    const int line = frame.has("line") ? frame.small_number("line") : 0;
    FrameKey key(std::move(function), frame.text_if_any("file"), line);
    const auto [found, is_new] = addresses_.try_emplace(std::move(key), addresses_.size() + 1);
    if (is_new) {
      const auto& [name, file, line_of_call] = found->first;
      ledger_.program().names[found->second] = {{name, file, line_of_call}};
    }
    return found->second;
  }

  const std::string name_;
  Ledger& ledger_;
  std::map<std::pair<int, std::string>, HandleIndex> handles_;
  std::map<FrameKey, std::uint64_t> addresses_;
};

}  // namespace

bool begins_profile(std::string_view bytes) { return bytes.starts_with('{'); }

std::vector<std::string> read_profile(std::string_view text, const std::string& name,
                                      Ledger& ledger) {
  Json report;
  try {
    report = Json::parse(text);
  } catch (const Json::parse_error& error) {
    throw InputError(fmt::format("{}: byte {}: no JSON", name, error.byte));
  } catch (const Json::out_of_range&) {
    throw InputError(name + ": no JSON: a number is too large");
  }
  return ProfileInput(name, ledger).read(report);
}

}  // namespace qk::command

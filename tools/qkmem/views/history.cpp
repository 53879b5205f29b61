// All that has happened at an address, or to the blocks of a site.
#include <algorithm>
#include <charconv>
#include <optional>

#include "output/words.h"
#include "views/names.h"
#include "views/views.h"

namespace qk::command {
namespace {

std::optional<std::uint64_t> address_in(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  std::uint64_t address = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), address, 16);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return address;
}

std::string place_text(std::string_view file, int line) {
  return fmt::format("{}:{}", base_of(file), line);
}

/** What a history is about: an address, or a site. */
class Subject {
 public:
  explicit Subject(const std::string& text) : text_(text), address_(address_in(text)) {
    if (!address_ && text.find(':') == std::string::npos) {
      throw UsageError("history: '" + text + "' is no address and no file:line");
    }
  }

  /** An event concerns an address if it allocates there, or releases what was there. */
  [[nodiscard]] bool is_meant(const Happening& happening, const Ledger& ledger) const {
    const Block* const gone = happening.gone;
    if (address_) {
      return happening.address == *address_ || (gone != nullptr && gone->address == *address_);
    }
    if (!happening.file.empty() && place_text(happening.file, happening.line) == text_) return true;
    return gone != nullptr && gone->site != kOwnSite &&
           name_of(ledger.sites().at(gone->site)) == text_;
  }

 private:
  const std::string text_;
  const std::optional<std::uint64_t> address_;
};

/** Where a block that is gone was made, and when. */
Cell origin_of(const Happening& happening, const Ledger& ledger) {
  const Block* const gone = happening.gone;
  if (gone == nullptr || gone->site == kOwnSite) return {};
  const std::string site = name_of(ledger.sites().at(gone->site));
  if (gone->made.event == 0) return fmt::format("{}, before the recording", site);
  return fmt::format("{} (event {})", site, count_text(gone->made.event));
}

void drop_column(Sheet& sheet, std::string_view key) {
  const auto found = std::find_if(sheet.columns.begin(), sheet.columns.end(),
                                  [key](const Column& column) { return column.key == key; });
  const auto place = found - sheet.columns.begin();
  sheet.columns.erase(found);
  for (auto& row : sheet.rows) row.erase(row.begin() + place);
}

}  // namespace

Found show_history(const Query& query) {
  const Subject subject(query.subject);
  Sheet events;
  events.key = "rows";
  events.columns = {{"event", "event", Unit::kCount},
                    {"what", "what"},
                    {"address", "address"},
                    {"bytes", "bytes", Unit::kCount},
                    {"handle", "handle", Unit::kCount},
                    {"thread", "thread", Unit::kCount},
                    {"at", "site"},
                    {"of", "allocated_at"}};
  Reading reading(query);
  read(query, reading, [&](const Happening& happening) {
    const Ledger& ledger = reading.ledger;
    if (!subject.is_meant(happening, ledger)) return;
    if (query.rows != 0 && events.rows.size() == query.rows) {
      ++events.left_out;
      return;
    }
    events.add(happening.when.event, std::string(happening.what),
               fmt::format("{:#x}", happening.address), happening.bytes,
               static_cast<std::uint64_t>(ledger.handles()[happening.handle].number),
               happening.thread == 0 ? Cell() : Cell(std::uint64_t{happening.thread}),
               happening.file.empty() ? Cell() : Cell(place_text(happening.file, happening.line)),
               origin_of(happening, ledger));
  });
  if (reading.ledger.program().threads.size() < 2) drop_column(events, "thread");
  Answer answer = start_answer("history", query, reading);
  answer.facts.push_back({"subject", query.subject});
  answer.lines.push_back("history of " + query.subject);
  const bool is_found = !events.rows.empty();
  answer.sheets.push_back(std::move(events));
  return {answer, !is_found};
}

}  // namespace qk::command

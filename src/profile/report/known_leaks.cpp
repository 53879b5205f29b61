#include "profile/report/known_leaks.h"

#include <algorithm>

#include "profile/stacks.h"
#include "symbols/folding.h"

namespace qk::mem::profile {
namespace {

/** Takes the part up to the next '*' off a pattern, and that one too. */
std::string_view take_part(std::string_view& pattern) {
  const std::size_t length = std::min(pattern.find('*'), pattern.size());
  const std::string_view part = pattern.substr(0, length);
  pattern.remove_prefix(std::min(length + 1, pattern.size()));
  return part;
}

/**
 * Whether a text has a pattern in it, in which '*' is any text. After '^' the text has to begin
 * with it, and before '$' to end with it.
 */
bool has_in_it(std::string_view text, std::string_view pattern) {
  const bool is_at_begin = pattern.starts_with('^');
  if (is_at_begin) pattern.remove_prefix(1);
  const bool is_at_end = pattern.ends_with('$');
  if (is_at_end) pattern.remove_suffix(1);
  bool is_first = true;
  for (bool is_last = false; !is_last; is_first = false) {
    is_last = pattern.find('*') == std::string_view::npos;
    const std::string_view part = take_part(pattern);
    if (is_first && is_at_begin && !text.starts_with(part)) return false;
    if (is_last && is_at_end) {
      return text.ends_with(part) && (!is_first || !is_at_begin || text.size() == part.size());
    }
    const std::size_t at = is_first && is_at_begin ? 0 : text.find(part);
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + part.size());
  }
  return true;
}

bool is_in_module(const qk::KnownModule* module, std::string_view pattern) {
  return module != nullptr &&
         (has_in_it(module->path, pattern) || has_in_it(module->name(), pattern));
}

/** A source by its name, and by name and line as a report shows them. */
bool is_in_source(std::string_view file, std::uint64_t number, std::string_view pattern) {
  if (file.empty()) return false;
  const std::string_view name = file.substr(file.rfind('/') + 1);
  if (has_in_it(file, pattern) || has_in_it(name, pattern)) return true;
  qk::Line place;
  return has_in_it(place.put(name).put(':').number(number).finish(), pattern);
}

bool is_of_frame(const qk::Frame& frame, std::string_view pattern) {
  const bool is_function =
      !frame.function.empty() &&
      (has_in_it(frame.function, pattern) || has_in_it(qk::without_types(frame.function), pattern));
  return is_function || is_in_module(frame.module, pattern) ||
         is_in_source(frame.file, static_cast<std::uint64_t>(std::max(frame.line, 0)), pattern);
}

/** A row that may be a known leak, with its frames. */
class Suspect {
 public:
  Suspect(const Row& row, Naming naming) : row_(row) {
    if (row.key.stack != 0) {
      frame_count_ = name_frames(program_stack(row, naming), naming, frames_);
    }
    module_ = modules.find_owner(reinterpret_cast<std::uintptr_t>(row.key.file));
  }

  [[nodiscard]] bool is(const KnownLeak& leak) const {
    if (leak.pattern == nullptr) return selects(leak.filter, pools.at(row_.key.pool));
    const std::string_view pattern = leak.pattern;
    const std::string_view file = row_.key.file == nullptr ? "" : row_.key.file;
    return is_in_source(file, row_.key.line, pattern) || is_in_module(module_, pattern) ||
           std::any_of(frames_.begin(), frames_.begin() + frame_count_,
                       [=](const qk::Frame& frame) { return is_of_frame(frame, pattern); });
  }

 private:
  const Row& row_;
  const qk::KnownModule* module_;
  NamedFrames frames_;
  int frame_count_ = 0;
};

/** Tries all lines, so that those that match nothing are known. */
bool is_known(const Row& row, const KnownLeaks& known, Naming naming) {
  const Suspect suspect(row, naming);
  bool result = false;
  for (KnownLeak* leak = known.first; leak != nullptr; leak = leak->next) {
    if (!suspect.is(*leak)) continue;
    qk::store(leak->has_matched, 1);
    result = true;
  }
  return result;
}

}  // namespace

void mark_known_leaks(Rows& rows, KnownLeaks* known, Occasion occasion, Naming naming) {
  if (known == nullptr) return;
  if (naming == Naming::kComplete) modules.refresh();
  for (KnownLeak* leak = known->first; leak != nullptr; leak = leak->next) {
    qk::store(leak->has_matched, 0);
  }
  for (Row& row : rows) {
    const bool is_suspect = row.kind == RowKind::kSite && row.live_blocks != 0;
    if (!is_suspect || ends_with_handle(row, occasion)) continue;
    row.is_ignored = is_known(row, *known, naming);
  }
}

void put_unmatched(qk::Line& line, const KnownLeaks& known, const KnownLeak& leak) {
  line.put("qkmem: IGNORE: nothing matched '").put(leak.text).put("' (").put(known.file);
  line.put(':').number(leak.number).put(")\n");
}

}  // namespace qk::mem::profile

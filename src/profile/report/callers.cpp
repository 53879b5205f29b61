#include "profile/report/callers.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include "symbols/folding.h"

namespace qk::mem::profile {
namespace {

constinit qk::Names names(modules);

std::string_view file_name(const qk::Frame& frame) {
  return frame.file.substr(frame.file.rfind('/') + 1);
}

/**
 * Whether a frame can have the place of a row, as far as its line is known. A function that ends
 * with the call may have left no frame, and its caller's is the first. The lines of a call and of
 * its debug information differ if it takes several.
 */
bool can_have_place(const qk::Frame& frame, const SiteKey& key) {
  constexpr std::int64_t kLines = 2;
  if (frame.file.empty() || key.file == nullptr) return true;
  const std::int64_t distance = std::int64_t{frame.line} - std::int64_t{key.line};
  return file_name(frame) == key.file && distance >= -kLines && distance <= kLines;
}

/**
 * Whether the frame that has called the library is shown, and has the place that the row is named
 * by. Otherwise that place is in an adapter, in a header, or has no frame.
 */
bool shows_site(const qk::Frame& caller, const SiteKey& key, std::string_view skip) {
  return !caller.function.empty() && !qk::is_folded(caller, skip) && can_have_place(caller, key);
}

void give_frames(Row& row, ShownFrames& shown, Naming naming, std::string_view skip) {
  NamedFrames frames;
  int count = name_frames(stack_numbered(row.key.stack), naming, frames);
  count = qk::leave_library(frames.data(), count);
  row.begins_at_site = count != 0 && shows_site(frames[0], row.key, skip);
  count = qk::visible_frames(frames.data(), count, skip);
  row.first_frame = static_cast<std::uint32_t>(shown.size());
  for (int i = 0; i < std::min<int>(count, kShownFrames); ++i) {
    if (shown.push_back(frames[i])) ++row.frame_count;
  }
}

std::strong_ordering compare_frames(const qk::Frame& left, const qk::Frame& right) {
  if (const auto order = left.function <=> right.function; std::is_neq(order)) return order;
  if (const auto order = left.file <=> right.file; std::is_neq(order)) return order;
  if (const auto order = left.line <=> right.line; std::is_neq(order)) return order;
  // Without a name, the place in the module tells functions apart.
  return left.function.empty() ? left.offset <=> right.offset : std::strong_ordering::equal;
}

/** The frame of the program that tells rows of one place apart; null if the place will do. */
const qk::Frame* telling_frame(const Row& row, const ShownFrames& frames) {
  return row.frame_count == 0 || row.begins_at_site ? nullptr : &frames[row.first_frame];
}

std::strong_ordering compare_callers(const Row& left, const Row& right, const ShownFrames& frames) {
  if (const auto order = left.kind <=> right.kind; std::is_neq(order)) return order;
  if (const auto order = compare_files(left.key.file, right.key.file); std::is_neq(order))
    return order;
  const auto order =
      std::tie(left.key.line, left.key.pool, left.key.label, left.is_autofree, left.is_ignored) <=>
      std::tie(right.key.line, right.key.pool, right.key.label, right.is_autofree,
               right.is_ignored);
  if (std::is_neq(order)) return order;
  const qk::Frame* const of_left = telling_frame(left, frames);
  const qk::Frame* const of_right = telling_frame(right, frames);
  if (of_left == nullptr || of_right == nullptr) {
    return (of_left != nullptr) <=> (of_right != nullptr);
  }
  return compare_frames(*of_left, *of_right);
}

/** The row that holds most comes first, and lends its frames to the others. */
void merge_equal_callers(Rows& rows, const ShownFrames& frames) {
  std::sort(rows.begin(), rows.end(), [&](const Row& left, const Row& right) {
    if (const auto order = compare_callers(left, right, frames); std::is_neq(order))
      return std::is_lt(order);
    return std::tie(left.live_bytes, left.made_bytes, right.key.stack) >
           std::tie(right.live_bytes, right.made_bytes, left.key.stack);
  });
  merge_neighbours(rows, [&](const Row& left, const Row& right) {
    return std::is_eq(compare_callers(left, right, frames));
  });
}

void put_name(qk::Line& line, const qk::Frame& frame) {
  qk::put_short_name(frame.function, [&line](std::string_view piece) { line.put(piece); });
}

/** A frame as "function file:line", as far as that is known. */
void put_frame(qk::Line& line, const qk::Frame& frame) {
  if (frame.function.empty()) {
    qk::put_function(line, frame);
  } else {
    put_name(line, frame);
  }
  if (frame.file.empty()) return;
  line.put(' ').put(file_name(frame));
  if (frame.line > 0) line.put(':').number(static_cast<std::uint64_t>(frame.line));
}

}  // namespace

int name_frames(const Stack& stack, Naming naming, NamedFrames& frames) {
  if (naming == Naming::kComplete) {
    return names.frames_of(stack.frames, stack.depth, frames.data(), kMostNamed);
  }
  for (int i = 0; i < stack.depth; ++i) frames[i] = plain_frame(modules, stack.frames[i]);
  return stack.depth;
}

Stack program_stack(const Row& row, Naming naming) {
  Stack stack = stack_numbered(row.key.stack);
  NamedFrames frames;
  while (stack.depth > 1) {
    const int count = name_frames({stack.frames, 1}, naming, frames);
    if (count == 0 || !qk::is_inside_library(frames[count - 1])) break;
    ++stack.frames;
    --stack.depth;
  }
  return stack;
}

void close_names() { names.close(); }

std::size_t frames_needed(const Rows& rows) {
  const auto with_stack =
      std::count_if(rows.begin(), rows.end(), [](const Row& row) { return row.key.stack != 0; });
  return static_cast<std::size_t>(with_stack) * kShownFrames;
}

void name_callers(Rows& rows, ShownFrames& frames, Naming naming, const char* skip) {
  for (Row& row : rows) {
    if (row.key.stack != 0) give_frames(row, frames, naming, skip == nullptr ? "" : skip);
  }
  merge_equal_callers(rows, frames);
}

void put_function_of_site(qk::Line& line, const Row& row, const ShownFrames& frames) {
  if (row.frame_count == 0 || !row.begins_at_site) return;
  put_name(line, frames[row.first_frame]);
  line.put(' ');
}

void put_callers(qk::Line& line, const Row& row, const ShownFrames& frames, const Style& style,
                 std::size_t width) {
  constexpr std::string_view kMore = " < \u2026";
  // One caller is shown at any rate: without it a stack tells nothing.
  const std::uint32_t first = row.begins_at_site ? 1 : 0;
  if (first >= row.frame_count) return;
  line.put(style.aside);
  const std::size_t end = line.length() + width;
  for (std::uint32_t i = first; i < row.frame_count; ++i) {
    qk::Line caller;
    put_frame(caller.put(" < "), frames[row.first_frame + i]);
    const bool fits = line.length() + caller.length() + kMore.size() <= end;
    if (!fits && i != first) {
      line.put(kMore);
      break;
    }
    line.put(caller.finish());
  }
  // A line that is cut must not lose its end.
  line.shorten(qk::Line::kCapacity - style.end.size() - 1).put(style.end);
}

}  // namespace qk::mem::profile

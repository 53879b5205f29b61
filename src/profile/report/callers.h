#ifndef QKMEM_PROFILE_REPORT_CALLERS_H_
#define QKMEM_PROFILE_REPORT_CALLERS_H_

#include <array>
#include <cstddef>

#include "profile/report/rows.h"
#include "profile/report/style.h"
#include "profile/stacks.h"
#include "support/line.h"
#include "support/mapped_array.h"
#include "symbols/names.h"

/** Who called a site, in words, for reports of rows with call stacks. */
namespace qk::mem::profile {

/** Frames of a row that a line can show. */
inline constexpr std::size_t kShownFrames = 8;

/** How frames get their names. */
enum class Naming : std::uint8_t {
  kComplete,   // functions, files, lines, inlined calls; uses the heap
  kAtASignal,  // modules and offsets
};

/** The frames of one stack. Inlined calls have frames of their own. */
inline constexpr int kMostNamed = 4 * qk::kMostFrames;
using NamedFrames = std::array<qk::Frame, kMostNamed>;

/** Names the frames of a stack, innermost first. Returns how many there are. Their texts stay. */
[[nodiscard]] int name_frames(const Stack& stack, Naming naming, NamedFrames& frames);

/** The stack of a row without the calls inside the library, as far as these have names. */
[[nodiscard]] Stack program_stack(const Row& row, Naming naming);

/** To be called when a report with complete names is written. */
void close_names();

/** The frames that reports show, of all rows with a stack. Must stay while the rows are used. */
using ShownFrames = qk::MappedArray<qk::Frame>;

/** How many frames name_callers() needs room for. */
[[nodiscard]] std::size_t frames_needed(const Rows& rows);

/**
 * Gives the rows that have a stack their frames: those of the program, without the library's own,
 * the C++ library's and those that `skip` matches. Rows of one place that the same call of the
 * program has led to become one row, with the frames of the one that holds most.
 */
void name_callers(Rows& rows, ShownFrames& frames, Naming naming, const char* skip);

/** Appends the function that a row's place is in and a blank, if it is known. */
void put_function_of_site(qk::Line& line, const Row& row, const ShownFrames& frames);

/** Appends the callers of a row's place, as many as fit into `width` bytes without the style's. */
void put_callers(qk::Line& line, const Row& row, const ShownFrames& frames, const Style& style,
                 std::size_t width);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_CALLERS_H_

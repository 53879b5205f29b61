#ifndef TESTS_KIT_REPORT_H_
#define TESTS_KIT_REPORT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "core/records.h"
#include "tests/kit/scene.h"

/** Reports of which every figure is known. */
namespace kit {

/**
 * Handles that a test makes by hand, in place of the library's own, which come back at the end: a
 * report has nothing else in it. Makes a Scene, starts the library up with reports and without
 * traces, and counts events from 1 again.
 */
class Stage {
 public:
  /** The heap has `heap` bytes at start-up and until set_heap() changes it. */
  explicit Stage(int heap = 0);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage();

  /**
   * A handle without memory of its own, number 1 to 9, made at "made.c" and line 100 times `id`.
   */
  qk_mem_handle& handle(int id, char type = 'D', const char* tag = "");

 private:
  Scene scene_{"EXCEPTIONS"};
  qk_mem_handle handles_[9] = {};
  qk_mem_handle* slots_[9] = {};
  qk_mem_handle** own_slots_;
  std::int32_t own_count_;
};

/**
 * Records a pointer on a handle and adds it to the totals, as an allocation of `count` elements of
 * `size` bytes does. Bits 4 to 6 of `address`, which nobody follows, choose the array. Only for
 * handles that nobody deletes.
 */
qk_mem_ptr& hold(qk_mem_handle& handle, std::uintptr_t address, char kind, std::uint64_t count,
                 std::uint64_t size, const char* file = "app.c", int line = 1);

/** Marks a handle, its tag and its records as a baseline does. */
void mark_baselined(qk_mem_handle& handle);

/**
 * A report with what differs from run to run in other words of the same width: addresses become
 * p1, p2, … in the order in which they appear here, except those below 0x10000, which tests made
 * up; lines of the library's own places "qkmem.cpp:#"; the sizes of what the library keeps for a
 * handle "handle" and "mtx".
 */
[[nodiscard]] std::string normalized_report(std::string_view text);

/** What qk_mem_dump() prints, in the words of normalized_report(). */
[[nodiscard]] std::string report(const char* filter, unsigned options);

/**
 * A report without its headings: of each section that has rows its title and its rows, exactly as
 * printed. Rows of totals that are all zero are left out. `options` are the sections that the
 * report must have.
 *
 *     Data handles
 *        +   2 AB                        1              2048       4 made.c:200
 *
 * Nothing else is passed over: lines above the report come first, a heading that is missing and a
 * line below the report are in the result and marked. Two different reports of the same options
 * never have the same result.
 */
[[nodiscard]] std::string sections_of(std::string_view text, unsigned options);

/** sections_of() what report() returns. */
[[nodiscard]] std::string sections(const char* filter, unsigned options);

}  // namespace kit

#endif  // TESTS_KIT_REPORT_H_

#ifndef TESTS_KIT_REPORT_H_
#define TESTS_KIT_REPORT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "core/records.h"
#include "tests/kit/scene.h"

/** Reports whose figures a test knows. */
namespace kit {

/**
 * Replaces the library's handles by handles that a test fills itself, so that reports show nothing
 * else; the destructor restores them. Creates a Scene, starts the library up with reports and
 * without traces, and counts events from 1.
 */
class Stage {
 public:
  /** The heap has `heap` bytes until set_heap() changes it. */
  explicit Stage(int heap = 0);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage();

  /** A handle without allocated memory, number 1 to 9, created at "made.c", line 100 times `id`. */
  qk_mem_handle& handle(int id, char type = 'D', const char* tag = "");

 private:
  Scene scene_{"EXCEPTIONS"};
  qk_mem_handle handles_[9] = {};
  qk_mem_handle* slots_[9] = {};
  qk_mem_handle** own_slots_;
  std::int32_t own_count_;
};

/**
 * Records a pointer on a handle and adds it to the sums, as an allocation of `count` elements of
 * `size` bytes does. `address` is never dereferenced; its bits 4 to 6 choose the array. Only for
 * handles that are not deleted.
 */
qk_mem_ptr& hold(qk_mem_handle& handle, std::uintptr_t address, char kind, std::uint64_t count,
                 std::uint64_t size, const char* file = "app.c", int line = 1);

/** Sets the baseline fields of a handle, its tag and its records as qk_mem_baseline() does. */
void mark_baselined(qk_mem_handle& handle);

/**
 * Replaces what differs from run to run in a report by text of the same width. Addresses become p1,
 * p2, … in order of appearance, except those below 0x10000, which tests invented. Line numbers of
 * the library's own locations become "qkmem.cpp:#", the sizes of a handle's record and mutex
 * "handle" and "mtx".
 */
[[nodiscard]] std::string normalized_report(std::string_view text);

/** The output of qk_mem_dump(), as normalized_report() returns it. */
[[nodiscard]] std::string report(const char* filter, unsigned options);

/**
 * The title and the rows of each section of a report that has rows, exactly as printed. Rows of
 * totals that are all zero are left out. `options` are the sections that the report must have.
 *
 *     Data handles
 *        +   2 AB                        1              2048       4 made.c:200
 *
 * Nothing else is left out: lines above the report come first, and missing headings and lines below
 * the report are in the result with a mark. Different reports of the same options always have
 * different results.
 */
[[nodiscard]] std::string sections_of(std::string_view text, unsigned options);

/** The same for the result of report(). */
[[nodiscard]] std::string sections(const char* filter, unsigned options);

}  // namespace kit

#endif  // TESTS_KIT_REPORT_H_

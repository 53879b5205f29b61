#ifndef QKMEM_PROFILE_REPORT_KNOWN_LEAKS_H_
#define QKMEM_PROFILE_REPORT_KNOWN_LEAKS_H_

#include <cstdint>
#include <string_view>

#include "profile/report/callers.h"
#include "profile/report/growth.h"
#include "profile/report/rows.h"
#include "profile/report/verdict.h"
#include "support/line.h"
#include "support/shared_variable.h"

/** Leaks that are known, and don't count: those that the file of IGNORE describes. */
namespace qk::mem::profile {

/** A line of the file. */
struct KnownLeak {
  const char* text = "";          // all of it
  std::uint32_t number = 0;       // the first one is 1
  const char* pattern = nullptr;  // of functions, files and modules; null if the handle decides
  SiteFilter filter;
  std::uint8_t has_matched = 0;  // in the latest report; shared
  KnownLeak* next = nullptr;
};

struct KnownLeaks {
  const char* file = "";
  KnownLeak* first = nullptr;
};

/**
 * Marks the rows whose memory is a known leak. Places always have a file, a line and, if the
 * caller's file name is a literal, a module; rows with stacks have all frames of the program, also
 * those that reports don't show. To be called before rows are made one because of their callers.
 * `known` can be null.
 */
void mark_known_leaks(Rows& rows, KnownLeaks* known, Occasion occasion, Naming naming);

/** Appends that a line of the file has matched nothing in the latest report. */
void put_unmatched(qk::Line& line, const KnownLeaks& known, const KnownLeak& leak);

/** Calls `visit` with a line about each such line of the file. `known` can be null. */
template <class Visit>
void for_each_unmatched(const KnownLeaks* known, Visit visit) {
  if (known == nullptr) return;
  for (const KnownLeak* leak = known->first; leak != nullptr; leak = leak->next) {
    if (qk::load(leak->has_matched) != 0) continue;
    qk::Line line;
    put_unmatched(line, *known, *leak);
    visit(line.finish());
  }
}

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_KNOWN_LEAKS_H_

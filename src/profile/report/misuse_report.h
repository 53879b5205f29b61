#ifndef QKMEM_PROFILE_REPORT_MISUSE_REPORT_H_
#define QKMEM_PROFILE_REPORT_MISUSE_REPORT_H_

#include <cstdint>

#include "formats/json.h"
#include "profile/report/callers.h"
#include "profile/report/style.h"
#include "support/line.h"
#include "support/page_writer.h"

/** What reports say of misuse. */
namespace qk::mem::profile {

/** Appends the event that came before: " (event 4,310)". */
void put_event(qk::Line& line, std::uint64_t event);

/** Appends the line about the first misuse, if there was any. */
void put_first_misuse(qk::PageWriter& out, const Style& style);

/**
 * Appends the table of misuses, if there were any. Below each that has damaged a block whose call
 * stack is known stands who has allocated that, without the frames that `skip` matches.
 */
void put_misuses(qk::PageWriter& out, const Style& style, Naming naming, const char* skip);

/** Appends how many there were by so many events, with the table. */
void put_findings(qk::PageWriter& out, std::uint64_t events);

/** Appends the same to an object of JSON. */
void put_json_misuses(JsonWriter& json);

}  // namespace qk::mem::profile

#endif  // QKMEM_PROFILE_REPORT_MISUSE_REPORT_H_

#ifndef QKMEM_CORE_OWN_LOCATIONS_H_
#define QKMEM_CORE_OWN_LOCATIONS_H_

#include "core/source_location.h"

/**
 * The locations that log lines, reports and status objects show where the library itself acts. They
 * are lines of qkmem.cpp, which holds one line for each and names the function that acts: the
 * library consists of many files, and the name of an inner one would mean nothing to a user.
 */
namespace qk::mem::own {

#pragma GCC visibility push(hidden)
extern const SourceLocation kOverheadHandle;
extern const SourceLocation kDataHandle;
extern const SourceLocation kHandleArray;
extern const SourceLocation kTraceFile;
extern const SourceLocation kAutofreeHandles;
extern const SourceLocation kHandleArrayReleased;

extern const SourceLocation kDebugTooLong;
extern const SourceLocation kDebugInvalid;
extern const SourceLocation kDebugOffWithOthers;
extern const SourceLocation kDebugProcessed;
extern const SourceLocation kDebugUnknownRoutine;
extern const SourceLocation kDebugNotInside;
extern const SourceLocation kDumpNull;
extern const SourceLocation kDumpTooLong;
extern const SourceLocation kDumpInvalid;
extern const SourceLocation kDumpInvalidSections;
extern const SourceLocation kOptionsTooLong;
extern const SourceLocation kOptionsInvalid;
#pragma GCC visibility pop

}  // namespace qk::mem::own

#endif  // QKMEM_CORE_OWN_LOCATIONS_H_

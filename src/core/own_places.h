#ifndef QKMEM_CORE_OWN_PLACES_H_
#define QKMEM_CORE_OWN_PLACES_H_

namespace qk::mem {

/** A place in the library itself, as its log lines, reports and status objects show it. */
struct Place {
  const char* file;
  int line;
};

/**
 * The places where the library itself acts. They show as lines of qkmem.cpp, which holds one line
 * for each and names there the function that acts: the source is many files, and a location with
 * the name of an inner one would tell a user nothing.
 */
namespace own {

extern const Place kOverheadHandle;
extern const Place kDataHandle;
extern const Place kHandleArray;
extern const Place kTraceFile;
extern const Place kAutofreeHandles;
extern const Place kHandleArrayReleased;

extern const Place kDebugTooLong;
extern const Place kDebugInvalid;
extern const Place kDebugOffWithOthers;
extern const Place kDebugProcessed;
extern const Place kDebugUnknownRoutine;
extern const Place kDebugNotInside;
extern const Place kDumpNull;
extern const Place kDumpTooLong;
extern const Place kDumpInvalid;
extern const Place kDumpInvalidSections;
extern const Place kOptionsTooLong;
extern const Place kOptionsInvalid;

}  // namespace own
}  // namespace qk::mem

#endif  // QKMEM_CORE_OWN_PLACES_H_

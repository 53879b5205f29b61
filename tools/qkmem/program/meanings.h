#ifndef QKMEM_TOOLS_PROGRAM_MEANINGS_H_
#define QKMEM_TOOLS_PROGRAM_MEANINGS_H_

#include <array>

#include "program/variables.h"

/** What each word does. docs/variables.md says more. */
namespace qk::command {

inline constexpr std::array<Meaning, 9> kDebugMeanings = {
    {{"SUMMARY", "writes a report of what was not freed when the program ends",
      "writes a report of what was not freed when the program ends; watches only {}",
      Meaning::List::kRoutines},
     {"EXCEPTIONS", "writes warnings and errors", "writes the warnings and errors of {}",
      Meaning::List::kRoutines},
     {"DEBUG", "writes a line for each event, and warnings and errors",
      "writes a line for each event of {}, and their warnings and errors",
      Meaning::List::kRoutines},
     {"CTRLBLKS", "writes the report after each event", "writes the report after each event of {}",
      Meaning::List::kRoutines},
     {"TRACE", "writes no log, and lets the program ask for dumps and baselines",
      "writes no log, and lets the program ask for dumps and baselines; watches only {}",
      Meaning::List::kRoutines},
     {"OFF", "switches everything off", ""},
     {"LOG", "", "the log goes to {}"},
     {"APPEND", "extends the log file in place of emptying it", ""},
     {"FLUSH", "writes each line of the log at once", ""}}};

inline constexpr std::array<Meaning, 1> kDumpMeanings = {
    {{"OPTIONS", "", "reports have these sections: {}", Meaning::List::kSections}}};

inline constexpr std::array<Meaning, 3> kModuleMeanings = {
    {{"HEAPSIZE", "adds the size of the heap to each line of the log", ""},
     {"DB", "writes a row for each event to the trace file qkmem.tdf",
      "writes a row for each event to the trace file {}"},
     {"FLUSH", "buffers neither log nor trace file", "buffers neither log nor trace file"}}};

inline constexpr std::array<Meaning, 18> kProfileMeanings = {
    {{"SITES", "reports what each line of the program still holds when it ends", ""},
     {"STACKS", "tells the callers of a line apart, by 16 calls",
      "tells the callers of a line apart, by {} calls"},
     {"PEAK", "also reports what each line held when the program held most", ""},
     {"LOST", "searches for memory that nothing refers to any more, when the program ends", ""},
     {"TOP", "", "tables have up to {} rows"},
     {"SORT", "", "the first table is sorted by {}"},
     {"REPORT", "", "reports go to {}"},
     {"FORMAT", "", "reports are in the form {}"},
     {"SKIP", "", "stacks are shown without {}"},
     {"EVERY", "", "writes the report every {} seconds as well"},
     {"CONTROL", "", "does the commands in the file {} while the program runs"},
     {"MAX", "", "the profile takes no more than {} for itself"},
     {"SAMPLE", "", "books one block in {} bytes, and estimates the rest"},
     {"HISTORY", "", "remembers the last {} blocks that were released"},
     {"LEAKS", "", "{}: a program that would end with 0 fails if memory is still held"},
     {"IGNORE", "", "leaves out the known leaks in the file {}"},
     {"RECORD", "records each allocation and release to PROGRAM.PROCESS.qkm",
      "records each allocation and release to {}"},
     {"RECORD_MAX", "", "the recording keeps its latest {}"}}};

inline constexpr std::array<Meaning, 9> kCheckMeanings = {
    {{"GUARD", "lays a guard of 16 bytes behind each block", "lays guards around blocks, as in {}"},
     {"FILL", "fills new and released memory", ""},
     {"QUARANTINE", "keeps released blocks out of use, 16M of them",
      "keeps released blocks out of use, {} of them"},
     {"SCAN", "", "looks at everything after {} events"},
     {"HISTORY", "", "remembers the last {} blocks that were released"},
     {"ABORT", "ends the program at the first finding", ""},
     {"BREAK", "", "raises SIGTRAP at event {}, for a debugger"},
     {"FINDINGS", "", "{}: a program that would end with 0 fails if anything was found"},
     {"REPORT", "", "findings go to {}"}}};

}  // namespace qk::command

#endif  // QKMEM_TOOLS_PROGRAM_MEANINGS_H_

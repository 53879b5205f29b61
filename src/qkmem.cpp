// The index of the places that the library shows as its own: whoever reads "qkmem.cpp:27" in a log,
// a report or a status finds in line 27 which function of which file has spoken.
#include "core/own_places.h"

namespace qk::mem::own {

namespace {
consteval Place here(int line = __builtin_LINE()) { return {"qkmem.cpp", line}; }
}  // namespace

// clang-format off
constinit const Place kOverheadHandle = here();       // life/startup.cpp, open_overhead_handle()
constinit const Place kDataHandle = here();           // life/startup.cpp, open_data_handle()
constinit const Place kHandleArray = here();          // handle/create.cpp, furnish()
constinit const Place kTraceFile = here();            // config/default_options.cpp, open_trace_file()
constinit const Place kAutofreeHandles = here();      // life/cleanup.cpp, delete_autofree_handle()
constinit const Place kHandleArrayReleased = here();  // life/cleanup.cpp, announce_handle_array_gone()

constinit const Place kDebugTooLong = here();         // config/debug_config.cpp, qk_mem_debug_config()
constinit const Place kDebugInvalid = here();         // config/debug_config.cpp, qk_mem_debug_config()
constinit const Place kDebugOffWithOthers = here();   // config/debug_config.cpp, qk_mem_debug_config()
constinit const Place kDebugProcessed = here();       // config/debug_config.cpp, qk_mem_debug_config()
constinit const Place kDebugUnknownRoutine = here();  // config/debug_config.cpp, apply_list()
constinit const Place kDebugNotInside = here();       // config/debug_config.cpp, apply_list()
constinit const Place kDumpNull = here();             // config/dump_config.cpp, qk_mem_dump_config()
constinit const Place kDumpTooLong = here();          // config/dump_config.cpp, qk_mem_dump_config()
constinit const Place kDumpInvalid = here();          // config/dump_config.cpp, qk_mem_dump_config()
constinit const Place kDumpInvalidSections = here();  // config/dump_config.cpp, qk_mem_dump_config()
constinit const Place kOptionsTooLong = here();       // config/default_options.cpp, qk_mem_options()
constinit const Place kOptionsInvalid = here();       // config/default_options.cpp, qk_mem_options()
// clang-format on

}  // namespace qk::mem::own

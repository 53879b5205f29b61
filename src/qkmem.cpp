// The index of the library's own source locations: a reader of "qkmem.cpp:27" in a log, a report or
// a status finds in line 27 the function that wrote it, and its file.
#include "core/own_locations.h"

namespace qk::mem::own {

namespace {
consteval SourceLocation here(int line = __builtin_LINE()) { return {"qkmem.cpp", line}; }
}  // namespace

// clang-format off
constinit const SourceLocation kOverheadHandle = here();       // life/startup.cpp, create_overhead_handle()
constinit const SourceLocation kDataHandle = here();           // life/startup.cpp, create_data_handle()
constinit const SourceLocation kHandleArray = here();          // handle/create.cpp, set_up()
constinit const SourceLocation kTraceFile = here();            // config/module_options.cpp, open_trace_file()
constinit const SourceLocation kAutofreeHandles = here();      // life/cleanup.cpp, delete_autofree_handle()
constinit const SourceLocation kHandleArrayReleased = here();  // life/cleanup.cpp, announce_handle_array_gone()

constinit const SourceLocation kDebugTooLong = here();         // config/debug_config.cpp, qk_mem_debug_config()
constinit const SourceLocation kDebugInvalid = here();         // config/debug_config.cpp, qk_mem_debug_config()
constinit const SourceLocation kDebugOffWithOthers = here();   // config/debug_config.cpp, qk_mem_debug_config()
constinit const SourceLocation kDebugProcessed = here();       // config/debug_config.cpp, qk_mem_debug_config()
constinit const SourceLocation kDebugUnknownRoutine = here();  // config/debug_config.cpp, apply_list()
constinit const SourceLocation kDebugNotInside = here();       // config/debug_config.cpp, apply_list()
constinit const SourceLocation kDumpNull = here();             // config/dump_config.cpp, qk_mem_dump_config()
constinit const SourceLocation kDumpTooLong = here();          // config/dump_config.cpp, qk_mem_dump_config()
constinit const SourceLocation kDumpInvalid = here();          // config/dump_config.cpp, qk_mem_dump_config()
constinit const SourceLocation kDumpInvalidSections = here();  // config/dump_config.cpp, qk_mem_dump_config()
constinit const SourceLocation kOptionsTooLong = here();       // config/module_options.cpp, qk_mem_options()
constinit const SourceLocation kOptionsInvalid = here();       // config/module_options.cpp, qk_mem_options()
// clang-format on

}  // namespace qk::mem::own

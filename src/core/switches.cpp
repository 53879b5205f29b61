#include "core/switches.h"

constinit qk_mem_debug Qk_mem_debug[20] = {};
constinit std::int32_t Qk_mem_debug_initialized = 0;
constinit std::uint32_t Qk_mem_dump_opts =
    QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;

namespace qk::mem {

const char* const kRoutineNames[kRoutines] = {
    "global",      "qk_mem_inew_handle", "qk_mem_idel_handle", "qk_mem_iclear_handle",
    "qk_imalloc",  "qk_icalloc",         "qk_irealloc",        "qk_ifree",
    "qk_istrdup",  "qk_iregister",       "qk_ideregister",     "qk_imarralloc",
    "qk_iarrfree", "qk_mem_new_block",   "qk_mem_block_mgmt",  "qk_mem_ptr_mgmt",
    "qk_mem_info", "qk_mem_baseline",    "qk_heapsize",        "qk_mallinfo",
};

}  // namespace qk::mem

#include "core/switches.h"

constinit qk_mem_debug Qk_mem_debug[20] = {};
constinit std::int32_t Qk_mem_debug_initialized = 0;
constinit FILE* Qk_mem_db = nullptr;
constinit std::uint32_t Qk_mem_dump_opts =
    QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS;

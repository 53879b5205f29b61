#include "qkmem/version.h"

extern "C" const char* qk_mem_version(void) { return QK_MEM_VERSION; }

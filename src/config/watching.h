#ifndef QKMEM_CONFIG_WATCHING_H_
#define QKMEM_CONFIG_WATCHING_H_

#include "core/registry.h"

namespace qk::mem {

/** From one moment on, calls on all handles tell the profile of their memory. */
void watch_all_handles() QK_REQUIRES(Qk_mem_mtx);

}  // namespace qk::mem

#endif  // QKMEM_CONFIG_WATCHING_H_

#ifndef QKMEM_LIFE_STAGED_LOG_H_
#define QKMEM_LIFE_STAGED_LOG_H_

#include <cstdio>

#include "core/registry.h"

namespace qk::mem {

/**
 * Collects what is logged and hands it to the log in one go.
 *
 * A signal can stop a thread inside the allocator or under a lock, and a report made then may never
 * come to its end: the process is ended by force after a while. Whoever reads the log then finds
 * the whole report or none of it.
 */
class StagedLog {
 public:
  /** Needs the registry's lock, without which a configuration could close the log. */
  StagedLog() QK_REQUIRES(Qk_mem_mtx);
  StagedLog(const StagedLog&) = delete;
  StagedLog& operator=(const StagedLog&) = delete;

  /** Hands the lines over and ends the collecting. Without it they are lost. */
  void commit();

 private:
  FILE* log_;
  FILE* lines_ = nullptr;  // null where lines go to the log directly
};

}  // namespace qk::mem

#endif  // QKMEM_LIFE_STAGED_LOG_H_

#ifndef QKMEM_LIFE_STAGED_LOG_H_
#define QKMEM_LIFE_STAGED_LOG_H_

#include <cstdio>

#include "core/registry.h"

namespace qk::mem {

/**
 * Collects log lines and hands them to the log all at once.
 *
 * A signal can stop a thread inside the allocator or under a lock, so that a report may never be
 * finished: the process is then ended by force. The log gets the whole report or none of it.
 */
class StagedLog {
 public:
  /** Needs the registry's lock: without it a configuration could close the log. */
  StagedLog() QK_REQUIRES(Qk_mem_mtx);
  StagedLog(const StagedLog&) = delete;
  StagedLog& operator=(const StagedLog&) = delete;

  /** Writes the lines to the log and stops collecting. Without it they are lost. */
  void commit();

 private:
  FILE* log_;
  FILE* lines_ = nullptr;  // null if lines go to the log directly
};

}  // namespace qk::mem

#endif  // QKMEM_LIFE_STAGED_LOG_H_

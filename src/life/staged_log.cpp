#include "life/staged_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include "diag/log.h"

namespace qk::mem {
namespace {

/** A file in memory that disappears with its stream. */
FILE* open_memory_file() {
  const int descriptor = memfd_create("qkmem log", MFD_CLOEXEC);
  if (descriptor < 0) return nullptr;
  FILE* stream = fdopen(descriptor, "w+");
  if (stream == nullptr) close(descriptor);
  return stream;
}

void copy_all(FILE* from, FILE* to) {
  char bytes[4096];
  std::rewind(from);
  while (const std::size_t size = std::fread(bytes, 1, sizeof bytes, from)) {
    std::fwrite(bytes, 1, size, to);
  }
}

}  // namespace

StagedLog::StagedLog() : log_(Qk_mem_log) {
  assert_registry_held();
  if (log_ == nullptr) return;
  lines_ = open_memory_file();
  if (lines_ != nullptr) exchange_log(lines_);
}

void StagedLog::commit() {
  if (lines_ == nullptr) return;
  exchange_log(log_);
  copy_all(lines_, log_);
  // A standard stream is not closed before the signal ends the process.
  std::fflush(log_);
  std::fclose(lines_);
  lines_ = nullptr;
}

}  // namespace qk::mem

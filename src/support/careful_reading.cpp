#include "support/careful_reading.h"

#include <sys/uio.h>
#include <unistd.h>

#include "support/keep_errno.h"

namespace qk {

bool copy_if_there(std::uintptr_t from, void* to, std::size_t bytes) noexcept {
  const KeepErrno keep;
  const iovec local = {to, bytes};
  const iovec remote = {reinterpret_cast<void*>(from), bytes};  // NOLINT(performance-no-int-to-ptr)
  return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == static_cast<ssize_t>(bytes);
}

}  // namespace qk

#include "config/kept_text.h"

#include <cstring>

#include "profile/state.h"
#include "support/mtx_lock.h"

namespace qk::mem {

char* keep_text(const char* text) {
  const std::size_t bytes = std::strlen(text) + 1;
  const qk::MtxLock lock(profile::growth_lock);
  void* const copy = profile::arena.take(bytes);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, bytes));
}

}  // namespace qk::mem

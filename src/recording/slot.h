#ifndef QKMEM_RECORDING_SLOT_H_
#define QKMEM_RECORDING_SLOT_H_

#include <cstdint>

#include "formats/recording.h"
#include "formats/recording_event.h"
#include "support/shared_variable.h"

namespace qk::mem::recording {

/** A chunk that is being filled, and by whom. Its memory stays mapped until the process ends. */
struct Slot {
  char* chunk;
  std::uint32_t used;  // bytes of the chunk with its header
  std::uint32_t number;
  Slot* next;  // of all
  Slot* next_free;
  ChunkHeader header;
  EventState before;             // the next event
  std::uint64_t recorded;        // events of all its chunks
  std::uint32_t set_aside_pool;  // of the block that a realloc of the thread has set aside; or 0
  std::uint8_t is_open;          // for its thread, in this recording

  [[nodiscard]] bool is_empty() const { return used == kHeaderBytes; }
  [[nodiscard]] char* end() const { return chunk + used; }

  /** Whoever reads the tail sees what was written before. */
  void set_end(const char* end) {
    used = static_cast<std::uint32_t>(end - chunk);
    qk::publish(*reinterpret_cast<std::uint32_t*>(chunk + kUsedLengthAt), used);
  }
};

}  // namespace qk::mem::recording

#endif  // QKMEM_RECORDING_SLOT_H_

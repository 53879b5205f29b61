#include "recording/recorder.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "recording/output.h"
#include "recording/slot.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/no_cancellation.h"
#include "support/own_message.h"
#include "support/page_arena.h"
#include "support/system.h"
#include "support/ticks.h"

namespace qk::mem::recording {

constinit std::uint8_t state = static_cast<std::uint8_t>(State::kOff);
constinit qk::Mtx lock;
constinit std::uint64_t dropped_up_to = 0;

namespace {

constinit Output output QK_GUARDED_BY(lock);
constinit qk::PageArena arena QK_GUARDED_BY(lock);
constinit Slot* all_slots QK_GUARDED_BY(lock) = nullptr;
constinit Slot* free_slots QK_GUARDED_BY(lock) = nullptr;
constinit Slot* process_slot QK_GUARDED_BY(lock) = nullptr;  // for all that is no event
constinit std::uint32_t slots QK_GUARDED_BY(lock) = 0;
constinit std::uint32_t threads QK_GUARDED_BY(lock) = 0;
constinit std::uint64_t start = 0;  // by the system's clock
constinit bool has_counter = false;

constinit pthread_key_t end_of_thread = 0;
constinit bool has_key QK_GUARDED_BY(lock) = false;

[[gnu::tls_model("initial-exec")]] constinit thread_local Slot* own_slot = nullptr;

void set_state(State now) { qk::publish(state, static_cast<std::uint8_t>(now)); }

Moment moment_now() {
  return {qk::read_ticks(has_counter), qk::read_clock_in_ns(CLOCK_MONOTONIC) - start};
}

/** Says what has become of the recording, and why. */
void tell(std::string_view what, std::string_view name, int error) {
  char why[128];
  qk::Line line;
  line.put("qkmem: ").put(what).put(" '").put(name).put("': ");
  qk::write_message(line.put(qk_error_msg_r(error, why, sizeof why)).put('\n').finish());
}

/** Ends a recording that can't go on. Its files stay: they have all up to now. */
void give_up(int error) QK_REQUIRES(lock) {
  assert_recorder_held();
  if (!is_on()) return;
  set_state(State::kOff);
  tell("nothing more is recorded to", output.name(), error);
}

/** Begins a chunk in the memory of one that is written by now. */
void begin_chunk(Slot& slot) {
  ChunkHeader& header = slot.header;
  header.bytes = 0;
  header.events = 0;
  header.first_number = 0;
  header.highest_number = 0;
  header.begin = moment_now();
  header.end = {};
  slot.before = {};
  slot.before.ticks = header.begin.ticks;
  // Nothing is in use meanwhile, since one moment can be the last.
  slot.set_end(slot.chunk);
  encode_header(header, slot.chunk);
  slot.set_end(slot.chunk + kHeaderBytes);
}

/** Writes a chunk if there is something in it, and begins the next one. */
void write_chunk(Slot& slot) QK_REQUIRES(lock) {
  assert_recorder_held();
  if (slot.is_empty() || !is_on()) return;
  slot.header.bytes = slot.used;
  slot.header.end = moment_now();
  encode_header(slot.header, slot.chunk);
  seal(slot.chunk, slot.used);
  const int error = output.append({slot.chunk, slot.used}, slot.header.kind);
  if (error != 0) return give_up(error);
  qk::store(dropped_up_to, output.dropped_up_to());
  ++slot.header.index;
  begin_chunk(slot);
}

/** The same of events. What they use is defined in front of them. */
void write_events(Slot& slot) QK_REQUIRES(lock) {
  assert_recorder_held();
  write_chunk(*process_slot);
  write_chunk(slot);
}

/** Memory for a slot that no file lies behind; null if there is none. */
char* map_own_memory(void* place) {
  const int fixed = place == nullptr ? 0 : MAP_FIXED;
  void* const memory = ::mmap(place, kChunkBytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | fixed, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}

Slot* add_slot() QK_REQUIRES(lock) {
  assert_recorder_held();
  auto* const slot = static_cast<Slot*>(arena.take(sizeof(Slot)));
  char* const chunk = slot == nullptr ? nullptr : map_own_memory(nullptr);
  if (chunk == nullptr) {
    arena.give_back(slot, sizeof(Slot));
    return nullptr;
  }
  slot->chunk = chunk;
  slot->number = slots++;
  slot->next = all_slots;
  all_slots = slot;
  return slot;
}

/** Opens a slot for a thread, or for the process. */
bool open_slot(Slot& slot, ChunkKind kind, std::uint32_t thread) QK_REQUIRES(lock) {
  assert_recorder_held();
  const int error = output.map_slot(slot.chunk, slot.number);
  if (error != 0) {
    give_up(error);
    return false;
  }
  slot.header = {};
  slot.header.kind = kind;
  slot.header.thread = thread;
  slot.set_aside_pool = 0;
  begin_chunk(slot);
  slot.is_open = 1;
  return true;
}

void define_thread(std::uint32_t thread) QK_REQUIRES(lock) {
  assert_recorder_held();
  char name[17] = {};
  ::prctl(PR_GET_NAME, name);
  const auto number = static_cast<std::uint64_t>(::gettid());
  write_record(ChunkKind::kDefinitions, RecordType::kThread, [&](auto& fields) {
    fields.number(thread);
    fields.number(number);
    fields.text(name);
  });
}

/** The thread ends: its slot serves another one. */
void give_slot_back(void* /*slot*/) {
  const qk::NoCancellation no_cancellation;
  const qk::KeepErrno keep_errno;
  const qk::MtxLock held(lock);
  Slot* const slot = own_slot;
  if (slot == nullptr) return;
  if (slot->is_open != 0) write_events(*slot);
  slot->is_open = 0;
  own_slot = nullptr;
  slot->next_free = free_slots;
  free_slots = slot;
}

/** The slot of the calling thread; null if there is no recording. */
[[gnu::noinline]] Slot* open_own_slot() {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(lock);
  if (!is_on()) return nullptr;
  Slot* slot = own_slot;
  if (slot == nullptr && free_slots != nullptr) {
    slot = free_slots;
    free_slots = slot->next_free;
  } else if (slot == nullptr) {
    slot = add_slot();
  }
  if (slot == nullptr) {
    give_up(ENOMEM);
    return nullptr;
  }
  own_slot = slot;
  if (has_key) pthread_setspecific(end_of_thread, slot);
  if (!open_slot(*slot, ChunkKind::kEvents, ++threads)) return nullptr;
  define_thread(threads);
  return slot;
}

[[gnu::noinline]] void make_room(Slot& slot) {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(lock);
  write_events(slot);
}

/** The calling thread's slot with room for an event; null if there is no recording. */
[[nodiscard, gnu::always_inline]] inline Slot* slot_for_event() {
  if (!is_on()) [[unlikely]]
    return nullptr;
  Slot* slot = own_slot;
  if (slot == nullptr || slot->is_open == 0) [[unlikely]] {
    slot = open_own_slot();
    if (slot == nullptr) return nullptr;
  }
  if (slot->used > kChunkBytes - kLongestEvent) [[unlikely]] {
    make_room(*slot);
    if (!is_on()) return nullptr;
  }
  return slot;
}

void note_first(Slot& slot, std::uint64_t number) {
  slot.header.first_number = number;
  slot.before.number = number - 1;
  write_little(slot.chunk + kFirstNumberAt, number);
}

/** Writes an event of a kind. `write` gets the encoder. */
template <class Write>
[[gnu::always_inline]] inline void add_event(Slot& slot, EventKind kind, std::uint64_t number,
                                             Write write) {
  if (slot.is_empty()) [[unlikely]]
    note_first(slot, number);
  EventEncoder encoder(slot.before, slot.end());
  encoder.begin(static_cast<std::uint8_t>(kind), number, qk::read_ticks(has_counter));
  write(encoder);
  slot.set_end(encoder.finish());
  ++slot.recorded;
  ++slot.header.events;
  if (number > slot.header.highest_number) slot.header.highest_number = number;
}

/** Slots are nobody's at first. */
void close_slots() QK_REQUIRES(lock) {
  assert_recorder_held();
  for (Slot* slot = all_slots; slot != nullptr; slot = slot->next) {
    slot->is_open = 0;
    slot->recorded = 0;
  }
  threads = 0;
}

/** Not longer than a recording: the library can be unloaded. */
void drop_end_of_thread() QK_REQUIRES(lock) {
  assert_recorder_held();
  if (has_key) pthread_key_delete(end_of_thread);
  has_key = false;
}

void provide_end_of_thread() QK_REQUIRES(lock) {
  assert_recorder_held();
  if (!has_key) has_key = pthread_key_create(&end_of_thread, give_slot_back) == 0;
}

/** Takes the slots out of the files, which stay as they are. */
void unmap_slots() QK_REQUIRES(lock) {
  assert_recorder_held();
  for (Slot* slot = all_slots; slot != nullptr; slot = slot->next) {
    static_cast<void>(map_own_memory(slot->chunk));
  }
}

}  // namespace

bool begin_recording(std::string_view name, std::uint64_t limit) {
  assert_recorder_held();
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  close_slots();
  qk::store(dropped_up_to, 0);
  provide_end_of_thread();
  has_counter = qk::has_even_counter();
  start = qk::read_clock_in_ns(CLOCK_MONOTONIC);
  if (process_slot == nullptr) process_slot = add_slot();
  const int error = process_slot == nullptr ? ENOMEM : output.open(name, limit);
  if (error != 0) {
    tell("nothing is recorded to", name, error);
    leave_off();
    return false;
  }
  set_state(State::kOn);
  return open_slot(*process_slot, ChunkKind::kOpening, 0);
}

void finish_events() {
  assert_recorder_held();
  const qk::KeepErrno keep_errno;
  for (Slot* slot = all_slots; slot != nullptr; slot = slot->next) {
    if (slot != process_slot && slot->is_open != 0) write_events(*slot);
  }
}

void finish_recording() {
  assert_recorder_held();
  const qk::KeepErrno keep_errno;
  write_chunk(*process_slot);
  if (is_on()) output.remove_tail();
  leave_off();
}

void write_process_chunk() {
  assert_recorder_held();
  write_chunk(*process_slot);
  if (!is_on()) return;
  process_slot->header.kind = ChunkKind::kDefinitions;
  process_slot->header.flags = 0;
  begin_chunk(*process_slot);
}

void set_off() { set_state(State::kOff); }

void leave_off() {
  assert_recorder_held();
  const qk::KeepErrno keep_errno;
  set_state(State::kOff);
  output.close();
  drop_end_of_thread();
  unmap_slots();
  close_slots();
}

std::uint64_t events_recorded() {
  assert_recorder_held();
  std::uint64_t sum = 0;
  for (const Slot* slot = all_slots; slot != nullptr; slot = slot->next) sum += slot->recorded;
  return sum;
}

void leave_to_parent(bool awaits_own) {
  assert_recorder_held();
  const bool was_wanted = state_now() != State::kOff;
  leave_off();
  free_slots = nullptr;
  for (Slot* slot = all_slots; slot != nullptr; slot = slot->next) {
    if (slot == process_slot || slot == own_slot) continue;
    slot->next_free = free_slots;
    free_slots = slot;
  }
  if (was_wanted && awaits_own) set_state(State::kAwaited);
}

void made(std::uint64_t number, const EventBlock& block) {
  Slot* const slot = slot_for_event();
  if (slot == nullptr) return;
  const std::uint32_t pool = block.pool;
  const bool replaces = slot->set_aside_pool != 0 && slot->set_aside_pool == pool;
  slot->set_aside_pool = 0;
  add_event(*slot, EventKind::kMade, number,
            [&](EventEncoder& event) { event.made(block, replaces); });
}

void gone(EventKind kind, std::uint64_t number, std::uint32_t age, const EventBlock& block,
          bool is_unsure) {
  Slot* const slot = slot_for_event();
  if (slot == nullptr) return;
  if (kind != EventKind::kGone) {
    slot->set_aside_pool = kind == EventKind::kSetAside ? block.pool : 0;
  }
  add_event(*slot, kind, number, [&](EventEncoder& event) {
    event.which(age);
    if (is_unsure) event.unsure(block);
  });
}

void of_pool(EventKind kind, std::uint64_t number, std::uint32_t pool) {
  Slot* const slot = slot_for_event();
  if (slot == nullptr) return;
  add_event(*slot, kind, number, [&](EventEncoder& event) { event.pool(pool); });
}

void write_snapshot(std::uint64_t number, std::string_view name) {
  assert_recorder_held();
  const std::uint64_t nanoseconds = moment_now().nanoseconds;
  write_record(ChunkKind::kDefinitions, RecordType::kSnapshot, [&](auto& fields) {
    fields.number(number);
    fields.number(nanoseconds);
    fields.text(name);
  });
}

char* room_for_record(ChunkKind kind, std::size_t bytes) {
  assert_recorder_held();
  if (!is_on()) return nullptr;
  Slot& slot = *process_slot;
  const bool is_full = slot.used + bytes > kChunkBytes;
  if (slot.header.kind == kind && !is_full) return slot.end();
  const bool goes_on = slot.header.kind == kind && kind == ChunkKind::kLevels;
  write_chunk(slot);
  if (!is_on()) return nullptr;
  slot.header.kind = kind;
  slot.header.flags = goes_on ? kGoesOn : 0;
  begin_chunk(slot);
  return slot.end();
}

void add_record(const char* end) {
  assert_recorder_held();
  process_slot->set_end(end);
}

}  // namespace qk::mem::recording

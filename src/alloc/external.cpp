// What was made elsewhere: registration and deregistration.
#include <typeinfo>

#include "alloc/entry.h"
#include "diag/log.h"

namespace qk::mem {
namespace {

/** How something is registered; the numbers are the interface's. */
enum Registration : int { kExternalMemory = 0, kSingleObject = 1, kArrayOfObjects = 2 };

unsigned char kind_of(int type) {
  switch (type) {
    case kSingleObject:
      return kind::kObject;
    case kArrayOfObjects:
      return kind::kArray;
    default:
      return kind::kExternal;
  }
}

/** The letter under which a tracker goes. */
unsigned char release_letter(int type) {
  switch (type) {
    case kSingleObject:
      return event::kObjectReleased;
    case kArrayOfObjects:
      return event::kArrayReleased;
    default:
      return event::kFree;
  }
}

/** Whether a record was registered under another number. Allocated memory matches any. */
bool is_mismatched(unsigned char kind, int type) {
  switch (kind) {
    case kind::kExternal:
      return type != kExternalMemory;
    case kind::kObject:
      return type != kSingleObject;
    case kind::kArray:
      return type != kArrayOfObjects;
    default:
      return false;
  }
}

const char* name_of(int type) { return type == kSingleObject ? "object" : "array"; }

/** What a caller names: memory by its address, objects by their trackers. */
struct Subject {
  void* address;
  qk::MemTracker* tracker = nullptr;

  Subject(int type, void* ptr) : address(ptr) {
    if (type != kSingleObject && type != kArrayOfObjects) return;
    tracker = static_cast<qk::MemTracker*>(ptr);
    address = tracker == nullptr ? nullptr : tracker->address;
  }
};

/** Whether a handle takes registrations at all. */
bool takes_registrations(const qk_mem_handle& handle) {
  return handle.track != 0 || is_blockmgmt(handle);
}

void warn_of_second_record(qk_mem_handle& handle, const void* address, const Site& site) {
  const auto record = find_pointer(handle, address);
  if (!record) return;
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr already exists at %s:%d (allocated at %s:%d)\n",
                   site.routine, handle.id, Qk_mem_ptr_display_size, shown(address), site.file(),
                   site.line, record->file, int{record->line});
}

void warn_of_register_misuse(qk_mem_handle& handle, int type, const Subject& subject,
                             std::size_t size, const Site& site) {
  if (size == 0 && type != kExternalMemory) {
    qk_mem_write_log("   %s: WARNING: register of %zu at %s:%d\n", site.routine, size, site.file(),
                     site.line);
  }
  if (subject.address == nullptr) {
    qk_mem_write_log("   %s: WARNING: register of NULL pointer at %s:%d\n", site.routine,
                     site.file(), site.line);
  } else {
    warn_of_second_record(handle, subject.address, site);
  }
  if (subject.tracker != nullptr && subject.tracker->tracked_type() == typeid(void)) {
    qk_mem_write_log("   %s: WARNING: register of void %s at %s:%d\n", site.routine, name_of(type),
                     site.file(), site.line);
  }
}

/** Warns of what is wrong with the pointer itself; the result is its record. */
std::optional<qk_mem_ptr> warn_of_deregistered(qk_mem_handle& handle, int type, const void* address,
                                               const Site& site) {
  if (address == nullptr) {
    qk_mem_write_log("   %s: WARNING: deregister of NULL pointer at %s:%d\n", site.routine,
                     site.file(), site.line);
    return std::nullopt;
  }
  const auto record = find_pointer(handle, address);
  if (!record) {
    warn_not_found(site, handle.id, shown(address));
  } else if (is_mismatched(record->kind, type)) {
    qk_mem_write_log(
        "   %s: WARNING: deregister of mismatched type at %s:%d (allocated at %s:%d)\n",
        site.routine, site.file(), site.line, record->file, int{record->line});
  }
  return record;
}

void warn_of_deregister_misuse(qk_mem_handle& handle, int type, const Subject& subject,
                               const Site& site) {
  const auto record = warn_of_deregistered(handle, type, subject.address, site);
  if (subject.tracker == nullptr || !record || record->tracker == nullptr) return;
  if (subject.tracker->same_type(*record->tracker)) return;
  qk_mem_write_log(
      "   %s: WARNING: deregister of %s with %s typename '%s' at %s:%d (allocated as '%s' at %s:%d)\n",
      site.routine, name_of(type), type == kSingleObject ? "invalid" : "different",
      subject.tracker->tracked_type().name(), site.file(), site.line,
      record->tracker->tracked_type().name(), record->file, int{record->line});
}

/**
 * The object's own end is the caller's affair: the tracker goes without it. Its record goes first,
 * since the tracker's memory can be another thread's next tracker.
 */
void destroy_tracker(qk_mem_handle& handle, qk::MemTracker* tracker, int type, const Site& site) {
  if (tracker == nullptr) return;
  qk_mem_tracker(&handle, tracker, release_letter(type), site.path, site.line, site.switches);
  tracker->address = nullptr;
  delete tracker;
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_iregister(int hid, int type, void* ptr, const void* /*unused*/, size_t size,
                                 const char* file, int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_iregister";
  ensure_started();
  if (bypasses_tracking(hid)) return;
  const Site site(routine, file, line, switches_of(Routine::kRegister));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr) return;
  const Subject subject(type, ptr);
  if (warns(site)) warn_of_register_misuse(*handle, type, subject, size, site);
  if (!takes_registrations(*handle) || subject.address == nullptr) return;
  qk::store(handle->registered, 1);
  const auto record = record_pointer(*handle, subject.address, kind_of(type),
                                     {1, size, subject.tracker}, site, Totals::kData);
  if (!record) return;
  announce_made(lines::kRegistered, site, hid, *record, gain_of(*record));
  if (subject.tracker != nullptr) {
    qk_mem_tracker(handle, subject.tracker, record->kind, file, line, site.switches);
  }
  dump_control_blocks(*site.switches);
}

extern "C" void qk_mem_ideregister(int hid, int type, void* ptr, const char* file, int line) {
  using namespace qk::mem;
  static constexpr char routine[] = "qk_mem_ideregister";
  ensure_started();
  const Site site(routine, file, line, switches_of(Routine::kDeregister));
  qk_mem_handle* handle = open_handle(hid, site);
  if (handle == nullptr || bypasses_tracking(hid)) return;
  const Subject subject(type, ptr);
  if (warns(site)) warn_of_deregister_misuse(*handle, type, subject, site);
  if (!takes_registrations(*handle) || subject.address == nullptr) return;
  const auto taken = take_pointer(*handle, subject.address, Totals::kData);
  if (!taken) {
    if (reports(site)) warn_not_found(site, hid, shown(subject.address));
    return;
  }
  next_seq();
  // The event is the bare type number, in the line and in the trace file alike.
  announce_released(lines::kDeregistered, site, hid, static_cast<unsigned char>(type),
                    taken->record, release_of(taken->record));
  destroy_tracker(*handle, taken->record.tracker, type, site);
  dump_control_blocks(*site.switches);
}

// Registration and deregistration of memory and objects that were made elsewhere.
#include <typeinfo>

#include "accounting/walks.h"
#include "alloc/shared_steps.h"
#include "check/report/look.h"
#include "diag/log.h"
#include "profile/report/misuse.h"

namespace qk::mem {
namespace {

/** What is registered. The numbers are part of the interface. */
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

/** The event letter for releasing a tracker. */
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

/**
 * Whether a record was registered as another type than `type`. Allocated memory matches every type.
 */
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

/** What is registered: memory is passed by its address, objects and arrays by their trackers. */
struct Subject {
  void* address;
  qk::MemTracker* tracker = nullptr;

  Subject(int type, void* ptr) : address(ptr) {
    if (type != kSingleObject && type != kArrayOfObjects) return;
    tracker = static_cast<qk::MemTracker*>(ptr);
    address = tracker == nullptr ? nullptr : tracker->address;
  }
};

/** Whether a handle accepts registrations. */
bool takes_registrations(const qk_mem_handle& handle) {
  return handle.track != 0 || is_blockmgmt(handle);
}

void warn_of_second_record(qk_mem_handle& handle, const void* address, const CallContext& context) {
  const auto record = find_pointer(handle, address);
  if (!record) return;
  qk_mem_write_log("   %s: WARNING: %3d [%.*zx] ptr already exists at %s:%d (allocated at %s:%d)\n",
                   context.routine, handle.id, Qk_mem_ptr_display_size, as_number(address),
                   context.file(), context.line, record->file, int{record->line});
  profile::tell_of_wrong_call(handle, *record, profile::WrongCall::kSecondRecord,
                              Routine::kRegister, context);
}

void warn_of_register_misuse(qk_mem_handle& handle, int type, const Subject& subject,
                             std::size_t size, const CallContext& context) {
  if (size == 0 && type != kExternalMemory) {
    qk_mem_write_log("   %s: WARNING: register of %zu at %s:%d\n", context.routine, size,
                     context.file(), context.line);
  }
  if (subject.address == nullptr) {
    qk_mem_write_log("   %s: WARNING: register of NULL pointer at %s:%d\n", context.routine,
                     context.file(), context.line);
  } else {
    warn_of_second_record(handle, subject.address, context);
  }
  if (subject.tracker != nullptr && subject.tracker->tracked_type() == typeid(void)) {
    qk_mem_write_log("   %s: WARNING: register of void %s at %s:%d\n", context.routine,
                     name_of(type), context.file(), context.line);
  }
}

/** Warns of misuse that the address itself shows, and returns the record of the address. */
std::optional<qk_mem_ptr> warn_of_deregistered(qk_mem_handle& handle, int type, const void* address,
                                               const CallContext& context) {
  if (address == nullptr) {
    qk_mem_write_log("   %s: WARNING: deregister of NULL pointer at %s:%d\n", context.routine,
                     context.file(), context.line);
    return std::nullopt;
  }
  const auto record = find_pointer(handle, address);
  if (!record) {
    warn_not_found(context, handle.id, as_number(address));
  } else if (is_mismatched(record->kind, type)) {
    qk_mem_write_log(
        "   %s: WARNING: deregister of mismatched type at %s:%d (allocated at %s:%d)\n",
        context.routine, context.file(), context.line, record->file, int{record->line});
  }
  return record;
}

void warn_of_deregister_misuse(qk_mem_handle& handle, int type, const Subject& subject,
                               const CallContext& context) {
  const auto record = warn_of_deregistered(handle, type, subject.address, context);
  if (subject.tracker == nullptr || !record || record->tracker == nullptr) return;
  if (subject.tracker->same_type(*record->tracker)) return;
  qk_mem_write_log(
      "   %s: WARNING: deregister of %s with %s typename '%s' at %s:%d (allocated as '%s' at %s:%d)\n",
      context.routine, name_of(type), type == kSingleObject ? "invalid" : "different",
      subject.tracker->tracked_type().name(), context.file(), context.line,
      record->tracker->tracked_type().name(), record->file, int{record->line});
}

/**
 * Deletes a tracker without the object, which stays with the caller. The tracker's record is
 * removed first, because another thread's next tracker can be given the same memory.
 */
void destroy_tracker(qk_mem_handle& handle, qk::MemTracker* tracker, int type,
                     const CallContext& context) {
  if (tracker == nullptr) return;
  qk_mem_tracker(&handle, tracker, release_letter(type), context.path, context.line,
                 context.switches);
  tracker->address = nullptr;
  delete tracker;
}

}  // namespace
}  // namespace qk::mem

extern "C" void qk_mem_iregister(int hid, int type, void* ptr, const void* /*unused*/, size_t size,
                                 const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const check::DueLook due_look;
  if (bypasses_tracking(hid)) return;
  const CallContext context(Routine::kRegister, file, line);
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle == nullptr) return;
  const Subject subject(type, ptr);
  if (checks_misuse(context)) warn_of_register_misuse(*handle, type, subject, size, context);
  if (!takes_registrations(*handle) || subject.address == nullptr) return;
  qk::store(handle->registered, 1);
  if (is_walked(*handle) && subject.tracker != nullptr) {
    tell_walks_of_object(*handle, subject.address);
  }
  const auto record =
      record_pointer(*handle, subject.address, kind_of(type), {1, size, subject.tracker}, context);
  if (!record) return;
  announce_recorded(lines::kRegistered, context, hid, *record, gain_of(*record));
  if (subject.tracker != nullptr) {
    qk_mem_tracker(handle, subject.tracker, record->kind, file, line, context.switches);
  }
  dump_control_blocks(*context.switches);
}

extern "C" void qk_mem_ideregister(int hid, int type, void* ptr, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const check::DueLook due_look;
  const CallContext context(Routine::kDeregister, file, line);
  qk_mem_handle* handle = look_up_handle(hid, context);
  if (handle == nullptr || bypasses_tracking(hid)) return;
  const Subject subject(type, ptr);
  if (is_walked(*handle) && was_released_by_walk(*handle, subject.address)) return;
  if (checks_misuse(context)) warn_of_deregister_misuse(*handle, type, subject, context);
  if (!takes_registrations(*handle) || subject.address == nullptr) return;
  const auto removed =
      remove_pointer(*handle, subject.address, Removal::kByDeregister, {file, line});
  if (!removed) {
    if (logs_errors(context)) warn_not_found(context, hid, as_number(subject.address));
    profile::tell_of_unknown_address(*handle, subject.address, Routine::kDeregister, context);
    return;
  }
  if (is_mismatched(removed->record.kind, type)) {
    profile::tell_of_wrong_call(*handle, removed->record, profile::WrongCall::kOtherType,
                                Routine::kDeregister, context);
  }
  next_seq();
  // The event letter is the bare type number, both in the line and in the trace file.
  announce_released(lines::kDeregistered, context, hid, static_cast<unsigned char>(type),
                    removed->record, loss_of(removed->record));
  destroy_tracker(*handle, removed->record.tracker, type, context);
  dump_control_blocks(*context.switches);
}

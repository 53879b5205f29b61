#include "accounting/recording.h"

#include "core/kinds.h"
#include "diag/event.h"
#include "diag/failure.h"
#include "diag/log.h"
#include "profile/misuses.h"

namespace qk::mem {
namespace {

/** Lines about a pointer array have always named the call that reserves a slot in it. */
constexpr char kRoutine[] = "qk_mem_new_ptr";

/** Makes room for the record of an address. False if that fails, which is reported. */
bool grow(qk_mem_handle& handle, const void* address, const CallContext& context) {
  const ArrayGrowth growth = grow_array(handle, address, context.location());
  if (growth.failed) {
    report_failure(context, "realloc of %zu at %s:%d of a->ptrs failed", growth.bytes,
                   context.file(), context.line);
    return false;
  }
  if (growth.added != 0) {
    announce_recorded(lines::kAllocated, context, handle.id, growth.array_record,
                      static_cast<long>(growth.added), RowLine::kOfCaller);
  }
  return true;
}

void warn_of_lost_array(const CallContext& context) {
  if (!logs_errors(context)) return;
  qk_mem_write_log("   %s: WARNING: ptr array not large enough\n", context.routine);
}

}  // namespace

Insertion insert_or_grow(qk_mem_handle& handle, const qk_mem_ptr& record, EventCount event,
                         const profile::Origin& origin, const CallContext& context) {
  while (true) {
    const Insertion insertion = insert_pointer(handle, record, event, origin);
    switch (insertion.result) {
      case InsertResult::kInserted:
      case InsertResult::kUnmarked:
        return insertion;
      case InsertResult::kArrayLost:
        warn_of_lost_array(context.as(kRoutine));
        profile::note_lost_records();
        return insertion;
      case InsertResult::kArrayFull:
        if (grow(handle, record.address, context.as(kRoutine))) break;
        profile::note_lost_records();
        return insertion;
    }
  }
}

std::optional<qk_mem_ptr> record_pointer(qk_mem_handle& handle, void* address, unsigned char kind,
                                         const Contents& contents, const CallContext& context) {
  check::NewBlock block = {address, {}};
  return record_block(handle, block, kind, contents, context);
}

std::optional<qk_mem_ptr> record_block(qk_mem_handle& handle, check::NewBlock& block,
                                       unsigned char kind, const Contents& contents,
                                       const CallContext& context) {
  qk_mem_ptr record = {.address = block.address,
                       .tracker = contents.tracker,
                       .file = context.file(),
                       .count = contents.count,
                       .size = contents.size,
                       .seq = 0,
                       .line = static_cast<std::uint16_t>(context.line),
                       .kind = kind,
                       .baselined = 0};
  profile::Site* const site =
      belongs_to_program(kind) ? site_for(handle, bytes_of(record), context) : nullptr;
  Insertion insertion = insert_or_grow(handle, record, EventCount::kCounted,
                                       {site, block.layout.flags, block.era}, context);
  if (insertion.result != InsertResult::kInserted && block.layout.front != 0) {
    block.give_up_front(bytes_of(record));
    record.address = block.address;
    if (insertion.result == InsertResult::kUnmarked) {
      insertion = insert_or_grow(handle, record, EventCount::kCounted, {site}, context);
    }
  }
  if (insertion.result != InsertResult::kInserted) return std::nullopt;
  return insertion.record;
}

}  // namespace qk::mem

#include "profile/report/known_blocks.h"

#include <mutex>

#include "core/handle_array.h"
#include "core/kinds.h"
#include "core/registry.h"
#include "formats/figures.h"
#include "profile/events.h"
#include "profile/report/text_parts.h"
#include "support/live_threads.h"
#include "support/text.h"
#include "table/slot.h"

namespace qk::mem::profile {
namespace {

/** A live block, and where its record is. */
struct Sighting {
  const void* begin;
  std::uint64_t offset;
  std::uint64_t bytes;
  const qk_mem_handle* handle;
  AllocationPlace place;
  const qk_mem_ptr_array* array;  // null if it has no record
  std::int32_t slot;
  Mark mark;  // without a record
};

/** The best of the blocks that were seen so far. */
class Sightings {
 public:
  explicit Sightings(const void* address) : address_(address) {}

  [[nodiscard]] std::uint64_t offset_of(const void* begin) const {
    return offset_in(begin, address_);
  }

  /** Whether a block can be one of the best, which is not so of almost all. */
  [[nodiscard]] static bool matters(std::uint64_t offset, std::uint64_t bytes) {
    return is_in_block(offset, bytes) || distance_of(offset, bytes) < kNear;
  }

  void consider(const Sighting& block) {
    if (is_in_block(block.offset, block.bytes)) {
      if (!around_ || block.offset < around_->offset) around_ = block;
      return;
    }
    const std::uint64_t distance = distance_of(block.offset, block.bytes);
    if (!nearest_ || distance < distance_of(nearest_->offset, nearest_->bytes)) nearest_ = block;
  }

  [[nodiscard]] const std::optional<Sighting>& around() const { return around_; }
  [[nodiscard]] const std::optional<Sighting>& nearest() const { return nearest_; }

 private:
  const void* address_;
  std::optional<Sighting> around_;
  std::optional<Sighting> nearest_;
};

void look_at_records(const qk_mem_handle& handle, Sightings& sightings) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  for (const qk_mem_ptr_array& array : handle.ptrs) {
    const std::int32_t slots = slots_of(array);
    for (std::int32_t slot = 0; slot < slots; ++slot) {
      const auto record = record_of(array.ptrs[slot]);
      if (!record || !belongs_to_program(record->kind)) continue;
      const std::uint64_t offset = sightings.offset_of(record->address);
      const std::uint64_t bytes = bytes_of(*record);
      if (!Sightings::matters(offset, bytes)) continue;
      sightings.consider({record->address,
                          offset,
                          bytes,
                          &handle,
                          {record->file, record->line},
                          &array,
                          slot,
                          {}});
    }
  }
}

/** Whether to wait for locks of handles. */
enum class Locks : std::uint8_t { kWait, kTry };

/** Holds the lock of a handle, if it has one and could be taken. */
class LockAttempt {
 public:
  LockAttempt(const qk_mem_handle& handle, Locks locks) : mtx_(handle.mtx) {
    if (mtx_ == nullptr) return;
    if (locks == Locks::kWait) {
      mtx_->lock();
    } else if (mtx_->held() || !mtx_->try_lock()) {
      mtx_ = nullptr;
      is_busy_ = true;
    }
  }
  LockAttempt(const LockAttempt&) = delete;
  LockAttempt& operator=(const LockAttempt&) = delete;
  ~LockAttempt() {
    if (mtx_ != nullptr) mtx_->unlock();
  }

  [[nodiscard]] bool is_busy() const { return is_busy_; }

 private:
  qk::Mtx* mtx_;
  bool is_busy_ = false;
};

/** Whether another thread can be using a handle that has no lock. */
bool is_out_of_reach(const qk_mem_handle& handle) {
  return handle.mtx == nullptr && qk::has_other_threads();
}

/** False if a lock is busy. */
bool look_at_unrecorded(const qk_mem_handle& handle, Sightings& sightings, Locks locks) {
  if (handle.track != 0 || !is_watched(handle) || is_out_of_reach(handle)) return true;
  const LockAttempt lock(handle, locks);
  if (lock.is_busy()) return false;
  Pool& pool = pool_of(handle);
  for (const Unrecorded& memory : pool.unrecorded.entries()) {
    if (memory.address == nullptr) continue;
    const std::uint64_t offset = sightings.offset_of(memory.address);
    if (!Sightings::matters(offset, memory.bytes)) continue;
    sightings.consider({memory.address, offset, memory.bytes, &handle, place_of(pool, memory.mark),
                        nullptr, 0, memory.mark});
  }
  return true;
}

/** The number of an event of which a mark has the lower half: the last one that has it. */
std::uint64_t whole_event(std::uint32_t lower_half) {
  constexpr std::uint64_t kHalf = std::uint64_t{1} << 32;
  const std::uint64_t last = events_so_far();
  const std::uint64_t event = (last & ~(kHalf - 1)) | lower_half;
  return event <= last || event < kHalf ? event : event - kHalf;
}

std::uint64_t event_of(Mark mark) {
  const std::uint32_t site = mark.site_number();
  return site == kNoSite || site == kFromBeforeSite ? 0 : whole_event(mark.event);
}

/** The event of a recorded block, whose record can be gone by now. 0 if a lock is busy. */
std::uint64_t event_of_record(const Sighting& block, Locks locks) {
  if (!is_watched(*block.handle) || is_out_of_reach(*block.handle)) return 0;
  const LockAttempt lock(*block.handle, locks);
  if (lock.is_busy() || recorded_address(block.array->ptrs[block.slot]) != block.begin) return 0;
  const Mark* const mark =
      marks_of(*block.handle, pool_of(*block.handle), *block.array).of(block.slot);
  return mark == nullptr ? 0 : event_of(*mark);
}

std::optional<LiveBlock> live_block(const std::optional<Sighting>& seen, Locks locks) {
  if (!seen) return std::nullopt;
  const std::uint64_t event =
      seen->array == nullptr ? event_of(seen->mark) : event_of_record(*seen, locks);
  return LiveBlock{seen->offset, seen->bytes, name_of(*seen->handle), seen->place, event};
}

/** Nothing if a lock is busy. */
std::optional<LiveBlocks> find_around(const void* address, Locks locks) QK_REQUIRES(Qk_mem_mtx) {
  assert_registry_held();
  Sightings sightings(address);
  bool is_complete = true;
  for_each_handle([&](const qk_mem_handle& handle) {
    assert_registry_held();
    look_at_records(handle, sightings);
    if (!look_at_unrecorded(handle, sightings, locks)) is_complete = false;
  });
  if (!is_complete) return std::nullopt;
  if (sightings.around()) return LiveBlocks{live_block(sightings.around(), locks), {}};
  return LiveBlocks{{}, live_block(sightings.nearest(), locks)};
}

}  // namespace

HandleName name_of(const qk_mem_handle& handle) {
  HandleName name = {handle.id, {}};
  qk::copy_text(name.tag, sizeof name.tag, handle.tag->name);
  return name;
}

LiveBlocks find_live_blocks(const void* address) {
  const RegistryLock lock;
  return *find_around(address, Locks::kWait);
}

std::optional<LiveBlocks> try_to_find_live_blocks(const void* address) {
  if (Qk_mem_mtx.held()) return std::nullopt;
  const std::unique_lock lock(Qk_mem_mtx, std::try_to_lock);
  if (!lock.owns_lock()) return std::nullopt;
  assert_registry_held();
  return find_around(address, Locks::kTry);
}

AllocationPlace place_of(Pool& pool, Mark mark) {
  if (mark.site_number() == kNoSite) return {};
  const Site& site = site_in(pool, mark.site_number());
  return {site.key.file, site.key.line, site.number == kFromBeforeSite};
}

void put_handle(qk::Line& line, std::int32_t hid, const char* tag) {
  line.put("handle ").number(static_cast<std::uint64_t>(hid));
  if (*tag != '\0') line.put(' ').put(tag);
}

void put_handle(qk::Line& line, const HandleName& handle) {
  put_handle(line, handle.hid, handle.tag);
}

void put_allocation(qk::Line& line, const char* verb, const AllocationPlace& place) {
  if (place.is_from_before) {
    line.put(", ").put(verb).put(" before the profile was on");
  } else if (place.file != nullptr) {
    line.put(", ").put(verb).put(" at ").put(place.file).put(':').number(place.line);
  }
}

qk::Line& put_offset(qk::Line& line, std::uint64_t offset, std::uint64_t bytes, const char* what) {
  const auto put_bytes = [&line](std::uint64_t count) -> qk::Line& {
    return line.put(count_figure(count).text()).put(" byte").put(plural(count));
  };
  if (offset == 0) {
    line.put("the start of a ");
  } else if (offset < bytes) {
    put_bytes(offset).put(" inside a ");
  } else if (is_in_front(offset)) {
    put_bytes(distance_of(offset, bytes)).put(" in front of a ");
  } else if (offset == bytes) {
    line.put("just past the end of a ");
  } else {
    put_bytes(offset - bytes).put(" past the end of a ");
  }
  return line.put(what).put(" of ").put(count_figure(bytes).text());
}

}  // namespace qk::mem::profile

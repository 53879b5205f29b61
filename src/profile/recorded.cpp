#include "profile/recorded.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "profile/booking.h"
#include "profile/copies.h"
#include "profile/notes.h"
#include "profile/recorded_definitions.h"
#include "support/file_names.h"
#include "support/keep_errno.h"
#include "support/line.h"
#include "support/mtx_lock.h"
#include "support/no_cancellation.h"
#include "support/ticks.h"

namespace qk::mem::profile {
namespace {

using recording::ChunkKind;
using recording::EventBlock;
using recording::EventKind;
using recording::RecordType;

constinit const char* pattern_of_record = nullptr;
constinit std::uint64_t limit_of_record = 0;
/** What these have made may not be in the recording: it began later, or they were dropped. */
constinit std::uint64_t events_before = 0;
constinit std::uint64_t dropped_before = 0;  // the last levels were written

/** A text of the system's about this process, with blanks in place of nulls. */
class ProcessText {
 public:
  std::string_view link(const char* path) {
    return {text_, size_of(::readlink(path, text_, kMost))};
  }
  std::string_view file(const char* path) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    std::size_t size = size_of(::read(file, text_, kMost));
    ::close(file);
    if (size != 0 && text_[size - 1] == '\0') --size;
    std::replace(text_, text_ + size, '\0', ' ');
    return {text_, size};
  }

 private:
  static constexpr std::size_t kMost = 4096;
  static std::size_t size_of(ssize_t result) {
    return result < 0 ? 0 : static_cast<std::size_t>(result);
  }

  char text_[kMost] = {};
};

void put_process() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint64_t now = qk::read_clock_in_ns(CLOCK_REALTIME);
  ProcessText path;
  ProcessText line;
  const std::string_view program = path.link("/proc/self/exe");
  const std::string_view command = line.file("/proc/self/cmdline");
  recording::write_record(ChunkKind::kOpening, RecordType::kProcess, [&](auto& fields) {
    fields.number(static_cast<std::uint64_t>(::getpid()));
    fields.number(now);
    fields.text(program);
    fields.text(command);
    fields.number(qk::has_even_counter() ? 1 : 0);
  });
}

void write_level(std::uint32_t site, const Pool& pool, std::uint64_t blocks, std::uint64_t bytes)
    QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (blocks == 0 && bytes == 0) return;
  recording::write_record(ChunkKind::kLevels, RecordType::kLevel, [&](auto& fields) {
    fields.number(site);
    if (site == 0) fields.number(pool.number);
    fields.number(blocks);
    fields.number(bytes);
  });
}

/** What is live, by site. */
void write_levels() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  for (std::uint32_t i = 1; i <= defined_pools; ++i) {
    const Pool& pool = pools.at(i);
    write_level(0, pool,
                qk::load(pool.from_before.live_blocks) + qk::load(pool.not_recorded.live_blocks),
                qk::load(pool.from_before.live_bytes) + qk::load(pool.not_recorded.live_bytes));
  }
  for (std::uint32_t i = 1; i <= defined_sites; ++i) {
    const Site& site = sites.at(i);
    write_level(i, pools.at(site.key.pool), qk::load(site.live_blocks), qk::load(site.live_bytes));
  }
}

void put_sums_of_pools() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  for (std::uint32_t i = 1; i <= defined_pools; ++i) {
    const Pool& pool = pools.at(i);
    const PoolSums sums = sums_of(pool);
    recording::write_record(ChunkKind::kClosing, RecordType::kPoolSums, [&](auto& fields) {
      fields.number(i);
      fields.number(sums.live_blocks);
      fields.number(qk::load(pool.level.live));
      fields.number(pool.recorded_blocks);
      fields.number(pool.recorded_bytes);
    });
  }
}

void put_sums() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  std::uint64_t blocks = 0;
  for (std::uint32_t i = 1; i <= defined_pools; ++i) blocks += sums_of(pools.at(i)).live_blocks;
  const Level level = whole_now();
  const std::uint64_t events = recording::events_recorded();
  recording::write_record(ChunkKind::kClosing, RecordType::kProcessSums, [&](auto& fields) {
    fields.number(events);
    fields.number(blocks);
    fields.number(level.live);
    fields.number(level.highest);
    fields.number(level.highest_event);
  });
}

using RecordName = std::array<char, PATH_MAX>;

/** A later copy of the library would write into the file of the first one. */
std::string_view name_record(RecordName& name) {
  const qk::FileNameFacts facts = {
      .start = static_cast<std::int64_t>(start_of_clock() / 1'000'000'000), .number = 1};
  if (!qk::expand_file_name(pattern_of_record, facts, name).fits) return pattern_of_record;
  std::string_view text = name.data();
  const std::uint32_t copy = number_of_this_copy();
  if (copy == 1) return text;
  qk::Line mark;
  const std::string_view more = mark.put(".copy").number(copy).finish();
  if (text.size() + more.size() >= name.size()) return pattern_of_record;
  more.copy(name.data() + text.size(), more.size());
  return {name.data(), text.size() + more.size()};
}

void set_unusual(bool is_unusual) {
  if (is_unusual) {
    qk::set_bits(unusual_made, unusual::kRecorded);
    qk::set_bits(unusual_gone, unusual::kRecorded);
  } else {
    qk::clear_bits(unusual_made, unusual::kRecorded);
    qk::clear_bits(unusual_gone, unusual::kRecorded);
  }
}

void begin_held() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  RecordName name = {};
  forget_definitions();
  qk::store(events_before, events_so_far());
  for (std::uint32_t i = 1; i <= pools.count(); ++i) {
    pools.at(i).recorded_blocks = 0;
    pools.at(i).recorded_bytes = 0;
  }
  qk::store(dropped_before, 0);
  if (!recording::begin_recording(name_record(name), limit_of_record)) return set_unusual(false);
  put_process();
  define_all();
  write_levels();
  recording::write_process_chunk();
  set_unusual(recording::is_on());
}

/** The child of a fork begins a recording of its own. Other threads of it wait for that. */
[[gnu::noinline]] void begin_awaited() {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(recording::lock);
  if (recording::state_now() == recording::State::kAwaited) begin_held();
}

/** If events were dropped, what is live now is the beginning of those that come. */
void write_levels_anew() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint64_t dropped = qk::load(recording::dropped_up_to);
  if (dropped == qk::load(dropped_before)) return;
  qk::store(dropped_before, dropped);
  // Whoever begins to read here knows no older block: its release has to say what it is.
  qk::store(events_before, events_so_far());
  define_all();
  write_levels();
  recording::write_process_chunk();
}

[[gnu::noinline]] void note_what_was_dropped() {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(recording::lock);
  write_levels_anew();
}

[[gnu::noinline]] bool is_still_wanted() {
  const recording::State now = recording::state_now();
  if (now == recording::State::kOn) {
    note_what_was_dropped();
    return true;
  }
  if (now == recording::State::kAwaited) {
    begin_awaited();
  } else {
    set_unusual(false);
  }
  return recording::is_on();
}

/** Whether an event has to be told. If the recording has ended by itself, no other one will. */
[[gnu::always_inline]] inline bool is_wanted() {
  if (recording::is_on() && qk::load(recording::dropped_up_to) == qk::load(dropped_before))
      [[likely]] {
    return true;
  }
  return is_still_wanted();
}

[[gnu::always_inline]] inline void tell_made(Pool& pool, const Site& site, std::uint64_t event,
                                             RecordedBlock block) {
  if (!is_wanted()) return;
  see_that_is_defined(site.number, pool.number);
  ++pool.recorded_blocks;
  pool.recorded_bytes += block.bytes;
  recording::made(event, {recorded_site(site.number), pool.number,
                          reinterpret_cast<std::uintptr_t>(block.address), block.bytes});
}

[[gnu::always_inline]] inline void tell_gone(EventKind kind, const Pool& pool, Mark mark,
                                             std::uint64_t event, RecordedBlock block) {
  if (!is_wanted()) return;
  const std::uint32_t site = mark.site_number();
  see_that_is_defined(site, pool.number);
  const std::uint32_t age = static_cast<std::uint32_t>(event) - mark.event;
  const bool is_unsure = site == kNotRecordedSite || event - age <= qk::load(events_before);
  recording::gone(kind, event, age,
                  {recorded_site(site), pool.number,
                   reinterpret_cast<std::uintptr_t>(block.address), block.bytes},
                  is_unsure);
}

bool has_own_file_in_child() { return std::strstr(pattern_of_record, "%p") != nullptr; }

}  // namespace

void record_made(Pool& pool, const Site& site, std::uint64_t event, RecordedBlock block) {
  tell_made(pool, site, event, block);
}

void record_gone(EventKind kind, const Pool& pool, Mark mark, std::uint64_t event,
                 RecordedBlock block) {
  tell_gone(kind, pool, mark, event, block);
}

void note_made_unusually(qk_mem_handle& handle, SlotPlace place, const Origin& origin) {
  const bool single_threaded = qk::is_single_threaded();
  Pool& pool = pool_of(handle);
  const Marks& marks = marks_of(handle, pool, place.array);
  const RecordedBlock block = block_in(place);
  const bool is_usual =
      qk::is_equal(unusual_made, unusual::kRecorded) && origin.site != nullptr &&
      origin.flags == 0 && marks.has(place.index) &&
      Booking::is_usual(pool, static_cast<std::int64_t>(block.bytes), single_threaded);
  if (!is_usual) [[unlikely]]
    return note_made(handle, place, origin);
  const Booking booking = Booking::of_usual_event(pool, single_threaded);
  marks.at(place.index) = booking.mark_for(*origin.site);
  tell_made(pool, *origin.site, booking.event(), block);
  booking.made(*origin.site, block.bytes, {block.bytes, 1});
}

bool note_gone_unusually(qk_mem_handle& handle, SlotPlace place, const history::Release& release) {
  const bool single_threaded = qk::is_single_threaded();
  Pool& pool = pool_of(handle);
  const Mark mark = mark_in(handle, place);
  const RecordedBlock block = block_in(place);
  const bool is_usual =
      qk::is_equal(unusual_gone, unusual::kRecorded) && mark.site != kNoSite && mark.is_plain() &&
      Booking::is_usual(pool, -static_cast<std::int64_t>(block.bytes), single_threaded);
  if (!is_usual) [[unlikely]] {
    if (is_frozen() || mark.needs_care()) return false;
    note_gone(handle, place, release);
    return true;
  }
  remember(pool, block.address, block.bytes, mark, release);
  const Booking booking = Booking::of_usual_event(pool, single_threaded);
  tell_gone(EventKind::kGone, pool, mark, booking.event(), block);
  booking.gone(mark, {block.bytes, 1});
  return true;
}

void record_made_and_lost(Pool& pool, std::uint64_t event, RecordedBlock block) {
  if (!is_wanted()) return;
  record_made(pool, pool.not_recorded, event, block);
  recording::gone(EventKind::kGone, event, 0, {}, false);
}

void record_snapshot(std::uint64_t event, std::string_view name) {
  if (!is_recorded()) return;
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(recording::lock);
  if (recording::is_on()) recording::write_snapshot(event, name);
}

void record_of_pool(EventKind kind, const Pool& pool, std::uint64_t event) {
  if (!is_wanted()) return;
  see_that_is_defined(0, pool.number);
  recording::of_pool(kind, event, pool.number);
}

void begin_record(const char* pattern, std::uint64_t limit) {
  if (is_recorded()) end_record();
  const qk::MtxLock held(recording::lock);
  pattern_of_record = pattern;
  limit_of_record = limit;
  begin_held();
}

void end_record() {
  set_unusual(false);
  const qk::MtxLock held(recording::lock);
  if (recording::is_on()) {
    recording::finish_events();
    define_all();
    write_levels_anew();
    put_sums_of_pools();
    put_sums();
    recording::finish_recording();
  } else {
    recording::leave_off();
  }
}

void abandon_record() {
  set_unusual(false);
  recording::set_off();
}

bool is_recorded_to(const char* pattern) {
  return is_recorded() && recording::state_now() != recording::State::kOff &&
         std::strcmp(pattern, pattern_of_record) == 0;
}

void leave_record_to_parent() {
  if (!is_recorded()) return;
  const qk::MtxLock held(recording::lock);
  recording::leave_to_parent(has_own_file_in_child());
  set_unusual(recording::state_now() == recording::State::kAwaited);
}

}  // namespace qk::mem::profile

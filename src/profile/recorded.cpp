#include "profile/recorded.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "profile/copies.h"
#include "profile/labels.h"
#include "profile/stacks.h"
#include "support/file_names.h"
#include "support/keep_errno.h"
#include "support/known_paths.h"
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

/** How much of the tables is defined in the recording. */
struct Defined {
  std::uint32_t stacks;
  std::uint32_t texts;  // numbers that were given out
  std::uint64_t modules;
  const qk::KnownModule* newest_module;
};
constinit Defined defined QK_GUARDED_BY(recording::lock) = {};
constinit std::uint32_t defined_sites = 0;  // it grows under that lock, and each event asks for it
constinit std::uint32_t defined_pools = 0;

/** Texts that were defined not long ago, by their addresses: those never change. */
struct DefinedText {
  const char* text;
  std::uint32_t number;
};
constinit DefinedText recent_texts[256] QK_GUARDED_BY(recording::lock) = {};

std::string_view cut(std::string_view text) { return text.substr(0, recording::kLongestText); }

std::uint32_t define_text(std::string_view text) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (text.empty()) return 0;
  const std::uint32_t number = ++defined.texts;
  recording::write_record(ChunkKind::kDefinitions, RecordType::kText, [&](auto& fields) {
    fields.number(number);
    fields.text(cut(text));
  });
  return number;
}

/** The number of a file's path, by its name. */
std::uint32_t number_of_path(const char* name) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (name == nullptr) return 0;
  DefinedText& recent = recent_texts[reinterpret_cast<std::uintptr_t>(name) / 8 % 256];
  if (recent.text != name) recent = {name, define_text(qk::known_path_of(name))};
  return recent.number;
}

std::uint32_t define_label(std::uint32_t number) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  if (number == 0) return 0;
  qk::Line line;
  put_label(line, number);
  return define_text(line.finish());
}

void define_stack(std::uint32_t number) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const Stack stack = stack_numbered(number);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kStack, [&](auto& fields) {
    fields.number(number);
    fields.number(static_cast<std::uint64_t>(stack.depth));
    std::uintptr_t before = 0;
    for (int i = 0; i < stack.depth; ++i) {
      fields.signed_number(static_cast<std::int64_t>(stack.frames[i] - before));
      before = stack.frames[i];
    }
  });
}

/** The bytes that a build id's digits stand for. */
struct BuildIdBytes {
  char bytes[64] = {};
  std::size_t length = 0;

  explicit BuildIdBytes(std::string_view digits) {
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
      bytes[length++] = static_cast<char>(value(digits[i]) << 4 | value(digits[i + 1]));
    }
  }
  static unsigned value(char digit) {
    return static_cast<unsigned>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
  }
};

void define_module(const qk::KnownModule& module) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const BuildIdBytes id(module.build_id.text());
  recording::write_record(ChunkKind::kDefinitions, RecordType::kModule, [&](auto& fields) {
    fields.number(module.whole.begin);
    fields.number(module.whole.end);
    fields.number(module.base);
    fields.text(cut(module.path));
    fields.text({id.bytes, id.length});
  });
}

/** Those that came since the last time. */
void define_modules() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint64_t version = modules.version();
  if (version == defined.modules) return;
  defined.modules = version;
  const qk::KnownModule* const newest = modules.newest();
  for (const qk::KnownModule* module = newest; module != nullptr && module != defined.newest_module;
       module = module->next) {
    define_module(*module);
  }
  defined.newest_module = newest;
}

void define_pool(const Pool& pool) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  const std::uint32_t tag = define_text(tag_levels.at(pool.tag).name);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kPool, [&](auto& fields) {
    fields.number(pool.number);
    fields.number(static_cast<std::uint64_t>(pool.hid));
    fields.number(tag);
  });
}

void define_site(const Site& site) QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  while (defined.stacks < site.key.stack) define_stack(++defined.stacks);
  const std::uint32_t path = number_of_path(site.key.file);
  const std::uint32_t text = define_label(site.key.label);
  recording::write_record(ChunkKind::kDefinitions, RecordType::kSite, [&](auto& fields) {
    fields.number(site.number);
    fields.number(site.key.pool);
    fields.number(path);
    fields.number(site.key.line);
    fields.number(site.key.stack);
    fields.number(text);
  });
}

/** Defines all that is not defined yet. */
void define_all() QK_REQUIRES(recording::lock) {
  recording::assert_recorder_held();
  define_modules();
  const std::uint32_t last_site = sites.count();
  const std::uint32_t last_pool = pools.count();  // after the sites, which have pools
  for (std::uint32_t i = defined_pools + 1; i <= last_pool; ++i) define_pool(pools.at(i));
  qk::store(defined_pools, std::max(defined_pools, last_pool));
  for (std::uint32_t i = defined_sites + 1; i <= last_site; ++i) define_site(sites.at(i));
  qk::store(defined_sites, std::max(defined_sites, last_site));
}

[[gnu::noinline]] void define_new() {
  const qk::KeepErrno keep_errno;
  const qk::NoCancellation no_cancellation;
  const qk::MtxLock held(recording::lock);
  define_all();
}

/** Those that each pool has are none in a recording. */
std::uint32_t recorded_site(std::uint32_t site) { return site > kMaxSites ? 0 : site; }

/** To be called before a site's number, or that of a pool, goes into an event. */
void see_that_is_defined(std::uint32_t site, std::uint32_t pool) {
  if (recorded_site(site) > qk::load(defined_sites) || pool > qk::load(defined_pools)) [[unlikely]]
    define_new();
}

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
  qk::store(defined_sites, 0);
  qk::store(defined_pools, 0);
  defined = {};
  std::fill(std::begin(recent_texts), std::end(recent_texts), DefinedText{});
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

/** Whether an event has to be told. If the recording has ended by itself, no other one will. */
bool is_wanted() {
  const recording::State now = recording::state_now();
  if (now == recording::State::kOn) [[likely]] {
    if (qk::load(recording::dropped_up_to) != qk::load(dropped_before)) note_what_was_dropped();
    return true;
  }
  if (now == recording::State::kAwaited) {
    begin_awaited();
  } else {
    set_unusual(false);
  }
  return recording::is_on();
}

bool has_own_file_in_child() { return std::strstr(pattern_of_record, "%p") != nullptr; }

}  // namespace

void record_made(Pool& pool, const Site& site, std::uint64_t event, RecordedBlock block) {
  if (!is_wanted()) return;
  see_that_is_defined(site.number, pool.number);
  ++pool.recorded_blocks;
  pool.recorded_bytes += block.bytes;
  recording::made(event, {recorded_site(site.number), pool.number,
                          reinterpret_cast<std::uintptr_t>(block.address), block.bytes});
}

void record_gone(EventKind kind, const Pool& pool, Mark mark, std::uint64_t event,
                 RecordedBlock block) {
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

void record_made_and_lost(Pool& pool, std::uint64_t event, RecordedBlock block) {
  if (!is_wanted()) return;
  record_made(pool, pool.not_recorded, event, block);
  recording::gone(EventKind::kGone, event, 0, {}, false);
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

#include "tests/kit/recording.h"

#include <algorithm>

#include "formats/recording_frame.h"
#include "tests/kit/scene.h"

namespace kit {

using namespace qk::mem::recording;

Recording::Recording(const std::string& name) {
  const std::string bytes = contents(name);
  ChunkReader reader(bytes);
  while (const auto chunk = reader.next()) read(*chunk);
  if (reader.skipped() != 0) complain(std::to_string(reader.skipped()) + " bytes are no chunk");
  const std::string tail = contents(name + ".tail");
  TailReader slots(tail);
  while (const auto chunk = slots.next()) read(*chunk);
  count_events();
  if (is_closed_) compare_sums();
}

void Recording::begin_levels(const ChunkHeader& header) {
  if ((header.flags & kGoesOn) != 0) return;
  counted_from_ = header.begin.ticks;
  for (auto& [number, pool] : pools_) pool.live = {};
}

void Recording::read(const Chunk& chunk) {
  if (chunk.header.is_dropped()) {
    dropped_ += chunk.header.events;
    return;
  }
  const auto key = std::pair(chunk.header.thread, chunk.header.index);
  if (seen_.contains(key)) return;
  seen_[key] = true;
  if (is_closed_) complain("a chunk behind the closing one");
  if (chunk.header.kind == ChunkKind::kLevels) begin_levels(chunk.header);
  if (chunk.header.kind == ChunkKind::kEvents) return read_events(chunk);
  if (chunk.header.kind == ChunkKind::kClosing) is_closed_ = true;
  RecordReader reader(chunk);
  while (const auto record = reader.next()) read_record(*record);
  if (reader.has_failed()) complain("damaged records");
}

void Recording::read_events(const Chunk& chunk) {
  EventReader reader(chunk);
  std::uint64_t count = 0;
  std::uint64_t highest = 0;
  while (const auto event = reader.next()) {
    if (event->kind == EventKind::kMade && event->block.site != 0 &&
        !sites_.contains(event->block.site)) {
      complain("a site is used before it is defined");
    }
    highest = std::max(highest, event->number);
    events_.push_back({*event, chunk.header.thread});
    ++count;
  }
  if (reader.has_failed()) complain("damaged events");
  if (chunk.header.events == 0) return;  // of a tail
  if (chunk.header.events != count) complain("a header has another number of events");
  if (chunk.header.highest_number != highest) complain("a header has another highest number");
}

void Recording::read_record(Record record) {
  FieldReader& fields = record.fields;
  switch (record.type) {
    case RecordType::kProcess:
      process_ = fields.number();
      static_cast<void>(fields.number());
      static_cast<void>(fields.text());
      command_ = fields.text();
      static_cast<void>(fields.number());
      break;
    case RecordType::kText: {
      const std::uint64_t number = fields.number();
      texts_[number] = fields.text();
      break;
    }
    case RecordType::kPool: {
      PoolFacts& pool = pools_[static_cast<std::uint32_t>(fields.number())];
      pool.handle = fields.number();
      pool.tag = texts_[fields.number()];
      break;
    }
    case RecordType::kSite: {
      SiteFacts& site = sites_[static_cast<std::uint32_t>(fields.number())];
      site.pool = static_cast<std::uint32_t>(fields.number());
      site.place = texts_[fields.number()];
      site.place += ":" + std::to_string(fields.number());
      if (fields.number() > stacks_) complain("a stack is used before it is defined");
      const std::uint64_t label = fields.number();
      if (label != 0) site.place += " [" + texts_[label] + "]";
      break;
    }
    case RecordType::kStack:
      if (fields.number() != ++stacks_) complain("a stack has another number");
      for (std::uint64_t frames = fields.number(); frames != 0; --frames) {
        static_cast<void>(fields.signed_number());
      }
      break;
    case RecordType::kModule:
      for (int i = 0; i < 3; ++i) static_cast<void>(fields.number());
      modules_.emplace_back(fields.text());
      static_cast<void>(fields.text());
      break;
    case RecordType::kThread:
      if (fields.number() != thread_names_.size() + 1) complain("a thread has another number");
      static_cast<void>(fields.number());
      thread_names_.emplace_back(fields.text());
      break;
    case RecordType::kLevel: {
      EventBlock block;
      block.site = static_cast<std::uint32_t>(fields.number());
      if (block.site == 0) block.pool = static_cast<std::uint32_t>(fields.number());
      PoolFacts& pool = pools_[pool_of(block)];
      pool.live.blocks += static_cast<std::int64_t>(fields.number());
      pool.live.bytes += static_cast<std::int64_t>(fields.number());
      break;
    }
    case RecordType::kPoolSums: {
      PoolFacts& pool = pools_[static_cast<std::uint32_t>(fields.number())];
      pool.closing_live.blocks = static_cast<std::int64_t>(fields.number());
      pool.closing_live.bytes = static_cast<std::int64_t>(fields.number());
      pool.closing_made.blocks = static_cast<std::int64_t>(fields.number());
      pool.closing_made.bytes = static_cast<std::int64_t>(fields.number());
      break;
    }
    case RecordType::kFrame: {
      const auto frame = FrameRecord::read(fields);
      frames_.emplace_back(frame.function);
      break;
    }
    case RecordType::kSnapshot: {
      const std::uint64_t event = fields.number();
      static_cast<void>(fields.number());
      snapshots_.push_back(std::string(fields.text()) + " behind event " + std::to_string(event));
      break;
    }
    case RecordType::kProcessSums:
      for (int i = 0; i < 5; ++i) process_sums_.push_back(fields.number());
      break;
  }
  if (fields.has_failed() || !fields.is_at_end()) complain("a record of other fields");
}

std::uint32_t Recording::pool_of(const EventBlock& block) {
  return block.site == 0 ? block.pool : sites_[block.site].pool;
}

std::string Recording::place_of(const EventBlock& block) const {
  const std::uint32_t number = block.site == 0 ? block.pool : sites_.at(block.site).pool;
  const PoolFacts& pool = pools_.at(number);
  const std::string place = block.site == 0 ? "no site" : sites_.at(block.site).place;
  return place + " on " + std::to_string(pool.handle) + (pool.tag.empty() ? "" : " " + pool.tag);
}

void Recording::count_events() {
  std::stable_sort(events_.begin(), events_.end(), [](const auto& left, const auto& right) {
    return left.event.ticks < right.event.ticks;
  });
  // Clocks of two processors may differ a little: first all that is made.
  for (const ThreadEvent& event : events_) {
    if (event.event.kind == EventKind::kMade) {
      if (live_.contains(event.event.number)) complain("two blocks of one number");
      live_[event.event.number] = event.event.block;
      PoolFacts& pool = pools_[pool_of(event.event.block)];
      ++pool.made.blocks;
      pool.made.bytes += static_cast<std::int64_t>(event.event.block.bytes);
      if (event.event.ticks < counted_from_) continue;
      ++pool.live.blocks;
      pool.live.bytes += static_cast<std::int64_t>(event.event.block.bytes);
    }
  }
  for (const ThreadEvent& event : events_) count(event.event);
}

void Recording::count(const Event& event) {
  if (event.ticks < counted_from_) return;
  if (event.kind == EventKind::kMade || event.kind == EventKind::kDeleted) return;
  if (event.kind == EventKind::kCleared) {
    for (auto& [number, block] : live_) {
      if (pool_of(block) != event.block.pool || number > event.number) continue;
      block.bytes = 0;
    }
    // Only tests with a single thread clear a handle.
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
    for (const ThreadEvent& later : events_) {
      if (later.event.kind != EventKind::kMade || later.event.number < event.number) continue;
      if (pool_of(later.event.block) != event.block.pool) continue;
      ++blocks;
      bytes += static_cast<std::int64_t>(later.event.block.bytes);
    }
    pools_[event.block.pool].live = {blocks, bytes};
    return;
  }
  EventBlock block = event.block;
  if (!event.is_unsure) {
    const auto found = live_.find(event.made);
    if (found == live_.end()) return complain("a block is gone that was never made");
    block = found->second;
  }
  Amount& live = pools_[pool_of(block)].live;
  const std::int64_t sign = event.kind == EventKind::kBack ? 1 : -1;
  live.blocks += sign;
  live.bytes += sign * static_cast<std::int64_t>(block.bytes);
}

void Recording::compare_sums() {
  Amount live;
  for (const auto& [number, pool] : pools_) {
    live.blocks += pool.live.blocks;
    live.bytes += pool.live.bytes;
    const std::string handle = "handle " + std::to_string(pool.handle);
    if (pool.live != pool.closing_live) complain(handle + " holds something else at the end");
    if (dropped_ == 0 && pool.made != pool.closing_made)
      complain(handle + " has made something else");
  }
  if (process_sums_.size() != 5) return complain("no sums of the process");
  if (process_sums_[0] != events_.size() + dropped_) complain("another number of events");
  if (process_sums_[1] != static_cast<std::uint64_t>(live.blocks)) complain("other live blocks");
  if (process_sums_[2] != static_cast<std::uint64_t>(live.bytes)) complain("other live bytes");
}

std::string Recording::sums_of(std::uint64_t handle) const {
  for (const auto& [number, pool] : pools_) {
    if (pool.handle != handle) continue;
    return std::to_string(pool.live.blocks) + " for " + std::to_string(pool.live.bytes) +
           ", made " + std::to_string(pool.made.blocks) + " for " + std::to_string(pool.made.bytes);
  }
  return "nothing";
}

std::string Recording::errors() const { return errors_; }

std::string Recording::events() const {
  constexpr const char* kKinds[] = {"made", "gone", "set aside", "back", "cleared", "deleted"};
  std::string text;
  std::map<std::uint64_t, std::string> names;
  for (const auto& [event, thread] : events_) {
    text += std::to_string(event.number - events_.front().event.number + 1) + " ";
    text += kKinds[static_cast<int>(event.kind)];
    if (event.kind >= EventKind::kCleared) {
      text += " " + std::to_string(pools_.at(event.block.pool).handle) + "\n";
      continue;
    }
    std::string& name = names[event.made];
    if (name.empty()) name = static_cast<char>('A' + names.size() - 1);
    text += " " + (event.is_unsure ? "?" : name);
    if (event.kind == EventKind::kMade || event.is_unsure) {
      text += ", " + std::to_string(event.block.bytes) + " B at " + place_of(event.block);
    }
    text += event.replaces ? ", in place\n" : "\n";
  }
  return text;
}

}  // namespace kit

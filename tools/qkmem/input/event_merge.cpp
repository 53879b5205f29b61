#include "input/event_merge.h"

#include <algorithm>
#include <utility>

namespace qk::command {

using mem::recording::ChunkHeader;
using mem::recording::Event;

namespace {

/** How long a tick lasts; 0 if the header doesn't say, as in the tail. */
double tick_of(const ChunkHeader& header) {
  if (header.end.ticks <= header.begin.ticks) return 0;
  const std::uint64_t ticks = header.end.ticks - header.begin.ticks;
  const std::uint64_t nanoseconds = header.end.nanoseconds - header.begin.nanoseconds;
  return static_cast<double>(nanoseconds) / static_cast<double>(ticks);
}

}  // namespace

EventMerge::EventMerge(const ChunkIndex& index) : index_(index) {
  for (const auto& [thread, places] : index.threads()) {
    Stream& stream = streams_.emplace_back();
    stream.thread = thread;
    stream.places = &places;
  }
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    // Threads are opened when it is their turn: most of them may have ended by then.
    for (const ChunkPlace& place : *streams_[i].places) {
      if (!place.has_events) continue;
      turns_.push({place.begin.ticks, i});
      break;
    }
  }
}

bool EventMerge::read(MergedEvents& events) {
  if (is_over_) return false;
  events.count_ = 0;
  while (events.count_ < events.events_.size() && has_current()) {
    Stream& stream = *current_;
    MergedEvent& next = events.events_[events.count_];
    if (!read_event(stream, next.event)) {
      current_ = nullptr;
    } else if (next.event.ticks > turn_ends_) {
      wait(stream, next.event);
    } else {
      next.nanoseconds = nanoseconds_of(next.event, stream);
      next.thread = stream.thread;
      ++events.count_;
    }
  }
  is_over_ = events.count_ < events.events_.size();
  events.damage_ = damage_;
  events.position_ = position_;
  return true;
}

bool EventMerge::has_current() {
  if (current_ != nullptr) return true;
  if (turns_.empty()) return false;
  current_ = &streams_[turns_.top().stream];
  turns_.pop();
  turn_ends_ = turns_.empty() ? UINT64_MAX : turns_.top().ticks;
  return true;
}

/** It is another stream's turn before this event. */
void EventMerge::wait(Stream& stream, const Event& event) {
  stream.waiting = event;
  turns_.push({event.ticks, static_cast<std::size_t>(&stream - streams_.data())});
  current_ = nullptr;
}

std::uint64_t EventMerge::nanoseconds_of(const Event& event, const Stream& stream) {
  constexpr double kMost = 1e18;  // some 30 years: what is more makes no sense
  const auto ticks = static_cast<double>(event.ticks - stream.begin.ticks);
  const double passed = std::min(ticks * stream.nanoseconds_a_tick, kMost);
  return stream.begin.nanoseconds + static_cast<std::uint64_t>(passed);
}

bool EventMerge::read_event(Stream& stream, Event& event) {
  if (stream.waiting) {
    event = *std::exchange(stream.waiting, std::nullopt);
    return true;
  }
  while (stream.reader || open_next_chunk(stream)) {
    if (stream.reader->read(event)) {
      stream.highest_number = std::max(stream.highest_number, event.number);
      return true;
    }
    if (stream.reader->has_failed()) note_damage(stream, stream.at);
    stream.reader.reset();
  }
  return false;
}

void EventMerge::note_damage(const Stream& stream, std::uint64_t at) {
  damage_.chunks.note("byte " + std::to_string(at));
  damage_.complete_up_to = std::min(damage_.complete_up_to, stream.highest_number);
}

bool EventMerge::open_next_chunk(Stream& stream) {
  while (stream.next_place < stream.places->size()) {
    const ChunkPlace& place = (*stream.places)[stream.next_place++];
    if (!place.has_events) continue;
    position_ += place.bytes;
    const auto chunk = index_.open(place, stream.buffer);
    if (!chunk) {
      note_damage(stream, place.at);
      continue;
    }
    stream.at = place.at;
    stream.begin = chunk->header.begin;
    if (const double tick = tick_of(chunk->header); tick > 0) nanoseconds_a_tick_ = tick;
    stream.nanoseconds_a_tick = nanoseconds_a_tick_;
    stream.reader.emplace(*chunk);
    return true;
  }
  stream.buffer = {};
  return false;
}

}  // namespace qk::command

#include "input/event_merge.h"

#include <algorithm>
#include <utility>

namespace qk::command {

using mem::recording::ChunkHeader;
using mem::recording::EventReader;

namespace {

/** How long a tick lasts; 0 if the header doesn't say, as in the tail. */
double tick_of(const ChunkHeader& header) {
  if (header.end.ticks <= header.begin.ticks) return 0;
  const std::uint64_t ticks = header.end.ticks - header.begin.ticks;
  const std::uint64_t nanoseconds = header.end.nanoseconds - header.begin.nanoseconds;
  return static_cast<double>(nanoseconds) / static_cast<double>(ticks);
}

}  // namespace

EventMerge::EventMerge(const ChunkIndex& index, OnAhead on_ahead)
    : index_(index), on_ahead_(std::move(on_ahead)) {
  for (const auto& [thread, places] : index.threads()) {
    Stream& stream = streams_.emplace_back();
    stream.next.thread = thread;
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

const EventMerge::Next* EventMerge::next() {
  if (current_ != nullptr && !read_event(*current_)) current_ = nullptr;
  if (current_ != nullptr && current_->next.event->ticks > turn_ends_) {
    turns_.push(
        {current_->next.event->ticks, static_cast<std::size_t>(current_ - streams_.data())});
    current_ = nullptr;
  }
  while (current_ == nullptr && !turns_.empty()) take_turn();
  if (current_ == nullptr) return nullptr;
  note_time(*current_);
  return &current_->next;
}

void EventMerge::take_turn() {
  Stream& stream = streams_[turns_.top().stream];
  turns_.pop();
  turn_ends_ = turns_.empty() ? UINT64_MAX : turns_.top().ticks;
  // A stream's first turn began with its first chunk, not with its first event.
  if (stream.next.event == nullptr) {
    if (!read_event(stream)) return;
    if (stream.next.event->ticks > turn_ends_) {
      turns_.push({stream.next.event->ticks, static_cast<std::size_t>(&stream - streams_.data())});
      return;
    }
  }
  current_ = &stream;
}

void EventMerge::note_time(Stream& stream) {
  constexpr double kMost = 1e18;  // some 30 years: what is more makes no sense
  const auto ticks = static_cast<double>(stream.next.event->ticks - stream.begin.ticks);
  const double passed = std::min(ticks * stream.nanoseconds_a_tick, kMost);
  stream.next.nanoseconds = stream.begin.nanoseconds + static_cast<std::uint64_t>(passed);
}

bool EventMerge::read_event(Stream& stream) {
  if (stream.next_event == stream.event_count && !read_ahead(stream)) return false;
  stream.next.event = &stream.events[stream.next_event++];
  return true;
}

bool EventMerge::read_ahead(Stream& stream) {
  stream.next_event = 0;
  stream.event_count = 0;
  while (stream.reader || open_next_chunk(stream)) {
    while (stream.event_count < stream.events.size() &&
           stream.reader->read(stream.events[stream.event_count])) {
      ++stream.event_count;
    }
    if (stream.event_count != 0) {
      stream.highest_number =
          std::max(stream.highest_number, stream.events[stream.event_count - 1].number);
      on_ahead_(std::span(stream.events).first(stream.event_count));
      return true;
    }
    if (stream.reader->has_failed()) note_damage(stream, stream.at);
    stream.reader.reset();
  }
  return false;
}

void EventMerge::note_damage(const Stream& stream, std::uint64_t at) {
  damaged_.note("byte " + std::to_string(at));
  complete_up_to_ = std::min(complete_up_to_, stream.highest_number);
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

#include "input/chunk_index.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qk::command {

using mem::recording::Chunk;
using mem::recording::ChunkHeader;
using mem::recording::ChunkKind;
using mem::recording::kChunkBytes;
using mem::recording::kHeaderBytes;
using mem::recording::kMagic;

namespace {

constexpr std::size_t kFirstWindow = 1024;
constexpr std::size_t kLargestWindow = std::size_t{1} << 20;

std::string at_byte(std::uint64_t at) { return "byte " + std::to_string(at); }

}  // namespace

ChunkIndex::ChunkIndex(const Storage& storage, std::string tail)
    : storage_(storage), tail_(std::move(tail)) {}

void ChunkIndex::read() {
  std::uint64_t at = 0;
  while (at < storage_.size()) {
    std::array<char, kHeaderBytes> bytes;
    const std::size_t count = storage_.read(at, bytes.data(), bytes.size());
    const auto header = mem::recording::header_at({bytes.data(), count});
    if (header && header->is_dropped()) {
      dropped_events_ += header->events;
      dropped_up_to_ = at + header->bytes;
    } else if (header) {
      add(*header, at);
    }
    // A length that is wrong must not hide the chunks behind it.
    const std::uint64_t end = header ? at + header->bytes : at;
    const std::uint64_t next = header && is_chunk_or_end(end) ? end : next_magic(at + 1);
    const std::uint64_t known = std::clamp(end, at, next);
    if (known != next) note_foreign(known, next);
    at = next;
  }
  read_tail();
  sort();
}

void ChunkIndex::read_records(const OnRecords& on_records) {
  std::string buffer;
  for (const auto& [thread, places] : threads_) {
    for (const ChunkPlace& place : places) {
      if (place.has_events) continue;
      if (const auto chunk = open(place, buffer)) {
        on_records(*chunk, place.at);
      } else {
        damaged_.note(at_byte(place.at));
      }
    }
  }
}

void ChunkIndex::read_tail() {
  mem::recording::TailReader slots(tail_);
  while (const auto chunk = slots.next()) {
    has_tail_ = true;
    const auto offset = static_cast<std::size_t>(chunk->contents.data() - tail_.data());
    add(chunk->header, storage_.size() + offset - kHeaderBytes);
  }
}

void ChunkIndex::add(const ChunkHeader& header, std::uint64_t at) {
  threads_[header.thread].push_back({at, header.bytes, header.index,
                                     header.kind == ChunkKind::kEvents, header.highest_number,
                                     header.begin});
}

/** A chunk of the tail may have come to the recording since, and is the second one then. */
void ChunkIndex::sort() {
  for (auto& [thread, places] : threads_) {
    std::stable_sort(places.begin(), places.end(),
                     [](const auto& one, const auto& other) { return one.index < other.index; });
    const auto same = [](const auto& one, const auto& other) { return one.index == other.index; };
    places.erase(std::unique(places.begin(), places.end(), same), places.end());
    look_for_missing(thread, places);
  }
}

void ChunkIndex::look_for_missing(std::uint32_t thread, const std::vector<ChunkPlace>& places) {
  std::uint32_t expected = 0;
  std::uint64_t highest = 0;
  for (const ChunkPlace& place : places) {
    // Which chunks were dropped on purpose, nobody knows.
    if (dropped_events_ == 0 && place.index != expected) {
      missing_.note("thread " + std::to_string(thread) + ", chunk " + std::to_string(expected));
      missing_.count += place.index - expected - 1;
      complete_up_to_ = std::min(complete_up_to_, highest);
    }
    expected = place.index + 1;
    highest = std::max(highest, place.highest_number);
  }
  // What belongs to no chunk can have been the thread's next one.
  if (thread != 0 && !places.empty() && places.back().at < foreign_at_) {
    complete_up_to_ = std::min(complete_up_to_, highest);
  }
}

std::optional<Chunk> ChunkIndex::open(const ChunkPlace& place, std::string& buffer) const {
  if (place.at >= storage_.size()) {
    const std::string_view tail = tail_;
    return mem::recording::TailReader(tail.substr(place.at - storage_.size(), kChunkBytes)).next();
  }
  buffer.resize(place.bytes);
  buffer.resize(storage_.read(place.at, buffer.data(), buffer.size()));
  return mem::recording::chunk_at(buffer);
}

bool ChunkIndex::is_chunk_or_end(std::uint64_t at) const {
  std::array<char, kMagic.size()> bytes;
  const std::size_t count = storage_.read(at, bytes.data(), bytes.size());
  return count == 0 || std::string_view(bytes.data(), count) == kMagic;
}

/** The next chunk is near in most cases, and many false ones must not cost a long look each. */
std::uint64_t ChunkIndex::next_magic(std::uint64_t from) const {
  std::string window;
  std::size_t size = kFirstWindow;
  for (std::uint64_t at = from; at < storage_.size(); at += window.size() - kMagic.size() + 1) {
    window.resize(size);
    window.resize(storage_.read(at, window.data(), window.size()));
    const std::size_t found = window.find(kMagic);
    if (found != std::string::npos) return at + found;
    if (window.size() < size) break;
    size = std::min(2 * size, kLargestWindow);
  }
  return storage_.size();
}

void ChunkIndex::note_foreign(std::uint64_t from, std::uint64_t to) {
  foreign_.note(at_byte(from));
  foreign_.count += to - from - 1;
  foreign_at_ = from;
}

}  // namespace qk::command

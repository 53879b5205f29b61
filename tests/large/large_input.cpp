// Writes a long input of the command qkmem, as a program would that has made it up:
//   large_input table|recording bytes|events NUMBER LIVE >FILE
// The program has up to LIVE blocks at once, on a few handles and sites. It lives the same life for
// both, in which a realloc that moves is one event of the table and two of the recording. It never
// ends by itself, so the recording has no closing chunk.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "formats/recording_event.h"
#include "formats/trace_letters.h"
#include "formats/trace_row.h"
#include "support/line.h"
#include "tests/kit/made_chunks.h"

namespace {

constexpr int kHandles = 10;
constexpr int kFirstHandle = 3;
constexpr int kSites = 300;

struct Block {
  std::uint64_t place;  // of its address
  std::uint64_t bytes;
  std::uint64_t event;
  int handle;
};

/** What the program does next. */
struct Step {
  enum class Kind { kMade, kReleased, kMoved } kind;
  Block block;
  Block old;  // of a block that has moved
  int site;
};

/** A life of random steps, in which addresses are used again soon. */
class Life {
 public:
  Life(std::size_t most, std::uint64_t most_events) : most_(most), most_events_(most_events) {}

  [[nodiscard]] std::uint64_t events() const { return events_; }
  [[nodiscard]] bool is_over() const { return events_ == most_events_; }

  Step next() {
    ++events_;
    const auto site = static_cast<int>(random_() % kSites);
    // Once there are all, as many are released as made.
    if (blocks_.size() < most_ && (blocks_.size() < most_ - 8 || random_() % 2 == 0)) {
      blocks_.push_back(new_block(static_cast<int>(random_() % kHandles)));
      return {Step::Kind::kMade, blocks_.back(), {}, site};
    }
    Block& block = blocks_[random_() % blocks_.size()];
    if (random_() % 32 == 0) {
      const Block old = block;
      block = new_block(old.handle);
      free_places_.push_back(old.place);
      return {Step::Kind::kMoved, block, old, site};
    }
    const Block released = block;
    block = blocks_.back();
    blocks_.pop_back();
    free_places_.push_back(released.place);
    return {Step::Kind::kReleased, released, {}, site};
  }

  static std::uint64_t address_of(const Block& block) { return 0x7F0000000010 + block.place * 64; }

 private:
  Block new_block(int handle) {
    std::uint64_t place = places_;
    if (free_places_.empty()) {
      ++places_;
    } else {
      place = free_places_.back();
      free_places_.pop_back();
    }
    return {place, random_() % 500 + 1, events_, handle};
  }

  const std::size_t most_;
  const std::uint64_t most_events_;
  std::minstd_rand random_{20261123};
  std::vector<Block> blocks_;
  std::vector<std::uint64_t> free_places_;
  std::uint64_t places_ = 0;
  std::uint64_t events_ = 0;
};

void put(const void* bytes, std::size_t count) {
  if (std::fwrite(bytes, 1, count, stdout) != count) std::exit(1);
}

std::uint64_t put(qk::Line& line) {
  const std::string_view text = line.finish();
  put(text.data(), text.size());
  return text.size();
}

void write_table(std::uint64_t bytes, Life& life) {
  using qk::mem::TraceRow;
  qk::Line headings;
  qk::mem::put_trace_headings(headings);
  std::uint64_t written = put(headings);
  std::uint64_t sums[kHandles] = {};
  std::uint64_t whole = 0;
  std::string files[20];
  for (int i = 0; i < 20; ++i) files[i] = "source_" + std::to_string(i) + ".c";
  while (written < bytes && !life.is_over()) {
    const Step step = life.next();
    const bool is_gone = step.kind == Step::Kind::kReleased;
    const std::uint64_t change = is_gone ? 0 - step.block.bytes : step.block.bytes - step.old.bytes;
    std::uint64_t& sum = sums[step.block.handle];
    sum += change;
    whole += change;
    TraceRow row;
    row.sequence = static_cast<std::uint32_t>(life.events());
    row.handle = kFirstHandle + step.block.handle;
    row.type = is_gone                           ? qk::mem::event::kFree
               : step.kind == Step::Kind::kMoved ? qk::mem::kind::kRealloc
                                                 : qk::mem::kind::kMalloc;
    row.address = qk::mem::TraceAddress{Life::address_of(step.block)};
    row.num = 1;
    row.size = step.block.bytes;
    row.handle_size = sum;
    row.file = files[step.site % 20];
    row.line = step.site;
    row.current = static_cast<std::int64_t>(whole);
    row.heap = row.current;
    row.change = static_cast<std::int64_t>(change);
    row.growth = row.change;
    qk::Line line;
    qk::mem::put_trace_row(row, 16, line);
    written += put(line);
  }
}

using namespace qk::mem::recording;

std::string definitions() {
  std::string records;
  kit::append_record(records, RecordType::kText, [](auto& fields) {
    fields.number(1);
    fields.text("/src/source.c");
  });
  kit::append_record(records, RecordType::kText, [](auto& fields) {
    fields.number(2);
    fields.text("LG");
  });
  for (std::uint64_t handle = 0; handle < kHandles; ++handle) {
    kit::append_record(records, RecordType::kPool, [&](auto& fields) {
      fields.number(handle + 1);
      fields.number(kFirstHandle + handle);
      fields.number(2);
    });
  }
  for (std::uint64_t site = 0; site < kSites * kHandles; ++site) {
    kit::append_record(records, RecordType::kSite, [&](auto& fields) {
      fields.number(site + 1);
      fields.number(site % kHandles + 1);
      fields.number(1);
      fields.number(site / kHandles + 1);
      fields.number(0);
      fields.number(0);
    });
  }
  return records;
}

/** A chunk that is being filled. */
class ChunkOfEvents {
 public:
  explicit ChunkOfEvents(std::uint64_t first) {
    header_.kind = ChunkKind::kEvents;
    header_.thread = 1;
    header_.first_number = first;
    header_.begin = {first * kTicks, first * kTicks};
    state_.number = first - 1;
    state_.ticks = header_.begin.ticks;
  }

  [[nodiscard]] bool is_full() const { return chunk_.size() - length_ < 2 * kLongestEvent; }

  template <class Encode>
  void add(std::uint64_t number, EventKind kind, Encode encode) {
    EventEncoder encoder(state_, chunk_.data() + length_);
    encoder.begin(static_cast<std::uint8_t>(kind), number, number * kTicks);
    encode(encoder);
    length_ = static_cast<std::size_t>(encoder.finish() - chunk_.data());
    ++header_.events;
    header_.highest_number = number;
    header_.end = {number * kTicks, number * kTicks};
  }

  std::uint64_t write(std::uint32_t index) {
    header_.index = index;
    header_.bytes = static_cast<std::uint32_t>(length_);
    encode_header(header_, chunk_.data());
    seal(chunk_.data(), length_);
    put(chunk_.data(), length_);
    return length_;
  }

 private:
  static constexpr std::uint64_t kTicks = 40;

  ChunkHeader header_;
  EventState state_;
  std::string chunk_ = std::string(kChunkBytes, '\0');
  std::size_t length_ = kHeaderBytes;
};

void write_other_chunk(ChunkKind kind, std::uint32_t index, const std::string& contents) {
  ChunkHeader header;
  header.kind = kind;
  header.index = index;
  const std::string chunk = kit::made_chunk(header, contents);
  put(chunk.data(), chunk.size());
}

void write_recording(std::uint64_t bytes, Life& life) {
  write_other_chunk(ChunkKind::kOpening, 0, {});
  const std::string records = definitions();
  std::uint32_t chunks = 0;
  write_other_chunk(ChunkKind::kDefinitions, 1, records);
  std::uint64_t number = 0;
  // Blocks are named by the events that made them, and a realloc is two events.
  std::vector<std::uint64_t> made;
  for (std::uint64_t written = 0; written < bytes && !life.is_over();) {
    ChunkOfEvents chunk(number + 1);
    while (!chunk.is_full() && !life.is_over()) {
      const Step step = life.next();
      const Block& block = step.block;
      const auto add_made = [&] {
        const auto site = static_cast<std::uint32_t>(step.site * kHandles + block.handle + 1);
        chunk.add(++number, EventKind::kMade, [&](EventEncoder& encoder) {
          encoder.made({site, 0, Life::address_of(block), block.bytes}, false);
        });
        if (block.place >= made.size()) made.resize(block.place + 1);
        made[block.place] = number;
      };
      const auto add_gone = [&](const Block& gone) {
        const std::uint64_t of_block = made[gone.place];
        chunk.add(++number, EventKind::kGone, [&](EventEncoder& encoder) {
          encoder.which(static_cast<std::uint32_t>(number - of_block));
        });
      };
      if (step.kind == Step::Kind::kReleased) {
        add_gone(block);
      } else if (step.kind == Step::Kind::kMoved) {
        add_gone(step.old);
        add_made();
      } else {
        add_made();
      }
    }
    written += chunk.write(chunks++);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const bool counts_events = std::strcmp(argv[2], "events") == 0;
  const std::uint64_t most = std::strtoull(argv[3], nullptr, 10);
  const std::uint64_t bytes = counts_events ? UINT64_MAX : most;
  Life life(std::strtoull(argv[4], nullptr, 10), counts_events ? most : UINT64_MAX);
  if (std::strcmp(argv[1], "table") == 0) {
    write_table(bytes, life);
  } else {
    write_recording(bytes, life);
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}

// The command asked about recordings: the first bytes choose the question, the next one says how many
// chunks at the end are those of the tail, and the rest are chunks. The sums of what a mutation has
// changed are mended in most cases, since nothing behind a wrong sum is read.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "formats/recording.h"
#include "formats/recording_event.h"
#include "tests/fuzz/asking.h"
#include "tests/fuzz/chunks.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

namespace {

using Random = std::minstd_rand;
using Pieces = std::vector<std::string>;
using qk::mem::recording::kHeaderBytes;

constexpr std::size_t kChoices = fuzz::Choice::kBytes + 1;
constexpr std::size_t kMostAdded = 64;  // bytes, by one mutation

std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/** One of so many. */
std::size_t one_of(Random& random, std::size_t count) { return random() % count; }

/** What libFuzzer makes of some bytes, which get longer by `more` at most. */
std::string mutated(std::string bytes, std::size_t more) {
  const std::size_t size = bytes.size();
  bytes.resize(std::max<std::size_t>(size + more, 1));
  auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
  bytes.resize(LLVMFuzzerMutate(data, size, bytes.size()));
  return bytes;
}

void change_contents(std::string& chunk) {
  if (chunk.size() < kHeaderBytes) return;
  chunk = chunk.substr(0, kHeaderBytes) + mutated(chunk.substr(kHeaderBytes), kMostAdded);
}

/** What is behind the length. */
void change_header(std::string& chunk) {
  constexpr std::size_t kFrom = 20;
  if (chunk.size() < kHeaderBytes) return;
  std::string fields = mutated(chunk.substr(kFrom, kHeaderBytes - kFrom), 0);
  fields.resize(kHeaderBytes - kFrom);
  chunk.replace(kFrom, fields.size(), fields);
}

/** Makes a chunk that of another thread, or another one of its thread. */
void renumber(std::string& chunk, Random& random) {
  if (chunk.size() < kHeaderBytes) return;
  const auto number = static_cast<std::uint32_t>(one_of(random, 4));
  const std::size_t at = one_of(random, 2) == 0 ? 24 : qk::mem::recording::kIndexAt;
  qk::mem::write_little(chunk.data() + at, number);
}

/** An event of any kind, with small numbers, as other events have them. */
std::string some_event(Random& random) {
  std::string event(1, static_cast<char>(one_of(random, 256)));
  for (std::size_t count = one_of(random, 6) + 2; count != 0; --count) {
    event += static_cast<char>(one_of(random, 16));
  }
  return event;
}

/** A definition of any kind. */
std::string some_record(Random& random) {
  std::string fields;
  for (std::size_t count = one_of(random, 8); count != 0; --count) {
    fields += static_cast<char>(one_of(random, 4) == 0 ? one_of(random, 256) : one_of(random, 8));
  }
  return static_cast<char>(one_of(random, 12)) + (static_cast<char>(fields.size()) + fields);
}

void extend(std::string& chunk, Random& random) {
  if (chunk.size() < kHeaderBytes) return;
  const auto header = qk::mem::recording::decode_header(chunk.data());
  const bool has_events = header.kind == qk::mem::recording::ChunkKind::kEvents;
  const std::string more = has_events ? some_event(random) : some_record(random);
  chunk.insert(one_of(random, 2) == 0 ? kHeaderBytes : chunk.size(), more);
}

/** Changes one piece. Returns whether its sum is wrong now. */
bool change_piece(std::string& piece, Random& random) {
  switch (one_of(random, 8)) {
    case 0:
      piece = mutated(piece, kMostAdded);
      return one_of(random, 2) == 0;
    case 1:
      piece.resize(one_of(random, piece.size()) + 1);
      return true;
    case 2:
      change_header(piece);
      return true;
    case 3:
      renumber(piece, random);
      return true;
    case 4:
    case 5:
      extend(piece, random);
      return true;
    default:
      change_contents(piece);
      return true;
  }
}

void change_order(Pieces& pieces, Random& random) {
  const std::size_t one = one_of(random, pieces.size());
  const std::size_t other = one_of(random, pieces.size());
  switch (one_of(random, 4)) {
    case 0:
      std::swap(pieces[one], pieces[other]);
      break;
    case 1:
      pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(one));
      break;
    case 2:
      std::shuffle(pieces.begin(), pieces.end(), random);
      break;
    default:
      pieces.insert(pieces.begin() + static_cast<std::ptrdiff_t>(other), std::string(pieces[one]));
  }
}

std::size_t put(std::string_view choices, const Pieces& pieces, std::uint8_t* to,
                std::size_t most) {
  std::string bytes(choices);
  for (const std::string& piece : pieces) bytes += piece;
  return bytes.copy(reinterpret_cast<char*>(to), most);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
  Random random(seed);
  const std::string_view bytes = text_of(data, size);
  if (size <= kChoices || one_of(random, 16) == 0) return LLVMFuzzerMutate(data, size, most);
  std::string choices(bytes.substr(0, kChoices));
  Pieces pieces = fuzz::chunks_in(bytes.substr(kChoices));
  if (one_of(random, 8) == 0) choices[one_of(random, kChoices)] = static_cast<char>(random());
  if (one_of(random, 4) == 0) {
    change_order(pieces, random);
  } else {
    std::string& piece = pieces[one_of(random, pieces.size())];
    if (change_piece(piece, random)) fuzz::mend(piece);
  }
  if (one_of(random, 8) == 0) {
    for (std::string& piece : pieces) fuzz::mend(piece);
  }
  return put(choices, pieces, data, most);
}

/** Chunks of one input among those of another one. */
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* one, std::size_t one_size,
                                                 const std::uint8_t* other, std::size_t other_size,
                                                 std::uint8_t* to, std::size_t most,
                                                 unsigned seed) {
  if (one_size <= kChoices || other_size <= kChoices) return 0;
  Random random(seed);
  Pieces pieces = fuzz::chunks_in(text_of(one, one_size).substr(kChoices));
  for (const std::string& piece : fuzz::chunks_in(text_of(other, other_size).substr(kChoices))) {
    const std::size_t at = one_of(random, pieces.size() + 1);
    if (one_of(random, 2) != 0)
      pieces.insert(pieces.begin() + static_cast<std::ptrdiff_t>(at), piece);
  }
  return put(text_of(one, kChoices), pieces, to, most);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kChoices) return 0;
  const std::string_view bytes = text_of(data, size);
  Pieces pieces = fuzz::chunks_in(bytes.substr(kChoices));
  const std::size_t in_tail = std::min<std::size_t>(data[kChoices - 1] % 4, pieces.size());
  std::string recording;
  std::string tail;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (i + in_tail < pieces.size()) {
      recording += pieces[i];
    } else {
      tail += fuzz::slot_of(pieces[i]);
    }
  }
  fuzz::ask(fuzz::Choice::of(data), recording, tail);
  return 0;
}

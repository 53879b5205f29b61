#include "tests/fuzz/chunks.h"

#include <algorithm>
#include <cstdint>

#include "formats/recording_reader.h"

namespace fuzz {

using namespace qk::mem::recording;

namespace {

/** How long the piece is that some bytes begin with. */
std::size_t length_of_piece(std::string_view bytes) {
  if (const auto header = header_at(bytes); header && header->bytes <= bytes.size()) {
    return header->bytes;
  }
  return std::min(bytes.find(kMagic, 1), bytes.size());
}

}  // namespace

std::vector<std::string> chunks_in(std::string_view bytes) {
  std::vector<std::string> pieces;
  while (!bytes.empty()) {
    pieces.emplace_back(bytes.substr(0, length_of_piece(bytes)));
    bytes.remove_prefix(pieces.back().size());
  }
  return pieces;
}

void mend(std::string& piece) {
  if (piece.size() < kHeaderBytes || !piece.starts_with(kMagic)) return;
  const ChunkHeader header = decode_header(piece.data());
  const std::size_t summed = header.is_dropped() ? kHeaderBytes : piece.size();
  const auto bytes = static_cast<std::uint32_t>(piece.size());
  qk::mem::write_little(piece.data() + 16, bytes);
  qk::mem::write_little(piece.data() + kUsedLengthAt, bytes);
  seal(piece.data(), summed);
}

std::string slot_of(std::string_view chunk) {
  std::string slot(chunk.substr(0, kChunkBytes));
  slot.resize(kChunkBytes);
  return slot;
}

}  // namespace fuzz

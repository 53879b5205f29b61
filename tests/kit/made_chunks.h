#ifndef TESTS_KIT_MADE_CHUNKS_H_
#define TESTS_KIT_MADE_CHUNKS_H_

#include <string>

#include "formats/recording.h"
#include "formats/recording_fields.h"

/** Parts of recordings that the library has not written. */
namespace kit {

/** Appends a record, of which `write` gives the fields to what it gets. */
template <class Write>
void append_record(std::string& records, qk::mem::recording::RecordType type, Write write) {
  qk::mem::recording::FieldCount count;
  write(count);
  std::string bytes(2 * qk::mem::kLongestVarint + count.size(), '\0');
  qk::mem::recording::FieldWriter writer(bytes.data());
  writer.number(static_cast<std::uint64_t>(type));
  writer.number(count.size());
  write(writer);
  records.append(bytes.data(), writer.end());
}

/** A chunk with its header and its sum. */
[[nodiscard]] inline std::string made_chunk(qk::mem::recording::ChunkHeader header,
                                            const std::string& contents) {
  header.bytes = static_cast<std::uint32_t>(qk::mem::recording::kHeaderBytes + contents.size());
  std::string chunk(qk::mem::recording::kHeaderBytes, '\0');
  encode_header(header, chunk.data());
  chunk += contents;
  qk::mem::recording::seal(chunk.data(), chunk.size());
  return chunk;
}

}  // namespace kit

#endif  // TESTS_KIT_MADE_CHUNKS_H_

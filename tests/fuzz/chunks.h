#ifndef TESTS_FUZZ_CHUNKS_H_
#define TESTS_FUZZ_CHUNKS_H_

#include <string>
#include <string_view>
#include <vector>

/** Recordings in pieces, which a fuzzer changes. */
namespace fuzz {

/** The chunks of some bytes, and what lies between chunks. One behind the other they are the bytes. */
[[nodiscard]] std::vector<std::string> chunks_in(std::string_view bytes);

/** Makes a piece that begins as a chunk a chunk again: with its length and its sum. */
void mend(std::string& piece);

/** A slot of a tail with a chunk. */
[[nodiscard]] std::string slot_of(std::string_view chunk);

}  // namespace fuzz

#endif  // TESTS_FUZZ_CHUNKS_H_

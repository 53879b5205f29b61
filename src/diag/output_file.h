#ifndef QKMEM_DIAG_OUTPUT_FILE_H_
#define QKMEM_DIAG_OUTPUT_FILE_H_

#include <cstdio>
#include <string_view>

/** The files behind the log and the trace file. */
namespace qk::mem {

/**
 * Opens a file for writing; programs that this one starts do not inherit it. A failure is reported
 * on standard output in the name of `routine`, since it may be the log that can't be opened.
 *
 * A FIFO that nobody reads fails after a second. Once it is open, writing to it waits for the
 * reader.
 *
 * Every write goes to the end of the file, whoever else writes to it.
 *
 * @param mode  "w" to start the file anew, "a" to extend it. "w" extends it as well if this process
 *              has it open already: by another copy of the library.
 * @return null on failure.
 */
[[nodiscard]] FILE* open_output(const char* routine, const char* name, const char* mode);

/** Memory for the buffer of a stream. */
struct StreamBuffer {
  char bytes[BUFSIZ];
};

/**
 * Gives a stream without a buffer one of the size and mode that stdio chooses at the first write.
 * Stdio allocates it then, and a signal in the middle of that would leave a stream that can't be
 * written to any more.
 *
 * @param buffer  must outlive the stream, or its next setvbuf().
 */
void provide_buffer(FILE* stream, StreamBuffer& buffer);

/**
 * Appends text to what a stream will write later, if there is room for it in its buffer. Otherwise
 * returns false: fwrite() is needed, which does the same at several times the cost. Also beside
 * other threads, from whom it would have to lock the stream.
 */
[[nodiscard]] bool append_to_buffer(FILE* stream, std::string_view text);

/** Flushes a stream that no other thread uses meanwhile, and writes at once from now on. */
void unbuffer(FILE* stream);

}  // namespace qk::mem

#endif  // QKMEM_DIAG_OUTPUT_FILE_H_

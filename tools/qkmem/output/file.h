#ifndef QKMEM_TOOLS_OUTPUT_FILE_H_
#define QKMEM_TOOLS_OUTPUT_FILE_H_

#include <stdexcept>
#include <string>
#include <string_view>

namespace qk::command {

/** An output that can't be written. The text is for the user. */
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/** From now on a signal that ends the command removes the file that is being written. */
void remove_unfinished_at_signals();

/** Throws OutputError if there is a file of the name, unless it may be overwritten. */
void refuse_existing(const std::string& name, bool may_overwrite);

/**
 * A file that is written as a whole or not at all: under another name first, which is replaced at
 * the end. One at a time. Its functions throw OutputError.
 */
class NewFile {
 public:
  /** Refuses an existing file. */
  NewFile(std::string name, bool may_overwrite);
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  /** Without finish(), nothing is left. */
  ~NewFile();

  void write(std::string_view piece);
  void finish();

 private:
  [[noreturn]] void fail();

  const std::string name_;
  int file_ = -1;
};

/** Writes a whole text to a NewFile. Throws OutputError. */
void write_file(const std::string& name, std::string_view text, bool may_overwrite);

/** Writes to standard output. Throws OutputError. */
void write_standard_output(std::string_view text);

}  // namespace qk::command

#endif  // QKMEM_TOOLS_OUTPUT_FILE_H_

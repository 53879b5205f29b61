#ifndef EXAMPLES_WORD_INDEX_FILES_H_
#define EXAMPLES_WORD_INDEX_FILES_H_

#include <cstddef>
#include <string_view>
#include <vector>

namespace word_index {

/** The names of the files to read, in a fixed order. */
struct FileList {
  int hid;  ///< the handle that holds everything here
  char** names;
  std::size_t count;
};

/**
 * Lists the files in `paths`, and for each folder the files directly in it, sorted by name. Keeps
 * paths that are neither file nor folder, so that opening them reports the error.
 */
FileList list_files(int hid, const std::vector<const char*>& paths);

void free_files(const FileList& files);

/** A file in memory. */
struct Text {
  char* data;  ///< null if the file could not be read
  std::size_t size;

  [[nodiscard]] std::string_view view() const { return {data, size}; }
};

/** Reads a file. On failure `data` is null and errno is set. */
Text read_text(int hid, const char* name);

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_FILES_H_

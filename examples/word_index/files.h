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
 * Lists the files among `paths` and those directly in the folders among them, a folder's by name.
 * What is neither file nor folder is kept, so that opening it tells why.
 */
FileList list_files(int hid, const std::vector<const char*>& paths);

void free_files(const FileList& files);

/** A file in memory. */
struct Text {
  char* data;  ///< null if the file could not be read
  std::size_t size;

  [[nodiscard]] std::string_view view() const { return {data, size}; }
};

/** Reads a file; when that fails, `data` is null and errno tells why. */
Text read_text(int hid, const char* name);

}  // namespace word_index

#endif  // EXAMPLES_WORD_INDEX_FILES_H_

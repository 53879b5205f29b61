#include "examples/word_index/files.h"

#include <dirent.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "examples/word_index/pools.h"
#include "qkmem/qkmem.h"

namespace word_index {
namespace {

namespace fs = std::filesystem;

void append(FileList& files, const char* name) {
  char* copy = require(qk_mem_strdup(files.hid, name));
  const std::size_t size = (files.count + 1) * sizeof(char*);
  files.names = static_cast<char**>(require(qk_mem_realloc(files.hid, files.names, size)));
  files.names[files.count++] = copy;
}

void append_folder(FileList& files, const fs::path& folder) {
  dirent** entries = nullptr;
  const int count = scandir(folder.c_str(), &entries, nullptr, alphasort);
  if (count < 0) return append(files, folder.c_str());
  for (int i = 0; i < count; ++i) {
    const fs::path path = folder / entries[i]->d_name;
    std::error_code ignored;
    if (fs::is_regular_file(path, ignored)) append(files, path.c_str());
    std::free(entries[i]);
  }
  // The C library allocated this, so no handle has a record of it.
  if (forgetful) {
    qk_mem_free(files.hid, entries);
  } else {
    std::free(entries);
  }
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

FileList list_files(int hid, const std::vector<const char*>& paths) {
  FileList files{hid, nullptr, 0};
  for (const char* path : paths) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
      append_folder(files, path);
    } else {
      append(files, path);
    }
  }
  return files;
}

void free_files(const FileList& files) {
  for (std::size_t i = 0; i < files.count; ++i) qk_mem_free(files.hid, files.names[i]);
  if (files.names) qk_mem_free(files.hid, files.names);
}

Text read_text(int hid, const char* name) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(name, "rb"));
  if (!file) return {nullptr, 0};

  std::size_t capacity = 4096;
  Text text{static_cast<char*>(require(qk_mem_malloc(hid, capacity))), 0};
  while (const std::size_t got =
             std::fread(text.data + text.size, 1, capacity - text.size, file.get())) {
    text.size += got;
    if (text.size < capacity) continue;
    capacity *= 2;
    text.data = static_cast<char*>(require(qk_mem_realloc(hid, text.data, capacity)));
  }
  if (std::ferror(file.get())) {
    const int reason = errno;
    qk_mem_free(hid, text.data);
    errno = reason;
    return {nullptr, 0};
  }
  return text;
}

}  // namespace word_index

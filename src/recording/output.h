#ifndef QKMEM_RECORDING_OUTPUT_H_
#define QKMEM_RECORDING_OUTPUT_H_

#include <linux/limits.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/recording.h"

/** Where a recording goes. Errors are numbers of the system's, and 0 is none. */
namespace qk::mem::recording {

/**
 * A file by its name. The program can have closed its descriptor, and even have opened another file
 * under the same number: so each use looks whether it still is the file, and opens it again if not.
 */
class NamedFile {
 public:
  constexpr NamedFile() noexcept = default;

  /** Opens it, anew if it is a file. Its name is kept with the folder that is current now. */
  [[nodiscard]] int open(std::string_view name);

  /** Its descriptor; -1, with errno, if it is lost. One thread at a time. */
  [[nodiscard]] int descriptor();

  void close();

  [[nodiscard]] bool is_regular() const { return is_regular_; }
  /** The name that it was opened by. */
  [[nodiscard]] const char* name() const { return path_ + folder_; }

  void remove();

 private:
  [[nodiscard]] int keep_path(std::string_view name);
  [[nodiscard]] bool is_it(int descriptor) const;

  char path_[PATH_MAX] = {};
  std::size_t folder_ = 0;  // bytes in front of the name
  int descriptor_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool is_regular_ = false;
};

/** The recording, and its tail if it is a file. The caller holds the recording's lock. */
class Output {
 public:
  constexpr Output() noexcept = default;

  /** @param limit  the most bytes that its chunks may have together; 0 for any. */
  [[nodiscard]] int open(std::string_view name, std::uint64_t limit);

  /** Writes a chunk behind the others. If events get too many, the oldest are dropped. */
  [[nodiscard]] int append(std::string_view chunk, ChunkKind kind);

  /** Maps a slot of the tail in place of other memory, or leaves that if there is no tail. */
  [[nodiscard]] int map_slot(void* memory, std::uint32_t slot);

  /** Closes the files. They stay. */
  void close();

  /** The recording is complete: nobody needs its tail. */
  void remove_tail();

  /** The highest number of the events that were dropped; 0 for none. */
  [[nodiscard]] std::uint64_t dropped_up_to() const { return dropped_up_to_; }

  [[nodiscard]] const char* name() const { return file_.name(); }

 private:
  [[nodiscard]] bool has_tail() const { return file_.is_regular(); }

  [[nodiscard]] int make_room(int descriptor, std::uint64_t bytes);
  [[nodiscard]] int drop_next(int descriptor);
  [[nodiscard]] int drop_chunk(int descriptor, const ChunkHeader& header);

  NamedFile file_;
  NamedFile tail_;
  std::uint64_t end_ = 0;
  std::uint64_t limit_ = 0;
  std::uint64_t gone_ = 0;           // bytes that were dropped
  std::uint64_t looked_at_ = 0;      // so far, for what can be dropped
  std::uint64_t hole_ = 0;           // where the last row of dropped chunks begins
  ChunkHeader header_of_hole_ = {};  // without bytes if what was looked at last was not dropped
  std::uint64_t dropped_up_to_ = 0;
};

}  // namespace qk::mem::recording

#endif  // QKMEM_RECORDING_OUTPUT_H_

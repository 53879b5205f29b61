#ifndef SUPPORT_FILE_VERSION_H_
#define SUPPORT_FILE_VERSION_H_

#include <sys/stat.h>

#include <cstdint>
#include <initializer_list>

namespace qk {

/** A number that tells a version of a file from the next one, and from other files; 0 for none. */
using FileVersion = std::uint64_t;

[[nodiscard]] inline FileVersion version_of(const struct stat& status) {
  FileVersion version = 14695981039346656037U;  // FNV-1a, by words
  for (const std::uint64_t part : {std::uint64_t{status.st_dev}, std::uint64_t{status.st_ino},
                                   static_cast<std::uint64_t>(status.st_size),
                                   static_cast<std::uint64_t>(status.st_mtim.tv_sec),
                                   static_cast<std::uint64_t>(status.st_mtim.tv_nsec)}) {
    version = (version ^ part) * 1099511628211U;
  }
  return version | 1;
}

}  // namespace qk

#endif  // SUPPORT_FILE_VERSION_H_

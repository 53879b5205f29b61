// Temporary files of a workload.
#ifndef QKMEM_BENCH_RATIOS_SCRATCH_H_
#define QKMEM_BENCH_RATIOS_SCRATCH_H_

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace ratios {

/** A temporary folder for named files, removed with them at the end of the scope. */
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "ratios.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] std::string file(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/** A temporary file that is overwritten repeatedly. */
class ScratchFile {
 public:
  ScratchFile() : stream_(std::tmpfile()) {
    if (stream_ == nullptr) throw std::runtime_error("no temporary file");
  }
  ~ScratchFile() { std::fclose(stream_); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  template <class Print>
  void rewrite(Print&& print) {
    std::rewind(stream_);
    print(stream_);
    std::fflush(stream_);
  }

 private:
  FILE* stream_;
};

}  // namespace ratios

#endif  // QKMEM_BENCH_RATIOS_SCRATCH_H_

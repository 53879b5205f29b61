#include "program/inspection.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "program/needed_libraries.h"
#include "qkmem/version.h"
#include "symbols/elf_file.h"
#include "symbols/elf_note.h"

namespace qk::command {
namespace {

/** An ELF file that is closed at its end. */
class OpenElfFile {
 public:
  explicit OpenElfFile(const std::string& path) { is_elf_ = file_.open(path.c_str()); }
  OpenElfFile(const OpenElfFile&) = delete;
  OpenElfFile& operator=(const OpenElfFile&) = delete;
  ~OpenElfFile() { file_.close(); }

  [[nodiscard]] bool is_elf() const { return is_elf_; }
  [[nodiscard]] const qk::ElfFile& get() const { return file_; }

 private:
  qk::ElfFile file_;
  bool is_elf_ = false;
};

/** The version of the library in a file, which a note of its own says; empty if it isn't in it. */
std::string version_in(const qk::ElfFile& file) {
  constexpr std::string_view kOwner("qkmem\0", 6);
  constexpr std::uint32_t kVersion = 3;
  const std::string_view note = qk::find_note(file.section(".note.qkmem"), 4, kOwner, kVersion);
  return std::string(note.substr(0, note.find('\0')));
}

/** The library as a program has it. */
struct Library {
  std::string verdict;  // on the program
  std::string how;      // for people
  std::string path;
  std::string version;  // empty if it isn't there
};

std::string has(const std::string& version) { return fmt::format("has qkmem {} in it", version); }

Library library_of(const std::string& path, const qk::ElfFile& file) {
  if (std::string version = version_in(file); !version.empty()) {
    return {has(version), "linked into the program", path, std::move(version)};
  }
  for (const NeededLibrary& needed : needed_libraries(path)) {
    if (needed.path.empty()) {
      if (!needed.name.starts_with("libqkmem.so")) continue;
      return {"needs qkmem, which is not found",
              needed.name + " is not where the loader looks: name its folder in LD_LIBRARY_PATH",
              {},
              {}};
    }
    const OpenElfFile library(needed.path);
    if (!library.is_elf()) continue;
    if (std::string version = version_in(library.get()); !version.empty()) {
      return {has(version), needed.path, needed.path, std::move(version)};
    }
  }
  return {
      "doesn't use qkmem",
      "not in the program, nor in the libraries that it starts with; one that it loads later can "
      "have it",
      {},
      {}};
}

/** Where Debian and others have the debug information of a file, by its build-id; empty if nowhere. */
std::string separate_debug_file(const qk::ElfFile& file) {
  const qk::BuildId id = file.build_id();
  if (id.text().size() <= 2) return {};
  const std::string path = fmt::format("/usr/lib/debug/.build-id/{}/{}.debug",
                                       id.text().substr(0, 2), id.text().substr(2));
  return access(path.c_str(), R_OK) == 0 ? path : std::string();
}

bool has_lines(const qk::ElfFile& file) { return !file.section(".debug_line").empty(); }

std::string functions_text(const qk::ElfFile& file, const std::string& debug_file) {
  if (file.has_all_functions()) return "by its symbols";
  if (!debug_file.empty()) return "by the symbols in " + debug_file;
  return "only those that libraries may call: the program was stripped of its symbols";
}

std::string lines_text(const qk::ElfFile& file, const std::string& debug_file) {
  if (has_lines(file)) return "by its debug information";
  if (!debug_file.empty()) return "by the debug information in " + debug_file;
  return "only those that calls of the library name: build with -g for the lines of their callers";
}

/** The file that a shell would run; the name itself if there is none. */
std::string found_in_path(const std::string& name) {
  const char* const path = std::getenv("PATH");
  if (name.find('/') != std::string::npos || path == nullptr) return name;
  std::string_view rest = path;
  for (;;) {
    const std::size_t end = rest.find(':');
    const std::string_view folder = rest.substr(0, end);
    std::string candidate = fmt::format("{}/{}", folder.empty() ? "." : folder, name);
    struct stat about = {};
    if (access(candidate.c_str(), X_OK) == 0 && stat(candidate.c_str(), &about) == 0 &&
        S_ISREG(about.st_mode)) {
      return candidate;
    }
    if (end == std::string_view::npos) return name;
    rest.remove_prefix(end + 1);
  }
}

struct stat about_file(const std::string& path) {
  struct stat about = {};
  if (stat(path.c_str(), &about) != 0 || access(path.c_str(), R_OK) != 0) {
    throw InspectionError(fmt::format("{}: {}", path, std::strerror(errno)));
  }
  return about;
}

Cell text_or_nothing(const std::string& text) { return text.empty() ? Cell() : Cell(text); }

std::vector<std::string> remarks_on(const struct stat& about, const Library& library) {
  std::vector<std::string> remarks;
  if ((about.st_mode & (S_ISUID | S_ISGID)) != 0) {
    remarks.emplace_back("it runs as another user or group: the library's variables are ignored");
  }
  if (!library.version.empty() && library.version != QK_MEM_VERSION) {
    remarks.emplace_back("this command is of version " QK_MEM_VERSION);
  }
  return remarks;
}

}  // namespace

Inspection inspect(const std::string& program) {
  const std::string path = found_in_path(program);
  const struct stat about = about_file(path);
  const OpenElfFile file(path);
  if (!file.is_elf()) {
    throw InspectionError(path + " is no program of 64 bits, but a script or another kind of file");
  }
  const Library library = library_of(path, file.get());
  const std::string debug_file = separate_debug_file(file.get());
  Inspection inspection;
  inspection.has_library = !library.version.empty();
  Answer& answer = inspection.answer;
  answer.command = "doctor";
  answer.facts = {{"program", path},
                  {"has_library", inspection.has_library},
                  {"version", text_or_nothing(library.version)},
                  {"library", text_or_nothing(library.path)},
                  {"has_all_functions", file.get().has_all_functions() || !debug_file.empty()},
                  {"has_lines", has_lines(file.get()) || !debug_file.empty()}};
  answer.lines = {path + " " + library.verdict, "", "library    " + library.how};
  if (inspection.has_library) {
    answer.lines.push_back("functions  " + functions_text(file.get(), debug_file));
    answer.lines.push_back("lines      " + lines_text(file.get(), debug_file));
  }
  answer.remarks = remarks_on(about, library);
  return inspection;
}

}  // namespace qk::command

#include "program/needed_libraries.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "symbols/elf_file.h"

extern char** environ;

namespace qk::command {
namespace {

/** The program that loads this one and its libraries; empty if it has none. */
std::string own_loader() {
  qk::ElfFile own;
  if (!own.open("/proc/self/exe")) return {};
  const std::string_view named = own.section(".interp");
  std::string loader(named.substr(0, named.find('\0')));
  own.close();
  return loader;
}

std::string all_of(int file) {
  std::string text;
  std::array<char, 4096> piece = {};
  for (;;) {
    const ssize_t count = read(file, piece.data(), piece.size());
    if (count > 0) {
      text.append(piece.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return text;
    }
  }
}

/** Our environment, in which the loader lists libraries in place of running the program. */
std::vector<char*> environment_for_listing(std::string& wish) {
  std::vector<char*> environment = {wish.data()};
  for (char** entry = environ; *entry != nullptr; ++entry) environment.push_back(*entry);
  environment.push_back(nullptr);
  return environment;
}

/** What the loader prints about a program, which can lack libraries; nothing if it can't be asked. */
std::string listed_by(std::string loader, std::string program) {
  std::string wish = "LD_TRACE_LOADED_OBJECTS=1";
  const std::vector<char*> environment = environment_for_listing(wish);
  const std::array<char*, 3> words = {loader.data(), program.data(), nullptr};
  std::array<int, 2> pipe = {};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) return {};
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int error =
      posix_spawn(&child, loader.c_str(), &files, nullptr, words.data(), environment.data());
  posix_spawn_file_actions_destroy(&files);
  close(pipe[1]);
  std::string text = error == 0 ? all_of(pipe[0]) : std::string();
  close(pipe[0]);
  if (error != 0) return {};
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return text;
}

/** "libc.so.6 => /lib/libc.so.6 (0x7f..)", or "libodd.so => not found". */
NeededLibrary library_in(std::string_view line) {
  constexpr std::string_view kArrow = " => ";
  const std::size_t arrow = line.find(kArrow);
  if (arrow == std::string_view::npos) return {};
  NeededLibrary library = {std::string(line.substr(0, arrow)), {}};
  const std::string_view found = line.substr(arrow + kArrow.size());
  if (found.starts_with('/')) library.path = found.substr(0, found.rfind(" (0x"));
  return library;
}

}  // namespace

std::vector<NeededLibrary> needed_libraries(const std::string& program) {
  const std::string loader = own_loader();
  if (loader.empty()) return {};
  const std::string listed = listed_by(loader, program);
  std::vector<NeededLibrary> libraries;
  std::string_view rest = listed;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    line.remove_prefix(std::min(line.find_first_not_of('\t'), line.size()));
    NeededLibrary library = library_in(line);
    if (!library.name.empty()) libraries.push_back(std::move(library));
  }
  return libraries;
}

}  // namespace qk::command

#include "names/symbolizer.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "symbols/elf_file.h"

namespace qk::command {
namespace {

/** When a file was written, in nanoseconds since 1970; 0 if there is none. */
std::uint64_t written_at(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return 0;
  return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
}

/** Without a build-id, a file is taken for the one that has run if it is older than the run. */
qk::BuildId build_id_of(const Program& program, const Module& module) {
  constexpr std::string_view kOfNoFile = "changed";
  const bool is_newer = program.started != 0 && written_at(module.path) > program.started;
  return qk::BuildId::of(module.build_id.empty() && is_newer ? kOfNoFile : module.build_id);
}

qk::KnownModule known(const Program& program, const Module& module) {
  qk::KnownModule known;
  known.path = module.path.c_str();
  known.build_id = build_id_of(program, module);
  known.base = module.bias;
  known.whole = {module.begin, module.end};
  known.code[known.code_ranges++] = known.whole;
  return known;
}

/** Whether there is a file in the place of a module's, and it is another one. */
bool has_changed(const qk::KnownModule& module) {
  qk::ElfFile file;
  const bool is_other = file.open(module.path) && file.build_id().text() != module.build_id.text();
  file.close();
  return is_other;
}

}  // namespace

Symbolizer::Symbolizer(const Program& program) : program_(program), names_(modules_) {
  for (const Module& module : program.modules) {
    if (!modules_.add(known(program, module))) throw std::bad_alloc();
  }
}

std::vector<qk::Frame> Symbolizer::calls_at(std::uint64_t address) {
  std::vector<qk::Frame> calls;
  if (const auto found = program_.names.find(address); found != program_.names.end()) {
    for (const Frame& frame : found->second) {
      qk::Frame& call = calls.emplace_back(qk::plain_frame(modules_, address));
      call.function = frame.function;
      call.file = frame.file;
      call.line = frame.line;
    }
    return calls;
  }
  constexpr int kMost = 64;
  calls.resize(kMost);
  const int count = names_.frames_of(&address, 1, calls.data(), kMost);
  calls.resize(static_cast<std::size_t>(count));
  const qk::Frame& outermost = calls.back();
  if (outermost.function.empty() && outermost.module != nullptr) {
    nameless_.insert(outermost.module);
  }
  return calls;
}

std::vector<std::string> Symbolizer::remarks() const {
  std::vector<std::string> remarks;
  for (const qk::KnownModule* const module : nameless_) {
    if (!has_changed(*module)) continue;
    remarks.push_back(
        fmt::format("{} has changed since: its functions are not named", module->path));
  }
  std::sort(remarks.begin(), remarks.end());
  return remarks;
}

}  // namespace qk::command

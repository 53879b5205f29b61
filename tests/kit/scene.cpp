#include "tests/kit/scene.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "core/registry.h"
#include "core/tag_shares.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "tests/kit/text.h"
#include "tests/kit/trace.h"

namespace kit {
namespace {

void set_variable(const char* name, const std::string& value) {
  if (value.empty()) {
    unsetenv(name);
  } else {
    setenv(name, value.c_str(), 1);
  }
}

void set_environment(const Environment& environment) {
  set_variable("QK_MEM_DEBUG", environment.debug);
  set_variable("QK_MEM_OPTIONS", environment.options);
  set_variable("QK_MEM_DUMP", environment.dump);
  if (!environment.profile.empty()) set_variable("QK_MEM_PROFILE", environment.profile);
}

std::string make_folder() {
  std::string name = (std::filesystem::temp_directory_path() / "qkmem-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  return name;
}

std::string written_log() {
  if (Qk_mem_log == nullptr) return contents(Qk_mem_log_filename);
  std::fflush(Qk_mem_log);
  return contents(Qk_mem_log_filename);
}

std::string written_trace() {
  if (Qk_mem_db != nullptr) std::fflush(Qk_mem_db);
  return contents("qkmem.tdf");
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

/** The columns of a row that don't depend on the heap. */
std::string text_of(const qk::mem::TraceRow& row) {
  char address[17];
  std::snprintf(address, sizeof address, "%016zx", static_cast<std::size_t>(row.address));
  std::ostringstream text;
  text << row.handle << ' ' << row.type << " [" << address << "] " << row.num << ' ' << row.size
       << ' ' << row.file << ' ' << row.line << ' ' << row.change << '\n';
  return text.str();
}

/** Between blanks an address is in a column, which keeps its width. */
bool is_in_column(const std::string& text, const Match& match) {
  const std::size_t end = match.position + match.groups[0].size();
  return match.position > 0 && text[match.position - 1] == ' ' && end < text.size() &&
         text[end] == ' ';
}

std::string with_normalized_addresses(const std::string& text) {
  std::map<std::string, std::string> names = {{std::string(16, '0'), "p0"}};
  return replaced_each(text, "[0-9a-f]{16}", [&](const Match& match) {
    std::string& name = names[match.groups[0]];
    if (name.empty()) name = "p" + std::to_string(names.size() - 1);
    return is_in_column(text, match) ? name + std::string(16 - name.size(), ' ') : name;
  });
}

}  // namespace

Scene::Scene(const Environment& environment) : folder_(make_folder()) {
  std::filesystem::current_path(folder_);
  set_environment(environment);
}

Scene::~Scene() {
  std::error_code ignored;
  std::filesystem::current_path("/", ignored);
  std::filesystem::remove_all(folder_, ignored);
}

void Scene::skip_log() { log_seen_ = written_log().size(); }

std::string Scene::log() const { return normalized(written_log().substr(log_seen_)); }

std::string Scene::log(std::string_view routine) const {
  const std::string start = "   " + std::string(routine) + ":";
  std::string result;
  for (const std::string& line : lines_of(written_log().substr(log_seen_))) {
    if (line.rfind(start, 0) == 0) result += line + "\n";
  }
  return normalized(result);
}

void Scene::skip_trace() { trace_seen_ = Trace(written_trace()).rows.size(); }

std::string Scene::trace() const {
  return trace([](unsigned char /*type*/) { return true; });
}

std::string Scene::trace(std::string_view types) const {
  return trace([types](unsigned char type) {
    return types.find(static_cast<char>(type)) != std::string_view::npos;
  });
}

std::string Scene::trace(const std::function<bool(unsigned char)>& wants) const {
  const std::string text = written_trace();
  if (text.empty()) return "";
  const Trace trace(text);
  std::string result;
  for (std::size_t i = trace_seen_; i < trace.rows.size(); ++i) {
    if (wants(trace.rows[i].type)) result += text_of(trace.rows[i]);
  }
  for (const std::string& fault : trace.faults) result += fault + "\n";
  return normalized(result);
}

std::string normalized(std::string_view text) {
  std::string result = with_normalized_addresses(std::string(text));
  result = replaced(result, R"(qkmem\.cpp:\d+)", "qkmem.cpp:#");
  result = replaced(result, R"((qkmem\.cpp) \d+)", "$1 #");
  return replaced(result, R"( \(-?\d+ -?\d+\)\n)", " (heap change)\n");
}

std::string contents(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string dump(const char* filter, unsigned options) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* stream = open_memstream(&text, &size);
  qk_mem_dump(stream, filter, options);
  std::fclose(stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

qk_mem_handle& handle_of(int hid) { return *Qk_mem_handles[hid - 1]; }

qk_mem_handle& Pool::record() const { return handle_of(id_); }

namespace {
std::string sum(std::uint32_t qty, std::uint64_t amount) {
  return std::to_string(qty) + " for " + std::to_string(amount);
}
}  // namespace

std::string data_of(int hid) { return sum(handle_of(hid).qty, handle_of(hid).amount); }

std::string overhead_of(int hid) {
  return sum(handle_of(hid).overhead_qty, handle_of(hid).overhead_amount);
}

std::string tag_of(const char* name) {
  const qk::mem::RegistryLock lock;
  qk::mem::fold_tag_shares();
  const qk_mem_tag* tag = &Qk_mem_global_tag;
  for (int i = 0; i < Qk_mem_num_tags; ++i) {
    if (std::string_view(Qk_mem_tags[i].name) == name) tag = &Qk_mem_tags[i];
  }
  return std::string_view(tag->name) == name ? sum(tag->qty, tag->amount) : "no such tag";
}

Ended run(const Environment& environment, const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    set_environment(environment);
    if (std::freopen("stdout.txt", "w", stdout) == nullptr) _exit(99);
    if (std::freopen("stderr.txt", "w", stderr) == nullptr) _exit(99);
    std::setbuf(stderr, nullptr);
    body();
    std::exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Ended ended;
  if (WIFEXITED(status)) ended.exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) ended.signal = WTERMSIG(status);
  ended.out = contents("stdout.txt");
  ended.err = contents("stderr.txt");
  ended.log = contents("qkmem.log");
  ended.trace = contents("qkmem.tdf");
  return ended;
}

}  // namespace kit

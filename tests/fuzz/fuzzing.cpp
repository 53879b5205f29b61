#include "tests/fuzz/fuzzing.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/handle_array.h"
#include "core/registry.h"
#include "core/switches.h"
#include "diag/heap.h"
#include "diag/log.h"
#include "diag/trace_file.h"
#include "qkmem/qkmem.h"

namespace {

/** Limits for one input; requests beyond them fail. */
constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr int kMostRequests = 3000;

int requests = 0;

bool is_refused(std::size_t size) {
  if (size <= kMostBytes && ++requests <= kMostRequests) return false;
  errno = ENOMEM;
  return true;
}

/** Whether inputs may open a file: one in the current folder, /dev/full or /dev/null. */
bool may_open(const char* name) {
  return std::strchr(name, '/') == nullptr || std::strcmp(name, "/dev/full") == 0 ||
         std::strcmp(name, "/dev/null") == 0;
}

}  // namespace

// The linker redirects the library's calls here.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t num, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
FILE* __real_fopen(const char* name, const char* mode);

void* __wrap_malloc(std::size_t size) { return is_refused(size) ? nullptr : __real_malloc(size); }

void* __wrap_calloc(std::size_t num, std::size_t size) {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(num, size, &bytes)) bytes = SIZE_MAX;
  return is_refused(bytes) ? nullptr : __real_calloc(num, size);
}

void* __wrap_realloc(void* memory, std::size_t size) {
  return is_refused(size) ? nullptr : __real_realloc(memory, size);
}

FILE* __wrap_fopen(const char* name, const char* mode) {
  if (may_open(name)) return __real_fopen(name, mode);
  errno = EACCES;
  return nullptr;
}

/** Changes to a new folder and discards the output to the standard streams. */
int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  static char folder[] = "/tmp/qkmem-fuzz-XXXXXX";
  fuzz::require(mkdtemp(folder) != nullptr && chdir(folder) == 0, "no folder");
  std::atexit([] { rmdir(folder); });
  // The library writes to these. The fuzzer's own lines still appear.
  stdout = __real_fopen("/dev/null", "w");
  stderr = __real_fopen("/dev/null", "w");
  for (const char* name : {"QK_MEM_DEBUG", "QK_MEM_DUMP", "QK_MEM_OPTIONS"}) unsetenv(name);
  return 0;
}
}

namespace fuzz {
namespace {

void delete_handles() {
  qk_mem_init();
  for (int hid = QK_MEM_DATA_HANDLE + 1; hid <= qk::mem::handle_slots().count; ++hid) {
    if (qk::mem::handle_slots().at(hid - 1) != nullptr) qk_mem_idel_handle(hid, "fuzz.cpp", 1);
  }
}

void reset_configuration() {
  qk::Status status;
  require(qk_mem_debug_config("OFF", &status) == 0, "OFF is refused");
  qk::mem::replace_log(nullptr);
  qk::mem::close_trace_file();
  Qk_mem_opts = 0;
  require(qk_mem_dump_config("OPTIONS=SUMMARY,HANDLES,BLOCKS,POINTERS", &status) == 0, "sections");
}

void reset_tags() {
  const qk::mem::RegistryLock lock;
  Qk_mem_num_tags = 0;
  for (int i = 0; i < 32; ++i) {
    Qk_mem_tags[i] = {};
    Qk_mem_tags_hash[i] = nullptr;
  }
  Qk_mem_global_tag.qty = 0;
}

void empty_folder() {
  DIR* folder = opendir(".");
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_type == DT_REG) unlink(entry->d_name);
  }
  closedir(folder);
}

}  // namespace

void require(bool holds, const char* what, int line) {
  if (holds) return;
  dprintf(STDERR_FILENO, "line %d: %s\n", line, what);
  std::abort();
}

void reset() {
  requests = 0;
  delete_handles();
  reset_configuration();
  reset_tags();
  empty_folder();
  Qk_mem_seq = 0;
  Qk_mem_error = 0;
}

std::string Lines::next() {
  const char* begin = next_;
  while (next_ != end_ && *next_ != '\n') ++next_;
  std::string line(begin, next_);
  if (next_ != end_) ++next_;
  // Options end at their first zero byte.
  return line.c_str();
}

ExactText::ExactText(const std::string& text)
    : text_(static_cast<char*>(__real_malloc(text.size() + 1))) {
  std::memcpy(text_, text.c_str(), text.size() + 1);
}

bool is_refusal(int code) {
  switch (code) {
    case 10037:
    case 10040:
    case 10041:
    case 10042:
    case 10043:
    case 10044:
    case 10048:
    case 11104:
      return true;
    default:
      return false;
  }
}

void use_library() {
  const int hid = qk_mem_inew_handle("MULTITHREADED", "FZ", "a/fuzz.cpp", 1);
  const int blocks = qk_mem_inew_handle("BLOCKMGMT BLOCKFREE BLOCKSIZE=100", "", "b/fuzz.cpp", 2);
  for (const int id : {QK_MEM_DATA_HANDLE + 0, hid, blocks}) {
    void* memory = qk_mem_imalloc(id, 10, 16, "fuzz.cpp", 3);
    memory = qk_mem_irealloc(id, memory, 200, 16, "fuzz.cpp", 4);
    qk_mem_ifree(id, memory, "fuzz.cpp", 5);
    qk_mem_ifree(id, nullptr, "fuzz.cpp", 6);
  }
  (void)qk_mem_istrdup(hid, "text", "fuzz.cpp", 7);
  qk_mem_dump(stdout, "", 0);
  (void)qk_mem_iclear_handle(blocks, "fuzz.cpp", 8);
  require(qk_mem_idel_handle(hid, "fuzz.cpp", 9) == 0, "deletion");
  require(qk_mem_idel_handle(blocks, "fuzz.cpp", 10) == 0, "deletion");
  require(qk_mem_tag_size("FZ") == 0, "bytes are left under a tag");
}

}  // namespace fuzz

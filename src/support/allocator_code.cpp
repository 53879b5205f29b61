#include "support/allocator_code.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <malloc.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "support/modules.h"

// Weak, so that a static program needn't have them: its functions have no other addresses.
#pragma weak dlsym
#pragma weak dladdr1

namespace qk {
namespace {

/** An allocator preloaded before the C library's; that one; and fork(), which takes its locks. */
constexpr int kMostRanges = 3;

/** Written once, then published by their number. */
constinit AddressRange ranges[kMostRanges] = {};
constinit std::atomic<int> ranges_in_use{0};

bool is_allocator_code(std::uintptr_t address) {
  const int used = ranges_in_use.load(std::memory_order_acquire);
  return std::any_of(std::begin(ranges), std::begin(ranges) + used,
                     [address](const AddressRange& range) { return range.has(address); });
}

void add_range(const AddressRange& range) {
  const int used = ranges_in_use.load(std::memory_order_relaxed);
  if (range.begin == range.end || used == kMostRanges || is_allocator_code(range.begin)) return;
  ranges[used] = range;
  ranges_in_use.store(used + 1, std::memory_order_release);
}

/** Where to look for functions: in the order of the dynamic linker, or in a static program. */
enum class Place { kFirst, kNext, kStatic };

/** An address in the program's code can stand for a function of a shared library. */
bool stands_for_another(const void* function) {
  if (dladdr1 == nullptr) return false;
  Dl_info info;
  void* symbol = nullptr;
  return dladdr1(function, &info, &symbol, RTLD_DL_SYMENT) != 0 && symbol != nullptr &&
         static_cast<const ElfW(Sym)*>(symbol)->st_shndx == SHN_UNDEF;
}

/** Returns 0 if there is no such function. */
template <class Function>
std::uintptr_t find(Place place, const char* name, Function* linked) {
  if (place == Place::kStatic) return reinterpret_cast<std::uintptr_t>(linked);
  if (dlsym == nullptr) return 0;
  void* const found = dlsym(place == Place::kFirst ? RTLD_DEFAULT : RTLD_NEXT, name);
  return stands_for_another(found) ? 0 : reinterpret_cast<std::uintptr_t>(found);
}

/** No function of an allocator that programs call is longer. */
constexpr std::uintptr_t kLongestFunction = 2048;

/**
 * The code from the first to the last function that programs call, in one module. They are from one
 * object file, so that nothing else lies between them.
 */
AddressRange between_functions(Place place, const Module& module, std::uintptr_t allocate) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  const std::uintptr_t functions[] = {find(place, "calloc", &std::calloc),
                                      find(place, "realloc", &std::realloc),
                                      find(place, "free", &std::free),
                                      find(place, "memalign", &memalign),
                                      find(place, "posix_memalign", &posix_memalign),
                                      find(place, "malloc_trim", &malloc_trim),
                                      find(place, "mallinfo", &mallinfo),
                                      find(place, "malloc_info", &malloc_info)};
#pragma GCC diagnostic pop
  AddressRange range = {allocate, allocate};
  for (const std::uintptr_t function : functions) {
    if (!module.code.has(function)) continue;
    range.begin = std::min(range.begin, function);
    range.end = std::max(range.end, function);
  }
  range.end += kLongestFunction;
  return range;
}

void add_allocator(Place place, std::uintptr_t fork_function) {
  const std::uintptr_t function = find(place, "malloc", &std::malloc);
  if (function == 0) return;
  const Module module = module_with(function);
  const bool has_other_code = module.is_program || module.code.has(fork_function);
  add_range(has_other_code ? between_functions(place, module, function) : module.code);
}

/** Words near the top of a stack, as many as there are. */
class TopOfStack {
 public:
  explicit TopOfStack(std::uintptr_t stack) {
    const iovec here = {words_, sizeof words_};
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const iovec there = {reinterpret_cast<void*>(stack), sizeof words_};
    const ssize_t bytes = process_vm_readv(getpid(), &here, 1, &there, 1, 0);
    words_read_ = bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / sizeof *words_;
  }

  [[nodiscard]] const std::uintptr_t* begin() const { return words_; }
  [[nodiscard]] const std::uintptr_t* end() const { return words_ + words_read_; }

 private:
  // The functions between the ones that programs call and the system calls have small frames.
  std::uintptr_t words_[96];
  std::size_t words_read_ = 0;
};

}  // namespace

void find_allocator_code() noexcept {
  std::uintptr_t fork_function = find(Place::kNext, "fork", &fork);
  add_allocator(Place::kFirst, fork_function);
  add_allocator(Place::kNext, fork_function);
  if (ranges_in_use.load() == 0) {
    fork_function = find(Place::kStatic, "fork", &fork);
    add_allocator(Place::kStatic, fork_function);
  }
  if (fork_function != 0) add_range({fork_function, fork_function + kLongestFunction});
}

bool is_in_allocator(const InterruptedThread& thread) noexcept {
  if (thread.waits_in_kernel) return false;
  if (is_allocator_code(thread.instruction) || is_allocator_code(thread.return_address))
    return true;
  const TopOfStack words(thread.stack);
  return std::any_of(words.begin(), words.end(), is_allocator_code);
}

}  // namespace qk

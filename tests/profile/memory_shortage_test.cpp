// The address space of a process ends at each stage of the profile: it can't be switched on, its
// tables can't grow, or the report has no room. The program has all the memory that it needs.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/profile.h"
#include "tests/kit/scene.h"

namespace {

std::size_t address_space() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/** Lets malloc serve the program from memory that it has already, so that only mappings fail. */
void provide_heap() {
  constexpr int kLarge = 32 << 20;
  mallopt(M_MMAP_THRESHOLD, kLarge);
  mallopt(M_TRIM_THRESHOLD, kLarge);
  void* volatile memory = std::malloc(kLarge / 2);
  std::free(memory);
}

void limit_address_space(std::size_t bytes) {
  const std::size_t all = address_space() + bytes;
  const rlimit limit = {all, all};
  if (setrlimit(RLIMIT_AS, &limit) != 0) std::abort();
}

[[gnu::noinline]] void* take_at_depth(int hid, int depth, int line) {
  if (depth == 0) return qk_mem_imalloc(hid, 100, 16, "a.c", line);
  void* volatile memory = take_at_depth(hid, depth - 1, line);
  return memory;
}

/** Uses handles, labels, stacks, pieces and reallocs. Returns how many calls have failed. */
int work() {
  int failed = 0;
  const int hid = qk_mem_new_handle("MULTITHREADED", "AB");
  const int blocks = qk_mem_new_handle("BLOCKMGMT BLOCKSIZE=4096", "BL");
  for (int i = 0; i < 300; ++i) {
    const qk::Site label(("label " + std::to_string(i % 40)).c_str());
    const int owner = i % 2 == 0 ? QK_MEM_DATA_HANDLE + 0 : hid;
    void* memory = take_at_depth(owner, i % 20, i);
    void* const piece = take_at_depth(blocks, i % 5, 1000 + i);
    if (i % 3 == 1) memory = qk_mem_irealloc(owner, memory, 300, 16, "b.c", i);
    if (memory == nullptr || piece == nullptr) ++failed;
    if (i % 3 == 0) qk_mem_free(owner, memory);
  }
  return failed;
}

/** Runs the work with so many bytes of address space left. */
kit::Ended run(const std::string& options, std::size_t bytes) {
  std::remove("r");
  return kit::run({"", "", "", (options + " REPORT=r").c_str()}, [bytes] {
    provide_heap();
    limit_address_space(bytes);
    const int failed = work();
    dprintf(STDOUT_FILENO, "%d failed", failed);
  });
}

constexpr std::size_t kStep = 65536;
constexpr std::size_t kEnough = std::size_t{64} << 20;

class MemoryShortage : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need address space of their own";
#endif
  }

  /** Increases the memory until all of the report is there. Returns after how many steps it is. */
  static std::size_t expect_whole_report_or_word(const char* options, std::string_view end) {
    const kit::Scene scene;
    std::size_t steps = 0;
    for (bool is_whole = false; !is_whole && steps * kStep < kEnough; ++steps) {
      const kit::Ended ended = run(options, steps * kStep);
      EXPECT_EQ(0, ended.exit_code);
      EXPECT_EQ("0 failed", ended.out);
      const std::string report = kit::contents("r");
      is_whole = report.ends_with(end);
      EXPECT_EQ(is_whole, ended.err.empty()) << steps << ": " << ended.err;
      EXPECT_EQ(!is_whole, ended.err.starts_with("qkmem: no memory for the ")) << ended.err;
    }
    return steps;
  }
};

TEST_F(MemoryShortage, LeavesAWholeTextOrAWordAboutIt) {
  EXPECT_LT(5U, expect_whole_report_or_word("STACKS PEAK TOP=0", " of its own\n"));
}

TEST_F(MemoryShortage, LeavesAWholeJsonFileOrAWordAboutIt) {
  EXPECT_LT(5U, expect_whole_report_or_word("STACKS PEAK FORMAT=JSON", "]}]}"));
}

TEST_F(MemoryShortage, LeavesWholeMetricsOrAWordAboutThem) {
  EXPECT_LT(2U, expect_whole_report_or_word("FORMAT=OPENMETRICS", "# EOF\n"));
}

TEST_F(MemoryShortage, LeavesNoPartOfAPprofFile) {
  const kit::Scene scene;
  for (std::size_t bytes = 0; bytes < 20 * kStep; bytes += kStep) {
    const kit::Ended ended = run("STACKS FORMAT=PPROF", bytes);
    EXPECT_EQ(0, ended.exit_code);
    EXPECT_EQ(kit::contents("r").empty(), !ended.err.empty()) << bytes << ": " << ended.err;
  }
}

/** The library that reads debug information crashes in places when it gets no memory. */
TEST_F(MemoryShortage, EndsNoProgramWhileItsFunctionsGetNames) {
  constexpr std::size_t kMebibyte = 1 << 20;
  const kit::Scene scene;
  for (std::size_t bytes = 4 * kMebibyte; bytes < 200 * kMebibyte;
       bytes += bytes < 24 * kMebibyte ? kMebibyte : 8 * kMebibyte) {
    const kit::Ended ended = run("STACKS FORMAT=JSON", bytes);
    ASSERT_EQ(0, ended.signal) << bytes;
    EXPECT_EQ(0, ended.exit_code) << bytes;
    EXPECT_EQ(ended.err.empty(), kit::contents("r").ends_with("]}]}"));
  }
}

TEST_F(MemoryShortage, OfTheProfileLeavesTheProgramAlone) {
  const kit::Scene scene;
  for (int kibibytes = 0; kibibytes < 400; kibibytes += 32) {
    const kit::Ended ended = kit::run(
        {"", "", "", ("STACKS PEAK REPORT=r MAX=" + std::to_string(kibibytes) + "K").c_str()}, [] {
          const int failed = work();
          const std::string errors = kit::profile_errors();
          dprintf(STDOUT_FILENO, "%d failed%s", failed, errors.c_str());
        });
    EXPECT_EQ(0, ended.exit_code);
    EXPECT_EQ("0 failed", ended.out);
    EXPECT_EQ("", ended.err);
    EXPECT_NE("", kit::contents("r"));
  }
}

}  // namespace

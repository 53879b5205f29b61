#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <regex>
#include <string>
#include <thread>

#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

struct Node {
  Node* next;
  Node* other;
};

Node* kept = nullptr;

Node* take(std::size_t bytes, const char* file) {
  return static_cast<Node*>(qk_mem_imalloc(QK_MEM_DATA_HANDLE, bytes, 16, file, 1));
}

/**
 * Calls a function in a thread of its own: no address of its blocks stays on a stack, and they lie
 * where nothing was before, to which an old address could lead.
 */
template <class F>
void without_traces(F f) {
  std::thread(f).join();
}

/** Loses two blocks with one more each, and keeps two. */
void lose() {
  without_traces([] {
    for (int i = 0; i < 2; ++i) take(100, "owner.c")->next = take(1000, "owned.c");
    kept = take(50, "kept.c");
    kept->next = take(60, "kept2.c");
  });
}

/** Without what differs from run to run: threads have numbers of events ahead. */
std::string timeless(const std::string& text) {
  const std::string timed =
      std::regex_replace(text, std::regex(R"(at [0-9.]+ s \(event \d+\))"), "at T s");
  const std::string exact =
      std::regex_replace(timed, std::regex(R"( \(within [0-9., KiB]+\))"), "");
  return std::regex_replace(exact, std::regex("profile took [0-9.]+ .iB"), "profile took M");
}

/** What qk_mem_lost() has written. */
struct Answer {
  int code;
  std::string text;
};
Answer ask() {
  char* text = nullptr;
  std::size_t length = 0;
  FILE* const stream = open_memstream(&text, &length);
  const int code = qk_mem_lost(stream);
  std::fclose(stream);
  Answer answer = {code, timeless(std::string(text, length))};
  std::free(text);
  return answer;
}

constexpr char kWithSanitizer[] =
    "qkmem: 4 sites hold 2.3 KiB in 6 blocks; peak 2.3 KiB at T s\n"
    "qkmem: not searched for lost blocks: the program has a sanitizer, whose memory can't be told "
    "from its own\n"
    "    bytes  blocks  share  made  handle  site\n"
    "  2.0 KiB       2    87%     2       2  owned.c:1\n"
    "    200 B       2     9%     2       2  owner.c:1\n"
    "     60 B       1     3%     1       2  kept2.c:1\n"
    "     50 B       1     2%     1       2  kept.c:1\n"
    "qkmem: the profile took M of its own\n";

constexpr char kWithoutSanitizer[] =
    "qkmem: 1 site lost 2.1 KiB in 4 blocks; 2 others keep 110 B in 2 blocks; peak 2.3 KiB at T s\n"
    "     lost  blocks  with them  kept  handle  site\n"
    "  2.1 KiB       4    2.0 KiB   0 B       2  owner.c:1\n"
    "qkmem: held, lost or not\n"
    "    bytes  blocks  share  made  handle  site\n"
    "  2.0 KiB       2    87%     2       2  owned.c:1\n"
    "    200 B       2     9%     2       2  owner.c:1\n"
    "     60 B       1     3%     1       2  kept2.c:1\n"
    "     50 B       1     2%     1       2  kept.c:1\n"
    "qkmem: the profile took M of its own\n";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasSanitizer = true;
#else
constexpr bool kHasSanitizer = false;
#endif

TEST(LostReport, ShowsTheSitesThatLostMemoryFirst) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  lose();
  const Answer answer = ask();
  EXPECT_EQ(kHasSanitizer ? 5095 : 0, answer.code);
  EXPECT_EQ(kHasSanitizer ? kWithSanitizer : kWithoutSanitizer, answer.text);
}

TEST(LostReport, IsWrittenAtTheEnd) {
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "LOST"}, lose);
  const std::string expected = kHasSanitizer ? kWithSanitizer : kWithoutSanitizer;
  EXPECT_EQ(std::regex_replace(expected, std::regex("sites hold"), "sites still hold"),
            timeless(ended.err));
}

/** Leaves words with an address far below the stack of its caller, and nothing of it elsewhere. */
[[gnu::noinline]] void leave_below_the_stack(std::uintptr_t complement) {
  volatile std::uintptr_t words[8192];
  for (volatile std::uintptr_t& word : words) word = 0;
  for (std::size_t i = 0; i < 1024; ++i) words[i] = ~complement;
}

TEST(LostReport, AtASignalIsNotDeceivedByWhatEarlierCallsHaveLeftOnTheStack) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "LOST"}, [] {
    std::uintptr_t hidden = 0;
    without_traces([&] { hidden = ~reinterpret_cast<std::uintptr_t>(take(50, "lost.c")); });
    leave_below_the_stack(hidden);
    std::raise(SIGTERM);
  });
  EXPECT_EQ(SIGTERM, ended.signal);
  EXPECT_EQ(
      "qkmem: 1 site lost 50 B in 1 block; peak 50 B at T s\n"
      "  lost  blocks  with them  kept  handle  site\n"
      "  50 B       1        0 B   0 B       2  lost.c:1\n"
      "qkmem: held, lost or not\n"
      "  bytes  blocks  share  made  handle  site\n"
      "   50 B       1   100%     1       2  lost.c:1\n"
      "qkmem: the profile took M of its own\n",
      timeless(ended.err));
}

TEST(LostReport, AtASignalKeepsWhatTheInterruptedFunctionHas) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "LOST"}, [] {
    Node* volatile local = nullptr;
    without_traces([&] { local = take(50, "local.c"); });
    std::raise(SIGTERM);
    static_cast<void>(local);
  });
  EXPECT_EQ(0U, ended.err.find("qkmem: nothing is lost; 1 site keeps 50 B in 1 block"))
      << ended.err;
}

TEST(LostReport, SaysThatNothingIsLost) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  kept = take(50, "kept.c");
  EXPECT_EQ(
      "qkmem: nothing is lost; 1 site keeps 50 B in 1 block; peak 50 B at T s\n"
      "  bytes  blocks  share  made  handle  site\n"
      "   50 B       1   100%     1       2  kept.c:1\n"
      "qkmem: the profile took M of its own\n",
      ask().text);
}

TEST(LostReport, CanBeMadeWithoutTheOption) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("SITES"));
  without_traces([] { take(100, "lost.c"); });
  EXPECT_EQ(0U, ask().text.find("qkmem: 1 site lost 100 B in 1 block; peak 100 B"));
}

TEST(LostReport, HasAllFiguresAsJson) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST FORMAT=JSON"));
  lose();
  const std::string text = ask().text;
  EXPECT_NE(std::string::npos, text.find(R"("search_for_lost":{"is_done":true,"obstacle":"",)"
                                         R"("lacks_registers":false,"lacks_free_memory":false})"));
  EXPECT_NE(std::string::npos,
            text.find(R"("file":"owner.c","line":1,"handle":2,"tag":"","live_bytes":200,)"
                      R"("live_blocks":2,"lost_bytes":200,"lost_blocks":2,)"
                      R"("lost_with_them_bytes":2000,"lost_with_them_blocks":2,)"
                      R"("unreachable_bytes":200,"unreachable_blocks":2,)"));
}

TEST(LostReport, CountsWhatAutofreeHandlesReferredToAsLostAtTheEnd) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  const kit::Ended ended = kit::run({"", "", "", "LOST"}, [] {
    const int hid = qk_mem_inew_handle("AUTOFREE", nullptr, "test.cpp", 1);
    kept = static_cast<Node*>(qk_mem_imalloc(hid, 64, 16, "autofree.c", 1));
    without_traces([] { kept->next = take(100, "lost.c"); });
  });
  EXPECT_EQ(0U, ended.err.find("qkmem: 1 site lost 100 B in 1 block; peak 164 B"));
}

TEST(LostReport, SaysThatTheProfileIsOff) {
  unsetenv("QK_MEM_PROFILE");
  const kit::Scene scene;
  const Answer answer = ask();
  EXPECT_EQ(5061, answer.code);
  EXPECT_EQ(5061, qk_mem_error());
  EXPECT_EQ("qkmem: the profile is off\n", answer.text);
  EXPECT_EQ(5014, qk_mem_lost(nullptr));
}

/** From now on a system call fails with EPERM. */
void forbid(unsigned call) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {4, filter};
  ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
  ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program));
}

TEST(LostReport, SaysThatTheProcessCannotBeCopied) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  kept = take(50, "kept.c");
  forbid(SYS_clone);
  const Answer answer = ask();
  EXPECT_EQ(5095, answer.code);
  EXPECT_EQ(
      "qkmem: 1 site holds 50 B in 1 block; peak 50 B at T s\n"
      "qkmem: not searched for lost blocks: the system allows no copy of the process\n"
      "  bytes  blocks  share  made  handle  site\n"
      "   50 B       1   100%     1       2  kept.c:1\n"
      "qkmem: the profile took M of its own\n",
      answer.text);
}

TEST(LostReport, SaysThatThreadsCannotBeStopped) {
  if (kHasSanitizer) GTEST_SKIP();
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  std::mutex mutex;
  std::condition_variable changed;
  bool may_end = false;
  bool is_ready = false;
  forbid(SYS_ptrace);
  std::thread thread([&] {
    Node* const node = take(50, "stack.c");
    std::unique_lock lock(mutex);
    is_ready = true;
    changed.notify_all();
    changed.wait(lock, [&] { return may_end; });
    qk_mem_ifree(QK_MEM_DATA_HANDLE, node, "test.cpp", 1);
  });
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return is_ready; });
  }
  const Answer answer = ask();
  {
    const std::lock_guard lock(mutex);
    may_end = true;
  }
  changed.notify_all();
  thread.join();
  EXPECT_EQ(0, answer.code);
  EXPECT_EQ(0U, answer.text.find("qkmem: nothing is lost; 1 site keeps 50 B in 1 block"));
  EXPECT_NE(std::string::npos,
            answer.text.find("\nqkmem: the registers of other threads could not be searched\n"));
}

/** The bytes of memory from one on, as they are. */
std::string bytes_of(const void* memory, std::size_t begin, std::size_t end) {
  return {static_cast<const char*>(memory) + begin, end - begin};
}

TEST(LostOption, FillsPiecesThatReallocHandsOut) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  const kit::Pool pieces("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE");
  std::memset(qk_mem_imalloc(pieces, 3000, 16, "a.c", 1), 1, 3000);
  qk_mem_iclear_handle(pieces, "a.c", 2);
  void* const fresh = qk_mem_irealloc(pieces, nullptr, 100, 16, "a.c", 3);
  EXPECT_EQ(std::string(100, '\xA5'), bytes_of(fresh, 0, 100));
  void* const replaced = qk_mem_irealloc(pieces, fresh, 1000, 16, "a.c", 4);
  EXPECT_EQ(std::string(1000, '\xA5'), bytes_of(replaced, 0, 1000));
  std::memset(replaced, 1, 1000);
  EXPECT_EQ(replaced, qk_mem_irealloc(pieces, replaced, 500, 16, "a.c", 5));
  EXPECT_EQ(std::string(500, '\1'), bytes_of(replaced, 0, 500));
}

TEST(LostOption, FillsNewMemoryButThatOfCalloc) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  const kit::Pool recorded;
  const kit::Pool locked("MULTITHREADED");
  const kit::Pool pieces("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE");
  const std::string filling(1000, '\xA5');
  for (const int hid : {int{QK_MEM_DATA_HANDLE}, int{recorded}, int{locked}, int{pieces}}) {
    void* const memory = qk_mem_imalloc(hid, 1000, 16, "a.c", 1);
    EXPECT_EQ(filling, bytes_of(memory, 0, 1000)) << hid;
    void* const zeros = qk_mem_icalloc(hid, 10, 100, 16, "a.c", 2);
    EXPECT_EQ(std::string(1000, '\0'), bytes_of(zeros, 0, 1000)) << hid;
    if (hid == pieces) continue;
    void* const longer = qk_mem_irealloc(hid, zeros, 2000, 16, "a.c", 3);
    EXPECT_EQ(std::string(1000, '\0') + filling, bytes_of(longer, 0, 2000)) << hid;
    void* const fresh = qk_mem_irealloc(hid, nullptr, 1000, 16, "a.c", 4);
    EXPECT_EQ(filling, bytes_of(fresh, 0, 1000)) << hid;
    void* const zeroed = qk_mem_irecalloc(hid, fresh, 20, 100, 10, 16, "a.c", 5);
    EXPECT_EQ(filling + std::string(1000, '\0'), bytes_of(zeroed, 0, 2000)) << hid;
  }
}

}  // namespace

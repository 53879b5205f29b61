#include "lost/inquiry.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "profile/site_table.h"
#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "support/shared_variable.h"
#include "tests/kit/scene.h"

namespace {

namespace lost = qk::mem::lost;
namespace profile = qk::mem::profile;

/** An element of a list, whose memory comes from a handle. */
struct Element {
  Element* next;
  Element* first;
  long value[2];
};

/** Overwrites what earlier calls have left on the stack. */
[[gnu::noinline]] void wipe_stack() {
  volatile char bytes[32768];
  for (volatile char& byte : bytes) byte = 1;
}

class Inquiry : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, qk_mem_profile_config("SITES"));
    hid_ = qk_mem_inew_handle("MULTITHREADED", nullptr, "test.cpp", 1);
    lost::prepare_inquiry();
  }

  /** A list of a site. */
  [[gnu::noinline]] Element* list(const char* site, int length = 5) const {
    Element* first = nullptr;
    for (int i = 0; i < length; ++i) {
      auto* const element =
          static_cast<Element*>(qk_mem_icalloc(hid_, 1, sizeof(Element), 16, site, 1));
      element->next = first;
      first = element;
    }
    return first;
  }

  /** Calls a function, and leaves nothing of it on the stack. */
  template <class F>
  [[gnu::noinline]] static void once(F f) {
    std::thread(f).join();  // its registers and its stack are gone then
    wipe_stack();
  }

  /** Searches. False with a sanitizer, where there is no search. */
  [[nodiscard]] bool inquire() {
    wipe_stack();
    findings_ = std::make_unique<lost::Findings>(lost::inquire(lost::Waiting::kAllowed));
    const lost::Obstacle obstacle = findings_->summary().obstacle;
    if (obstacle == lost::Obstacle::kSanitizer) return false;
    EXPECT_EQ(lost::Obstacle::kNone, obstacle);
    return true;
  }

  /** What is lost of a site, as "1 lost 4 with it, 5 gone", or "kept". */
  [[nodiscard]] std::string fate_of(std::string_view site) const {
    for (std::uint32_t number = 1; number <= profile::sites.count(); ++number) {
      if (site != profile::sites.at(number).key.file) continue;
      const lost::Losses losses = findings_->of(profile::sites.at(number));
      if (losses.gone.blocks == 0) return "kept";
      return std::to_string(losses.lost.blocks) + " lost, " +
             std::to_string(losses.with_owner.blocks) + " with them, " +
             std::to_string(losses.gone.blocks) + " gone";
    }
    return "unknown site";
  }

  [[nodiscard]] bool knows_all() const {
    return !findings_->summary().lacks_registers && !findings_->summary().lacks_heap;
  }

  kit::Scene scene_;
  int hid_ = 0;
  std::unique_ptr<lost::Findings> findings_;
};

Element* rooted = nullptr;
thread_local Element* rooted_in_thread = nullptr;
char* inside = nullptr;

TEST_F(Inquiry, KeepsWhatVariablesAndMappingsAndTheHeapLeadTo) {
  auto* const mapping = static_cast<Element**>(
      mmap(nullptr, 64 << 20, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  auto* const shared = static_cast<Element**>(
      mmap(nullptr, 1 << 20, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  auto* const plain = static_cast<Element**>(std::calloc(10, sizeof(Element*)));
  std::vector<Element*> vector(100);
  Element* local = nullptr;
  const auto here = std::this_thread::get_id();
  Element** const variable_of_thread = &rooted_in_thread;
  once([&, this] {
    ASSERT_NE(here, std::this_thread::get_id());
    rooted = list("global.c");
    *variable_of_thread = list("thread.c");
    plain[5] = list("malloc.c");
    vector[50] = list("vector.c");
    mapping[5'000'000] = list("mmap.c");
    shared[1000] = list("shared.c");
    local = list("local.c");
    inside = reinterpret_cast<char*>(list("inside.c", 1)) + 31;
  });
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  for (const char* const site : {"global.c", "thread.c", "malloc.c", "vector.c", "mmap.c",
                                 "shared.c", "local.c", "inside.c"}) {
    EXPECT_EQ("kept", fate_of(site)) << site;
  }
  EXPECT_NE(nullptr, local);
  std::free(plain);
  munmap(mapping, 64 << 20);
  munmap(shared, 1 << 20);
}

TEST_F(Inquiry, FollowsNoAddressInMemoryOfTheQuarantine) {
  ASSERT_EQ(0, qk_mem_check_config("QUARANTINE"));
  once([this] {
    Element* const holder = list("holder.c", 1);
    qk_mem_ifree(hid_, holder, "test.cpp", 1);
    holder->first = list("held.c", 3);
  });
  const bool was_searched = inquire();
  testing::internal::CaptureStderr();
  qk_mem_check_config(nullptr);
  EXPECT_NE(std::string::npos,
            testing::internal::GetCapturedStderr().find(" written after free 8 bytes into"));
  if (!was_searched) GTEST_SKIP() << "with a sanitizer";
  EXPECT_EQ("1 lost, 2 with them, 3 gone", fate_of("held.c"));
}

TEST_F(Inquiry, KeepsWhatOtherThreadsHaveOnTheirStacksAndInTheirVariables) {
  std::mutex mutex;
  std::condition_variable changed;
  int ready = 0;
  bool may_end = false;
  const auto work = [&, this](const char* on_stack, const char* in_variable) {
    Element* const local = list(on_stack);
    rooted_in_thread = list(in_variable);
    wipe_stack();
    std::unique_lock lock(mutex);
    ++ready;
    changed.notify_all();
    changed.wait(lock, [&] { return may_end; });
    EXPECT_EQ(0, local->value[0]);
  };
  std::thread first(work, "stack1.c", "variable1.c");
  std::thread second(work, "stack2.c", "variable2.c");
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return ready == 2; });
  }
  const bool was_searched = inquire();
  {
    const std::lock_guard lock(mutex);
    may_end = true;
  }
  changed.notify_all();
  first.join();
  second.join();
  if (!was_searched) GTEST_SKIP() << "with a sanitizer";
  for (const char* const site : {"stack1.c", "variable1.c", "stack2.c", "variable2.c"}) {
    EXPECT_EQ("kept", fate_of(site)) << site;
  }
}

TEST_F(Inquiry, FindsListsTreesAndCyclesThatAreLost) {
  once([this] {
    list("list.c");
    Element* const ring = list("ring.c", 3);
    ring->next->next->next = ring;
    Element* const owner = list("owner.c", 1);
    owner->next = list("owned.c", 2);
    inside = reinterpret_cast<char*>(list("behind.c", 1)) + 32;
  });
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  EXPECT_EQ("1 lost, 4 with them, 5 gone", fate_of("list.c"));
  EXPECT_EQ("1 lost, 2 with them, 3 gone", fate_of("ring.c"));
  EXPECT_EQ("1 lost, 2 with them, 1 gone", fate_of("owner.c"));
  EXPECT_EQ("0 lost, 0 with them, 2 gone", fate_of("owned.c"));
  EXPECT_EQ("1 lost, 0 with them, 1 gone", fate_of("behind.c"));
}

/** Stores a list in memory and frees that. Compilers would leave the store out. */
[[gnu::noinline]] void store_and_free(Element** memory, std::size_t index, Element* element) {
  memory[index] = element;
  asm volatile("" : : "r"(memory) : "memory");
  std::free(memory);
}

TEST_F(Inquiry, SeesNothingInMemoryThatWasFreed) {
  once([this] {
    store_and_free(static_cast<Element**>(std::malloc(100)), 5, list("cached.c"));
    store_and_free(static_cast<Element**>(std::malloc(5000)), 300, list("free.c"));
    std::vector<Element**> many(50);
    for (Element**& memory : many) memory = static_cast<Element**>(std::malloc(56));
    for (Element** const memory : many) store_and_free(memory, 3, list("small.c", 1));
  });
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  if (!knows_all()) GTEST_SKIP() << "the heap can't be read";
  EXPECT_EQ("1 lost, 4 with them, 5 gone", fate_of("cached.c"));
  EXPECT_EQ("1 lost, 4 with them, 5 gone", fate_of("free.c"));
  EXPECT_EQ("50 lost, 0 with them, 50 gone", fate_of("small.c"));
}

TEST_F(Inquiry, SeesNothingOnTheStacksOfThreadsThatHaveEnded) {
  std::thread([this] {
    Element* volatile kept[50];
    Element* const element = list("ended.c");
    for (Element* volatile& place : kept) place = element;
    rooted_in_thread = element;
  }).join();
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  EXPECT_EQ("1 lost, 4 with them, 5 gone", fate_of("ended.c"));
}

TEST_F(Inquiry, ReadsPiecesAndMemoryWithoutRecords) {
  const int pieces =
      qk_mem_inew_handle("BLOCKMGMT BLOCKSIZE=4096 BLOCKFREE", nullptr, "test.cpp", 2);
  once([=] {
    const auto take = [](int hid, const char* site) {
      return static_cast<Element*>(qk_mem_icalloc(hid, 1, sizeof(Element), 16, site, 1));
    };
    take(pieces, "piece.c");
    take(QK_MEM_DATA_HANDLE, "direct.c");
    rooted = take(pieces, "kept_piece.c");
    rooted->next = take(QK_MEM_DATA_HANDLE, "kept_direct.c");
  });
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  EXPECT_EQ("1 lost, 0 with them, 1 gone", fate_of("piece.c"));
  EXPECT_EQ("1 lost, 0 with them, 1 gone", fate_of("direct.c"));
  EXPECT_EQ("kept", fate_of("kept_piece.c"));
  EXPECT_EQ("kept", fate_of("kept_direct.c"));
}

/** A list that grows and shrinks at its beginning until it is told to stop. */
void change_list(int hid, std::uint32_t random, const std::atomic<bool>& may_stop) {
  Element* first = nullptr;
  while (!may_stop.load(std::memory_order_relaxed)) {
    random = random * 1103515245 + 12345;
    if ((random >> 16) % 3 != 0 || first == nullptr) {
      const std::size_t bytes = sizeof(Element) + (random >> 8) % 300;
      auto* const element = static_cast<Element*>(qk_mem_imalloc(hid, bytes, 16, "busy.c", 1));
      element->first = nullptr;
      element->next = first;
      if (first != nullptr) first->first = element;
      first = element;
    }
    const bool ends = (random >> 16) % 1000 == 0;
    while (first != nullptr && (ends || (random >> 16) % 3 == 0)) {
      Element* const gone = first;
      first = gone->next;
      if (first != nullptr) first->first = nullptr;
      qk_mem_ifree(hid, gone, "busy.c", 2);
      if (!ends) break;
    }
  }
}

TEST_F(Inquiry, TakesNothingForLostThatThreadsAreChanging) {
  std::atomic<bool> may_stop = false;
  std::vector<std::thread> threads;
  for (std::uint32_t seed = 1; seed <= 3; ++seed) {
    threads.emplace_back([&, seed] { change_list(hid_, 77 * seed, may_stop); });
  }
  bool was_searched = true;
  for (int i = 0; i < 20 && was_searched; ++i) {
    was_searched = inquire();
    // Without their registers, threads can have an address that is nowhere else.
    if (was_searched && knows_all() && fate_of("busy.c") != "unknown site") {
      EXPECT_EQ("kept", fate_of("busy.c"));
    }
  }
  may_stop = true;
  for (std::thread& thread : threads) thread.join();
  if (!was_searched) GTEST_SKIP() << "with a sanitizer";
}

#ifdef __x86_64__

/** Has the complement of a number in a register, and nowhere else, while a flag is zero. */
[[gnu::noinline]] std::uintptr_t hold_complement(std::uintptr_t number, int& is_held,
                                                 const int& may_stop) {
  asm volatile(
      "notq %0\n"
      "movl $1, %1\n"
      "1: pause\n"
      "cmpl $0, %2\n"
      "je 1b\n"
      "notq %0\n"
      : "+r"(number), "+m"(is_held)
      : "m"(may_stop)
      : "cc", "memory");
  return number;
}

TEST_F(Inquiry, KeepsWhatOtherThreadsHaveInTheirRegistersOnly) {
  std::uintptr_t hidden = 0;
  int is_held = 0;
  int may_stop = 0;
  // It begins first, so that it doesn't get the stack on which the list was made.
  std::thread thread([&] {
    while (qk::load(hidden) == 0) std::this_thread::yield();
    hold_complement(qk::load(hidden), is_held, may_stop);
  });
  once([&, this] { qk::store(hidden, ~reinterpret_cast<std::uintptr_t>(list("register.c", 1))); });
  while (qk::load(is_held) == 0) std::this_thread::yield();
  const bool was_searched = inquire();
  qk::store(may_stop, 1);
  thread.join();
  if (!was_searched) GTEST_SKIP() << "with a sanitizer";
  if (!knows_all()) GTEST_SKIP() << "threads can't be stopped";
  EXPECT_EQ("kept", fate_of("register.c"));
  ASSERT_TRUE(inquire());
  EXPECT_EQ("1 lost, 0 with them, 1 gone", fate_of("register.c"));
}

#endif

TEST_F(Inquiry, LeavesNothingBehindInTheProcess) {
  if (!inquire()) GTEST_SKIP() << "with a sanitizer";
  EXPECT_EQ(-1, waitpid(-1, nullptr, __WALL));
  EXPECT_EQ(ECHILD, errno);
  sigset_t signals;
  sigprocmask(SIG_SETMASK, nullptr, &signals);
  EXPECT_EQ(0, sigismember(&signals, SIGTERM));
}

}  // namespace

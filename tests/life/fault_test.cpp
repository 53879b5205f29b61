#include "life/fault.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "core/registry.h"
#include "qkmem/profile.h"
#include "support/fault_words.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::Pool;

constexpr std::size_t kPage = 4096;

/** A page that can be accessed, and memory behind it that can't be. */
char* forbidden_memory() {
  auto* const pages = static_cast<char*>(
      mmap(nullptr, 16 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(pages + kPage, 15 * kPage, PROT_NONE);
  return pages + kPage;
}

/** A fault that neither sanitizers nor the optimiser foresee. */
void access(char* address) { *static_cast<volatile char*>(address) = 1; }

void record(int hid, char* address, std::size_t size) {
  qk_mem_iregister(hid, QK_MEM_EXTERNAL, address, nullptr, size, "src/a.c", 7);
}

/** What a process that ends by a fault writes to standard error. */
Ended ended_by(const std::function<void()>& fault, const std::string& debug = "") {
  return kit::run({debug, "", ""}, [&fault] {
    qk::put_faults_into_words(true);
    fault();
  });
}

class Fault : public testing::Test {
 protected:
  const int profile_is_off_ = unsetenv("QK_MEM_PROFILE");  // which knows the events of blocks
  kit::Scene scene_;
};

TEST_F(Fault, IsToldIfItIsPastTheEndOfABlock) {
  const Ended ended = ended_by([] {
    char* const end = forbidden_memory();
    record(Pool("", "SE"), end - 24, 24);
    access(end + 3);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 3 bytes past the end of a block of 24 on handle 3 SE, "
      "allocated at a.c:7\n",
      ended.err);
  EXPECT_EQ(SIGSEGV, ended.signal);
}

TEST_F(Fault, IsToldIfItIsInABlockOrInFrontOfOne) {
  const Ended inside = ended_by([] {
    char* const memory = forbidden_memory();
    record(Pool("", "SE"), memory, 24);
    access(memory + 8);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 8 bytes inside a block of 24 on handle 3 SE, allocated at "
      "a.c:7\n",
      inside.err);
  const Ended start = ended_by([] {
    char* const memory = forbidden_memory();
    record(Pool("", "SE"), memory, 24);
    access(memory);
  });
  EXPECT_EQ(
      "qkmem: the fault is at the start of a block of 24 on handle 3 SE, allocated at a.c:7\n",
      start.err);
  const Ended in_front = ended_by([] {
    char* const memory = forbidden_memory();
    record(Pool("", "SE"), memory + 100, 24);
    access(memory + 90);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 10 bytes in front of a block of 24 on handle 3 SE, "
      "allocated at a.c:7\n",
      in_front.err);
}

/** Leaves a block in the history of the profile, whose report goes elsewhere. */
void free_block(char* address) {
  qk_mem_profile_config("SITES REPORT=report.txt");
  const Pool pool;
  record(pool, address, 24);
  qk_mem_ideregister(pool, QK_MEM_EXTERNAL, address, "src/b.c", 9);
}

TEST_F(Fault, IsToldIfItIsInABlockThatWasFreed) {
  const Ended inside = ended_by([] {
    char* const memory = forbidden_memory();
    free_block(memory);
    access(memory + 8);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 8 bytes inside a block of 24 that was deregistered at "
      "b.c:9, was allocated at a.c:7\n",
      inside.err);
  const Ended start = ended_by([] {
    char* const memory = forbidden_memory();
    free_block(memory);
    access(memory);
  });
  EXPECT_EQ(
      "qkmem: the fault is at the start of a block of 24 that was deregistered at b.c:9, was "
      "allocated at a.c:7\n",
      start.err);
  const Ended near = ended_by([] {
    char* const memory = forbidden_memory();
    free_block(memory);
    access(memory + 30);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 6 bytes past the end of a block of 24 that was "
      "deregistered at b.c:9, was allocated at a.c:7\n",
      near.err);
}

TEST_F(Fault, IsToldWithTheEventWhileTheProfileIsOn) {
  const Ended ended = ended_by([] {
    qk_mem_profile_config("SITES REPORT=report.txt");
    char* const end = forbidden_memory();
    record(Pool("MULTITHREADED"), end - 24, 24);
    access(end);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address just past the end of a block of 24 on handle 3, allocated "
      "at a.c:7 (event 1)\n",
      ended.err);
}

TEST_F(Fault, IsToldBelowTheLineOfTheCleanUp) {
  const Ended ended = ended_by(
      [] {
        char* const end = forbidden_memory();
        record(Pool(), end - 24, 24);
        access(end + 3);
      },
      "SUMMARY LOG=STDERR");
  const std::string words =
      "   qk_mem_cleanup:      Memory at program termination (Segmentation fault)\n"
      "qkmem: the fault is at an address 3 bytes past the end of a block of 24 on handle 3, "
      "allocated at a.c:7\n";
  EXPECT_EQ(words, ended.err.substr(ended.err.find("   qk_mem_cleanup:")));
}

TEST_F(Fault, IsToldIfAFileIsShorterThanItsBlock) {
  const Ended ended = ended_by([] {
    const int file = open("short.bin", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    auto* const pages =
        static_cast<char*>(mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    record(Pool(), pages, kPage);
    access(pages + 1000);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 1,000 bytes inside a block of 4,096 on handle 3, allocated "
      "at a.c:7\n",
      ended.err);
  EXPECT_EQ(SIGBUS, ended.signal);
}

TEST_F(Fault, IsNotToldUnlessThatIsAskedFor) {
  const Ended ended = kit::run({}, [] {
    char* const end = forbidden_memory();
    record(Pool(), end - 24, 24);
    access(end + 3);
  });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(SIGSEGV, ended.signal);
}

TEST_F(Fault, IsNotToldFarFromAllBlocks) {
  const Ended ended = ended_by([] {
    char* const end = forbidden_memory();
    record(Pool(), end - 24, 24);
    access(end + kPage);
  });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(SIGSEGV, ended.signal);
}

TEST_F(Fault, HasNoAddressIfASignalWasSent) {
  for (const int number : {SIGSEGV, SIGBUS, SIGABRT}) {
    const Ended ended = ended_by([number] {
      // Where a fault has its address, a signal that was sent has its sender.
      const auto sender = static_cast<std::uintptr_t>(getpid()) | std::uint64_t{getuid()} << 32;
      record(Pool(), reinterpret_cast<char*>(sender), 24);  // NOLINT(performance-no-int-to-ptr)
      raise(number);
    });
    EXPECT_EQ("", ended.err);
    EXPECT_EQ(number, ended.signal);
  }
}

TEST_F(Fault, IsNotToldUnderTheRegistrysLock) {
  const Ended own = ended_by([] {
    char* const end = forbidden_memory();
    record(Pool(), end - 24, 24);
    const qk::mem::RegistryLock lock;
    access(end + 3);
  });
  EXPECT_EQ("", own.err);
  EXPECT_EQ(SIGSEGV, own.signal);
  const Ended of_other = ended_by([] {
    char* const end = forbidden_memory();
    record(Pool(), end - 24, 24);
    std::atomic<bool> is_locked = false;
    std::thread([&is_locked] {
      const qk::mem::RegistryLock lock;
      is_locked = true;
      for (;;) pause();
    }).detach();
    while (!is_locked) std::this_thread::yield();
    access(end + 3);
  });
  EXPECT_EQ("", of_other.err);
  EXPECT_EQ(SIGSEGV, of_other.signal);
}

TEST_F(Fault, IsToldWithoutTheEventUnderTheHandlesLock) {
  const Ended ended = ended_by([] {
    qk_mem_profile_config("SITES REPORT=report.txt");
    char* const end = forbidden_memory();
    const Pool pool("MULTITHREADED");
    record(pool, end - 24, 24);
    const qk::mem::HandleLock lock(pool.record());
    access(end + 3);
  });
  EXPECT_EQ(
      "qkmem: the fault is at an address 3 bytes past the end of a block of 24 on handle 3, "
      "allocated at a.c:7\n",
      ended.err);
}

TEST_F(Fault, IsNotToldIfAHandleWithoutRecordsIsLocked) {
  const Ended ended = ended_by([] {
    qk_mem_profile_config("SITES REPORT=report.txt");
    char* const end = forbidden_memory();
    record(Pool(), end - 24, 24);
    const qk::mem::HandleLock lock(kit::handle_of(QK_MEM_DATA_HANDLE));
    access(end + 3);
  });
  EXPECT_EQ("", ended.err);
  EXPECT_EQ(SIGSEGV, ended.signal);
}

}  // namespace

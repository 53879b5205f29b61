// A program whose operator new takes memory from a handle.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>
#include <utility>

#include "qkmem/qkmem.h"
#include "tests/kit/scene.h"

namespace {

thread_local void (*in_operator_new)() = nullptr;

}  // namespace

// Not inlined, as the compiler would then warn that new and delete don't match.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void (*const action)() = std::exchange(in_operator_new, nullptr)) action();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

std::atomic<bool> report_is_being_written = false;
std::atomic<bool> code_is_being_set = false;

void announce(std::atomic<bool>& event) {
  event = true;
  event.notify_all();
}

/** Writes to a report's file while the library holds the registry's lock, and sets a code there. */
ssize_t write_report(void* /*cookie*/, const char* /*bytes*/, std::size_t size) {
  if (report_is_being_written) return static_cast<ssize_t>(size);
  announce(report_is_being_written);
  code_is_being_set.wait(false);
  qk_mem_ifree(-1, nullptr, "report.c", 1);
  return static_cast<ssize_t>(size);
}

void report() {
  FILE* file = fopencookie(nullptr, "w", {nullptr, write_report, nullptr, nullptr});
  std::setvbuf(file, nullptr, _IONBF, 0);
  qk_mem_dump(file, "", 0);
  std::fclose(file);
}

/** Takes the registry's lock, while the other thread has it. */
void create_handle_during_report() {
  announce(code_is_being_set);
  qk_mem_inew_handle("", "", "new.c", 1);
}

TEST(OwnOperatorNew, CanUseAHandleWhileThreadsSetTheirCodes) {
  const kit::Scene scene(kit::Environment{});
  const kit::Ended ended = kit::run({}, [] {
    alarm(20);  // ends threads that wait for each other
    qk_mem_init();
    std::thread reporting(report);
    std::thread failing([] {
      report_is_being_written.wait(false);
      in_operator_new = create_handle_during_report;
      qk_mem_ifree(-1, nullptr, "failing.c", 1);
      in_operator_new = nullptr;
      announce(code_is_being_set);
      if (qk_mem_error() != QK_MEM_ERROR_HANDLE) std::exit(1);
    });
    failing.join();
    reporting.join();
  });
  EXPECT_EQ(ended.signal, 0);
  EXPECT_EQ(ended.exit_code, 0) << ended.err;
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdio>
#include <string>

#include "core/registry.h"
#include "core/switches.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/heap.h"
#include "tests/kit/report.h"
#include "tests/kit/scene.h"

namespace {

using kit::hold;
using kit::report;
using kit::Scene;
using kit::sections;
using kit::sections_of;
using kit::set_heap;
using kit::Stage;

constexpr char kUnavailable[] = "QK_MEM_DEBUG must be set to see memory information\n";

TEST(Dump, ShowsOnlyALoneHeapsizeWithoutTracing) {
  Scene scene;
  set_heap(1234567);
  EXPECT_EQ(report("", QK_MEM_DUMP_HEAPSIZE), "Current heapsize:     1234567\n");
  for (const unsigned options : {0x0U, 0x1U, 0x3U, 0x4U, 0x8U, 0x10U, 0x20U, 0x22U, 0x40U, 0x80U,
                                 0x82U, 0x100U, 0x102U, 0x1ffU, 0x202U}) {
    EXPECT_EQ(report("", options), kUnavailable) << options;
  }
}

TEST(Dump, ShowsALoneConfiguredHeapsizeWithoutTracing) {
  Scene scene({"", "", "OPTIONS=HEAPSIZE"});
  set_heap(88);
  EXPECT_EQ(report("", 0), "Current heapsize:          88\n");
  EXPECT_EQ(report("", QK_MEM_DUMP_SUMMARY), kUnavailable);
}

TEST(Dump, IgnoresItsFilterWithoutTracing) {
  Scene scene;
  EXPECT_EQ(report("no such filter", QK_MEM_DUMP_SUMMARY), kUnavailable);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(Dump, IsUnavailableOnceDebuggingIsOff) {
  Scene scene("EXCEPTIONS");
  EXPECT_NE(report("", QK_MEM_DUMP_HANDLES), kUnavailable);
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("OFF", &status), 0);
  EXPECT_EQ(report("", QK_MEM_DUMP_HANDLES), kUnavailable);
}

TEST(Dump, NamesAnInvalidFilter) {
  Scene scene("EXCEPTIONS");
  EXPECT_EQ(report("SIZE=3", QK_MEM_DUMP_SUMMARY), "\"SIZE=3\" are not legal filters\n");
  EXPECT_EQ(qk_mem_error(), 11102);
  EXPECT_EQ(report("TAG=abc", QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_TERSE),
            "\"TAG=abc\" are not legal filters\n");
  EXPECT_EQ(qk_mem_error(), 11103);
  EXPECT_EQ(report(" ,x%s", 0), "\" ,x%s\" are not legal filters\n");
}

TEST(Dump, TreatsANullFilterAsNone) {
  Stage stage;
  stage.handle(1);
  EXPECT_EQ(sections(nullptr, QK_MEM_DUMP_HANDLES),
            "Data handles\n"
            "   +   1                           0                 0       1 made.c:100\n");
}

TEST(Dump, IgnoresItsFilterWithoutAStream) {
  Scene scene("EXCEPTIONS");
  qk_mem_init();
  scene.skip_log();
  qk_mem_dump(nullptr, "no such filter", QK_MEM_DUMP_SUMMARY);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(scene.log(), "");
}

TEST(Dump, StartsTheLibraryUp) {
  Scene scene("EXCEPTIONS");
  EXPECT_EQ(sections("HANDLE=1", QK_MEM_DUMP_HANDLES),
            "Overhead handles\n"
            "   +   1                      A    0                 0       1 qkmem.cpp:#\n");
}

TEST(Dump, StartsTheLibraryUpEvenWithoutAStream) {
  Scene scene("EXCEPTIONS");
  qk_mem_dump(nullptr, "", 0);
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST(Dump, ShowsTheConfiguredSectionsByDefault) {
  Stage stage;
  hold(stage.handle(1), 0x1010, 'B', 1, 5);
  EXPECT_EQ(Qk_mem_dump_opts, 53U);
  EXPECT_EQ(report("", 0), report("", QK_MEM_DUMP_SUMMARY | QK_MEM_DUMP_HANDLES |
                                          QK_MEM_DUMP_BLOCKS | QK_MEM_DUMP_POINTERS));
  qk::Status status;
  ASSERT_EQ(qk_mem_dump_config("OPTIONS=BLOCKS", &status), 0);
  EXPECT_EQ(sections_of(report("", 0), QK_MEM_DUMP_BLOCKS),
            "Data handle blocks\n"
            "   +   1    0000000000001010 B     1        5        5       3 app.c:1\n");
}

TEST(Dump, WorksForAThreadThatHoldsTheLock) {
  Stage stage;
  const qk::mem::RegistryLock lock;
  EXPECT_EQ(report("", QK_MEM_DUMP_TERSE),
            "   ----------------------------------------------------------------------------\n");
}

/** A stream that counts writes by a thread that doesn't hold the registry's lock. */
struct Watched {
  std::string text;
  int unlocked_writes = 0;

  static ssize_t write(void* cookie, const char* bytes, size_t size) {
    auto* self = static_cast<Watched*>(cookie);
    self->text.append(bytes, size);
    if (!Qk_mem_mtx.held()) ++self->unlocked_writes;
    return static_cast<ssize_t>(size);
  }

  FILE* open() {
    cookie_io_functions_t functions = {};
    functions.write = write;
    FILE* stream = fopencookie(this, "w", functions);
    setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
  }
};

TEST(Dump, HoldsTheRegistrysLockWhileItPrints) {
  Stage stage;
  hold(stage.handle(1), 0x1010, 'M', 1, 5);
  Watched watched;
  FILE* stream = watched.open();
  qk_mem_dump(stream, "", 0x3f);
  qk_mem_dump(stream, "", QK_MEM_DUMP_COMPARISON);
  std::fclose(stream);
  EXPECT_EQ(watched.text, kit::dump("", 0x3f) + kit::dump("", QK_MEM_DUMP_COMPARISON));
  EXPECT_EQ(watched.unlocked_writes, 0);
}

TEST(Dump, ReleasesTheRegistrysLockHoweverItEnds) {
  Stage stage;
  qk_mem_dump(nullptr, "", 0);
  EXPECT_FALSE(Qk_mem_mtx.held());
  (void)report("SIZE=3", 0);
  EXPECT_FALSE(Qk_mem_mtx.held());
  (void)report("", QK_MEM_DUMP_GROWTH);
  EXPECT_FALSE(Qk_mem_mtx.held());
  (void)report("", QK_MEM_DUMP_COMPARISON);
  EXPECT_FALSE(Qk_mem_mtx.held());
  (void)report("", 0x3f);
  EXPECT_FALSE(Qk_mem_mtx.held());
  qk::mem::global_switches().trace = 0;
  (void)report("", 0);
  EXPECT_FALSE(Qk_mem_mtx.held());
}

TEST(Dump, AllocatesNothing) {
  Stage stage;
  qk_mem_handle& handle = stage.handle(1, 'D', "AB");
  hold(handle, 0x1010, 'M', 1, 5);
  static char buffer[16384];
  FILE* stream = std::fopen("report.txt", "w");
  ASSERT_NE(stream, nullptr);
  std::setvbuf(stream, buffer, _IOFBF, sizeof buffer);
  kit::fail_all_requests();
  qk_mem_dump(stream, "TAG=ab AND TYPE=DATA", 0x3f);
  qk_mem_dump(stream, "", QK_MEM_DUMP_COMPARISON);
  qk_mem_dump(stream, "", QK_MEM_DUMP_GROWTH | 0x3f);
  kit::let_succeed();
  std::fclose(stream);
  EXPECT_FALSE(kit::has_failed());
  EXPECT_EQ(kit::contents("report.txt"), kit::dump("TAG=ab", 0x3f) +
                                             kit::dump("", QK_MEM_DUMP_COMPARISON) +
                                             kit::dump("", QK_MEM_DUMP_GROWTH | 0x3f));
}

TEST(Dump, DoesNotFlushOrCloseItsStream) {
  Stage stage;
  FILE* stream = std::fopen("report.txt", "w");
  ASSERT_NE(stream, nullptr);
  qk_mem_dump(stream, "", QK_MEM_DUMP_TERSE);
  EXPECT_EQ(kit::contents("report.txt"), "");
  std::fputs("end\n", stream);
  std::fclose(stream);
  EXPECT_EQ(kit::contents("report.txt"),
            "   ----------------------------------------------------------------------------\n"
            "end\n");
}

TEST(Dump, IgnoresErrorsOfItsStream) {
  Stage stage;
  FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  std::setvbuf(full, nullptr, _IONBF, 0);
  qk_mem_dump(full, "", 0x3f);
  EXPECT_NE(std::ferror(full), 0);
  std::fclose(full);
  EXPECT_EQ(qk_mem_error(), 0);
}

}  // namespace

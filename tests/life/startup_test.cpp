#include <gtest/gtest.h>
#include <link.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/registry.h"
#include "support/process_barrier.h"
#include "tests/kit/heap.h"
#include "tests/kit/scene.h"

namespace {

using kit::Ended;
using kit::handle_of;
using kit::Scene;
using kit::set_heap;

/** A log in plain words without the lines about the handles' own bookkeeping. */
std::string without_bookkeeping(const std::string& log) {
  std::string result;
  std::istringstream lines(kit::normalized(log));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("   qk_mem_new_ptr:", 0) == 0) continue;
    if (line.rfind("   qk_mem_handle_", 0) == 0) continue;
    result += line + "\n";
  }
  return result;
}

void start() { qk_mem_init(); }

struct Call {
  const char* name;
  void (*run)();
};

/** The names of those calls that start the library when a process makes them first. */
std::set<std::string> starting_calls(const std::vector<Call>& calls) {
  std::set<std::string> names;
  for (const Call& call : calls) {
    const Ended ended = kit::run({}, [&call] {
      call.run();
      std::printf("started %d, handles %d", Qk_mem_initialized, Qk_mem_num_handles);
    });
    if (ended.out.find("started 1, handles 2") != std::string::npos) names.insert(call.name);
  }
  return names;
}

std::set<std::string> names_of(const std::vector<Call>& calls) {
  std::set<std::string> names;
  for (const Call& call : calls) names.insert(call.name);
  return names;
}

TEST(StartUp, IsDoneByTheFirstCall) {
  const Scene scene;
  const std::vector<Call> calls = {
      {"init", [] { qk_mem_init(); }},
      {"inew_handle", [] { qk_mem_inew_handle("NONSENSE", "", "a.c", 1); }},
      {"idel_handle", [] { qk_mem_idel_handle(2, "a.c", 1); }},
      {"isize", [] { (void)qk_mem_isize(2, "a.c", 1); }},
      {"imalloc", [] { (void)qk_mem_imalloc(2, 8, 16, "a.c", 1); }},
      {"icalloc", [] { (void)qk_mem_icalloc(2, 8, 2, 16, "a.c", 1); }},
      {"irealloc", [] { (void)qk_mem_irealloc(2, nullptr, 8, 16, "a.c", 1); }},
      {"irecalloc", [] { (void)qk_mem_irecalloc(2, nullptr, 8, 2, 0, 16, "a.c", 1); }},
      {"istrdup", [] { (void)qk_mem_istrdup(2, "text", "a.c", 1); }},
      {"ifree", [] { qk_mem_ifree(2, nullptr, "a.c", 1); }},
      {"dump", [] { qk_mem_dump(nullptr, "", 0); }},
      {"debug_on", [] { (void)qk_mem_debug_on(); }},
      {"mallinfo", [] { qk_mallinfo(); }},
      {"iclear_handle", [] { qk_mem_iclear_handle(2, "a.c", 1); }},
      {"iregister", [] { qk_mem_iregister(400, 0, nullptr, nullptr, 8, "a.c", 1); }},
      {"ideregister", [] { qk_mem_ideregister(400, 0, nullptr, "a.c", 1); }},
      {"imarralloc", [] { (void)qk_mem_imarralloc(2, nullptr, 8, 8, "a.c", 1); }},
      {"iarrfree", [] { qk_mem_iarrfree(2, nullptr, "a.c", 1); }},
      {"baseline", [] { (void)qk_mem_baseline(""); }},
      {"info",
       [] {
         long answer = 0;
         (void)qk_mem_info("INITIAL_HEAP", "", &answer);
       }},
      {"options",
       [] {
         qk::Status status;
         qk_mem_options("", &status);
       }},
  };
  EXPECT_EQ(starting_calls(calls), names_of(calls));
}

TEST(StartUp, IsNotDoneByCallsThatOnlyQueryOrConfigure) {
  const Scene scene;
  const std::vector<Call> calls = {
      {"error", [] { (void)qk_mem_error(); }},
      {"tag_size", [] { (void)qk_mem_tag_size("AB"); }},
      {"heapsize", [] { (void)qk_heapsize(); }},
      {"debug_config",
       [] {
         qk::Status status;
         qk_mem_debug_config("TRACE", &status);
       }},
      {"debug_settings",
       [] {
         char text[QK_MEM_SETTINGS_SIZE];
         qk::Status status;
         qk_mem_debug_settings(text, &status);
       }},
      {"dump_config",
       [] {
         qk::Status status;
         qk_mem_dump_config("OPTIONS=TERSE", &status);
       }},
  };
  EXPECT_EQ(starting_calls(calls), std::set<std::string>{});
}

TEST(StartUp, OpensTheTwoStandingHandles) {
  const Scene scene("TRACE");
  start();
  EXPECT_EQ(Qk_mem_initialized, 1);
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(Qk_mem_avail_handles, 512);
  EXPECT_EQ(Qk_mem_blocksize, 32U);
  const qk_mem_handle& overhead = handle_of(1);
  EXPECT_EQ(overhead.type, 'O');
  EXPECT_EQ(overhead.autofree, 'a');
  EXPECT_NE(overhead.mtx, nullptr);
  EXPECT_EQ(overhead.tag, &Qk_mem_global_tag);
  EXPECT_STREQ(overhead.file, "qkmem.cpp");
  const qk_mem_handle& data = handle_of(QK_MEM_DATA_HANDLE);
  EXPECT_EQ(data.type, 'D');
  EXPECT_EQ(data.autofree, 0);
  EXPECT_NE(data.mtx, nullptr);
  EXPECT_EQ(data.tag, &Qk_mem_global_tag);
  EXPECT_STREQ(data.file, "qkmem.cpp");
  EXPECT_GT(overhead.line, 0);
  EXPECT_GT(data.line, overhead.line);
}

TEST(StartUp, ChangesNothingTheSecondTime) {
  Scene scene("DEBUG");
  start();
  scene.skip_log();
  const std::uint32_t seq = Qk_mem_seq;
  set_heap(99);
  start();
  EXPECT_EQ(scene.log(), "");
  EXPECT_EQ(Qk_mem_seq, seq);
  EXPECT_NE(Qk_mem_init_heap, 99);
}

TEST(StartUp, SamplesTheHeapBeforeAnythingElse) {
  const Scene scene;
  set_heap(777);
  start();
  EXPECT_EQ(Qk_mem_init_heap, 777);
}

TEST(StartUp, LogsItsConfigurationUnderDebug) {
  const Scene scene;
  const Ended ended = kit::run({"DEBUG", "", ""}, [] {
    set_heap(135168);
    start();
    std::fflush(nullptr);
    _Exit(0);
  });
  EXPECT_EQ(without_bookkeeping(ended.log),
            "QK_MEM_DEBUG:  initializing options [DEBUG]\n"
            "   qk_mem_init: opts:   \n"
            "   qk_mem_init: debug:  DEBUG TRACE  LOG=qkmem.log\n"
            "-------------------------------------------------\n"
            "Mallinfo stats\n"
            "  Arena:           135168\n"
            "  Ordblks:              0\n"
            "  Smblks:               0\n"
            "  Hblkhd:               0\n"
            "  Hblks:                0\n"
            "  Usmblks:              0\n"
            "  Fsmblks:              0\n"
            "  Uordblks:             0\n"
            "  Fordblks:             0\n"
            "  Keepcost:             0\n"
            "-------------------------------------------------\n"
            "   qk_mem_inew_handle:    1 N O A  qkmem.cpp:#\n"
            "   qk_mem_inew_handle:    2 N D  qkmem.cpp:#\n");
}

TEST(StartUp, LogsHeapsizeAmongItsOptions) {
  const Scene scene({"DEBUG='not qk_ifree'", "HEAPSIZE", "OPTIONS=TERSE"});
  start();
  EXPECT_EQ(scene.log("qk_mem_init"),
            "   qk_mem_init: opts:   HEAPSIZE \n"
            "   qk_mem_init: debug:  DEBUG='not qk_ifree' TRACE='not qk_ifree'  LOG=qkmem.log\n");
  EXPECT_EQ(scene.log().find("QK_MEM_DEBUG:  initializing options [DEBUG='not qk_ifree']\n"
                             "QK_MEM_DUMP:  initializing options [OPTIONS=TERSE]\n"
                             "   qk_mem_init: opts:   HEAPSIZE \n"),
            0U);
}

TEST(StartUp, LogsOnlyTheVariablesUnlessGlobalDebugIsOn) {
  const Scene scene;
  for (const char* debug : {"EXCEPTIONS", "SUMMARY CTRLBLKS=qk_ifree", "DEBUG=not,global"}) {
    const Ended ended = kit::run({debug, "", ""}, [] {
      start();
      std::fflush(nullptr);
      _Exit(0);
    });
    const std::string announced =
        "QK_MEM_DEBUG:  initializing options [" + std::string(debug) + "]\n";
    EXPECT_EQ(ended.log.substr(0, announced.size()), announced);
    EXPECT_EQ(ended.log.find("qk_mem_init"), std::string::npos) << debug;
    EXPECT_EQ(ended.log.find("Mallinfo"), std::string::npos) << debug;
  }
}

TEST(StartUp, LeavesTheGlobalRecordOutOfTheSettings) {
  const Scene scene("DEBUG=global LOG=a.log");
  start();
  EXPECT_EQ(scene.log("qk_mem_init"),
            "   qk_mem_init: opts:   \n"
            "   qk_mem_init: debug:   LOG=a.log\n");
}

TEST(StartUp, RunsUnderAConfigurationMadeByACall) {
  const Scene scene("EXCEPTIONS LOG=environment.log");
  qk::Status status;
  ASSERT_EQ(qk_mem_debug_config("DEBUG=qk_mem_inew_handle LOG=call.log", &status), 0);
  start();
  EXPECT_EQ(scene.log("qk_mem_inew_handle"),
            "   qk_mem_inew_handle:    1 N O A  qkmem.cpp:#\n"
            "   qk_mem_inew_handle:    2 N D  qkmem.cpp:#\n");
  EXPECT_EQ(handle_of(QK_MEM_DATA_HANDLE).track, 1);
}

TEST(StartUp, IgnoresFailuresOfTheDebugVariables) {
  const Scene scene({"DEBUG=nonsense", "", "NONSENSE"});
  start();
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(Qk_mem_num_handles, 2);
}

TEST(StartUp, IsDoneOnceForConcurrentThreads) {
  const Scene scene("TRACE");
  std::vector<std::thread> threads;
  std::vector<void*> memory(8);
  for (void*& place : memory) {
    threads.emplace_back(
        [&place] { place = qk_mem_imalloc(QK_MEM_DATA_HANDLE, 8, 16, "app.c", 1); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const void* place : memory) EXPECT_NE(place, nullptr);
  EXPECT_EQ(Qk_mem_num_handles, 2);
  EXPECT_EQ(kit::data_of(QK_MEM_DATA_HANDLE), "8 for 64");
}

TEST(Error, IsZeroUntilACallFailsAndBelongsToItsThread) {
  const Scene scene;
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(qk_mem_idel_handle(400, "app.c", 1), 5566);
  EXPECT_EQ(qk_mem_error(), 5566);
  std::thread([] {
    EXPECT_EQ(qk_mem_error(), 0);
    EXPECT_EQ(qk_mem_inew_handle("NONSENSE", "", "app.c", 2), 0);
    EXPECT_EQ(qk_mem_error(), 11102);
  }).join();
  EXPECT_EQ(qk_mem_error(), 5566);
  qk_mem_ifree(QK_MEM_DATA_HANDLE, qk_mem_imalloc(QK_MEM_DATA_HANDLE, 8, 16, "app.c", 3), "app.c",
               4);
  EXPECT_EQ(qk_mem_error(), 5566);  // success doesn't reset it
}

/** Adds the pages of the writable segments of a module that can't be read. */
int count_unreadable_pages(dl_phdr_info* module, std::size_t /*size*/, void* count) {
  for (int i = 0; i < module->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = module->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) == 0) continue;
    const std::uintptr_t begin = module->dlpi_addr + segment.p_vaddr;
    for (std::uintptr_t at = begin; at < begin + segment.p_memsz; at += 4096) {
      char byte = 0;
      const iovec to = {&byte, 1};
      const iovec from = {reinterpret_cast<void*>(at), 1};
      if (process_vm_readv(getpid(), &to, 1, &from, 1, 0) != 1) ++*static_cast<int*>(count);
    }
  }
  return 0;
}

// Leak checkers read all variables, and end the program if they can't.
TEST(StartUp, LeavesAllVariablesReadable) {
  qk_mem_init();
  int unreadable = 0;
  dl_iterate_phdr(count_unreadable_pages, &unreadable);
  EXPECT_EQ(unreadable, 0);
}

// Once there are threads it takes some milliseconds, under a lock. The library isn't called first.
TEST(StartUp, PreparesLocksBeforeMain) {
#ifndef __SANITIZE_THREAD__
  EXPECT_TRUE(qk::process_barrier_works());
#endif
}

}  // namespace

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "core/registry.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

/** An entry point that takes a handle's number. `refuses` returns whether it refused the call. */
struct Call {
  const char* name;    // as in configuration lists
  const char* prefix;  // of its log lines
  bool (*refuses)(int hid);
};

const Call kCalls[] = {
    {"qk_imalloc", "   qk_mem_imalloc: ",
     [](int hid) { return qk_mem_imalloc(hid, 10, 16, "src/app.c", 70000) == nullptr; }},
    {"qk_icalloc", "   qk_mem_icalloc: ",
     [](int hid) { return qk_mem_icalloc(hid, 1, 10, 16, "src/app.c", 70000) == nullptr; }},
    {"qk_irealloc", "   qk_mem_irealloc: ",
     [](int hid) { return qk_mem_irealloc(hid, nullptr, 10, 16, "src/app.c", 70000) == nullptr; }},
    {"qk_irealloc", "   qk_mem_irealloc: ",
     [](int hid) {
       return qk_mem_irecalloc(hid, nullptr, 1, 10, 0, 16, "src/app.c", 70000) == nullptr;
     }},
    {"qk_istrdup", "   qk_mem_istrdup: ",
     [](int hid) { return qk_mem_istrdup(hid, "hello", "src/app.c", 70000) == nullptr; }},
    {"qk_ifree", "   qk_mem_ifree: ",
     [](int hid) {
       void* memory = std::malloc(10);
       qk_mem_ifree(hid, memory, "src/app.c", 70000);
       std::free(memory);
       return true;
     }},
    {"global", "   qk_mem_isize: ",
     [](int hid) { return qk_mem_isize(hid, "src/app.c", 70000) == static_cast<std::size_t>(-1); }},
};

TEST(InvalidHandle, IsRefusedByEveryEntryPointWithCode5566) {
  Ledger ledger("");
  const kit::Pool deleted;
  qk_mem_idel_handle(deleted, "src/app.c", 1);
  ledger.skip_all();
  for (const int hid : {int{deleted}, 5, 512, 513, 100000, 0, -1, INT_MAX, INT_MIN}) {
    for (const Call& call : kCalls) {
      Qk_mem_error.set(0);
      EXPECT_TRUE(call.refuses(hid)) << call.prefix << hid;
      EXPECT_EQ(qk_mem_error(), 5566) << call.prefix << hid;
    }
  }
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(InvalidHandle, IsLoggedUnderDebugWithTheFullLineNumber) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  for (const Call& call : kCalls) {
    ledger.skip_all();
    EXPECT_TRUE(call.refuses(-12));
    EXPECT_EQ(ledger.log(), std::string(call.prefix) + "ERROR: invalid hid -12 at app.c:70000\n");
    EXPECT_EQ(ledger.trace(), "");
  }
}

TEST(InvalidHandle, IsLoggedUnderNoOtherSwitch) {
  Ledger ledger("EXCEPTIONS CTRLBLKS SUMMARY TRACE");
  for (const Call& call : kCalls) EXPECT_TRUE(call.refuses(4));
  EXPECT_EQ(ledger.log(), "");
}

TEST(InvalidHandle, IsLoggedUnderTheRoutinesOwnSwitches) {
  Ledger ledger("EXCEPTIONS");
  for (const Call& call : kCalls) {
    const std::string line = std::string(call.prefix) + "ERROR: invalid hid 4 at app.c:70000\n";
    ledger.configure(("DEBUG=" + std::string(call.name)).c_str());
    EXPECT_TRUE(call.refuses(4));
    EXPECT_EQ(ledger.log(), line);
    ledger.configure(("DEBUG TRACE=not," + std::string(call.name)).c_str());
    EXPECT_TRUE(call.refuses(4));
    EXPECT_EQ(ledger.log(), line);
    ledger.configure(("DEBUG=not," + std::string(call.name)).c_str());
    EXPECT_TRUE(call.refuses(4));
    EXPECT_EQ(ledger.log(), "");
  }
}

TEST(InvalidHandle, SuppressesMisuseWarnings) {
  Ledger ledger("EXCEPTIONS");
  EXPECT_EQ(qk_mem_imalloc(4, 0, 3, "src/app.c", 1), nullptr);
  EXPECT_EQ(qk_mem_icalloc(4, 0, 0, 3, "src/app.c", 1), nullptr);
  EXPECT_EQ(qk_mem_irealloc(4, nullptr, 0, 3, "src/app.c", 1), nullptr);
  EXPECT_EQ(qk_mem_istrdup(4, nullptr, "src/app.c", 1), nullptr);
  qk_mem_ifree(4, nullptr, "src/app.c", 1);
  EXPECT_EQ(ledger.log(), "");
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(InvalidHandle, LeavesMemoryOfOtherHandlesUntouched) {
  Ledger ledger("");
  void* memory = qk_mem_imalloc(ledger.pool, 10, 16, "src/app.c", 12);
  EXPECT_EQ(qk_mem_irealloc(4, memory, 1 << 20, 16, "src/app.c", 13), nullptr);
  qk_mem_ifree(4, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.record(memory), "M 1/10 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 10, tag 1 for 10, events 1");
}

}  // namespace

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "core/registry.h"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

/** Memory that was allocated but couldn't be recorded. */
namespace {

using kit::Environment;
using kit::Ledger;

struct Call {
  const char* name;  // as in configuration lists
  void* (*allocate)(int hid);
};

const Call kCalls[] = {
    {"qk_imalloc", [](int hid) { return qk_mem_imalloc(hid, 10, 16, "src/app.c", 70000); }},
    {"qk_icalloc", [](int hid) { return qk_mem_icalloc(hid, 1, 10, 16, "src/app.c", 70000); }},
    {"qk_irealloc",
     [](int hid) { return qk_mem_irealloc(hid, nullptr, 10, 16, "src/app.c", 70000); }},
    {"qk_irealloc",
     [](int hid) { return qk_mem_irecalloc(hid, nullptr, 1, 10, 0, 16, "src/app.c", 70000); }},
    {"qk_istrdup",
     [](int hid) -> void* { return qk_mem_istrdup(hid, "ten bytes", "src/app.c", 70000); }},
};

/** Empties the handle's pointer table. */
void begin_table(const Ledger& ledger) {
  for (qk_mem_ptr_array& array : ledger.pool.record().ptrs) {
    std::free(array.ptrs);
    array = {};
  }
}

/** A call's first request is for the memory; the second, for the array of its record, fails. */
void* allocate_without_record(Ledger& ledger, const Call& call) {
  begin_table(ledger);
  kit::fill_arrays(ledger.pool);
  ledger.skip_all();
  kit::fail_request(2);
  void* memory = call.allocate(ledger.pool);
  EXPECT_TRUE(kit::has_failed());
  return memory;
}

TEST(UnrecordedMemory, IsReturnedWithAnErrorLineAndACode) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  for (const Call& call : kCalls) {
    Qk_mem_error.set(0);
    void* memory = allocate_without_record(ledger, call);
    EXPECT_NE(memory, nullptr) << call.name;
    EXPECT_EQ(qk_mem_error(), 5012) << call.name;
    EXPECT_EQ(
        ledger.log(),
        "   qk_mem_new_ptr: ERROR: realloc of 3840 at app.c:70000 of a->ptrs failed: 12 Cannot allocate memory\n")
        << call.name;
    EXPECT_EQ(ledger.trace(), "") << call.name;
    EXPECT_EQ(ledger.record(memory), "none") << call.name;
    EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0") << call.name;
    std::free(memory);
  }
}

TEST(UnrecordedMemory, IsReportedUnderTheSwitchesOfItsRoutine) {
  constexpr char kLine[] =
      "   qk_mem_new_ptr: ERROR: realloc of 3840 at app.c:70000 of a->ptrs failed: 12 Cannot allocate memory\n";
  Ledger ledger("EXCEPTIONS");
  for (const Call& call : kCalls) {
    struct {
      std::string debug;
      const char* log;
    } const rows[] = {
        {std::string("EXCEPTIONS=") + call.name, kLine},
        {std::string("DEBUG=") + call.name, kLine},
        {std::string("EXCEPTIONS TRACE=not,") + call.name, kLine},
        {std::string("EXCEPTIONS=not,") + call.name, ""},
        {std::string("DEBUG=not,") + call.name, ""},
        {"CTRLBLKS", ""},
        {"SUMMARY TRACE", ""},
    };
    for (const auto& row : rows) {
      ledger.configure(row.debug.c_str());
      std::free(allocate_without_record(ledger, call));
      EXPECT_EQ(ledger.log(), row.log) << row.debug;
    }
  }
}

TEST(UnrecordedMemory, CanBeFreedOnItsHandle) {
  Ledger ledger("EXCEPTIONS");
  void* memory = allocate_without_record(ledger, kCalls[0]);
  ledger.skip_all();
  qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
  EXPECT_EQ(ledger.log(),
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at app.c:13\n"
            "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at app.c:13\n");
}

TEST(UnrecordedMemory, IsReturnedWithAWarningIfTheTableIsLost) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  // All arrays as a failed growth leaves them.
  for (qk_mem_ptr_array& array : ledger.pool.record().ptrs) {
    std::free(array.ptrs);
    array = {.capacity = 80, .used = 16, .ptrs = nullptr, .last = 0, .free_slots = 0, .larger = {}};
  }
  for (const Call& call : kCalls) {
    ledger.skip_all();
    void* memory = call.allocate(ledger.pool);
    EXPECT_NE(memory, nullptr) << call.name;
    EXPECT_EQ(ledger.log(), "   qk_mem_new_ptr: WARNING: ptr array not large enough\n")
        << call.name;
    EXPECT_EQ(ledger.trace(), "") << call.name;
    EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0") << call.name;
    ledger.skip_all();
    qk_mem_ifree(ledger.pool, memory, "src/app.c", 13);
    EXPECT_EQ(ledger.log(),
              "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at app.c:13\n"
              "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at app.c:13\n")
        << call.name;
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <functional>

#include "tests/kit/failing_runs.h"
#include "tests/kit/program.h"
#include "tests/kit/scene.h"

namespace {

using kit::Program;
using kit::Scene;

/** Makes calls of every kind, and so many allocations that a pointer array grows. */
void use_in_every_way(Program& program, int hid) {
  const int first = program.malloc(hid, 100);
  const int zeroed = program.calloc(hid, 3, 7);
  const int text = program.strdup(hid, "a text that lives on a handle");
  const int made = program.realloc_new(hid, 40);
  for (int i = 0; i < 20; ++i) program.malloc(hid, 16);
  program.realloc(first, 3000);
  program.realloc(made, 8);
  program.recalloc(zeroed, 30, 7);
  program.free(text);
  program.realloc(made, 500);
  program.free(first);
  program.free(made);
  program.malloc(hid, 24);
}

/** Managed arrays grow only on handles whose memory can be resized. */
void use_arrays(Program& program, int hid) {
  if (qk_mem_frees_singly(hid, "src/app.c", 1) == 0) {
    for (int i = 0; i < 20; ++i) program.push(hid, 20);
    return program.free_array(hid);
  }
  for (int i = 0; i < 20; ++i) program.push(hid, 3);
  program.malloc(hid, 50);
  for (int i = 0; i < 5; ++i) program.push(hid, 100);
  program.free_array(hid);
  program.push(hid, 1);
  program.push(hid, 1);
  program.free_array(hid);
}

void register_memory(Program& program, int hid) {
  int entered[20];
  for (int& index : entered) index = program.register_external(hid, 60);
  program.deregister(entered[3]);
  program.free(entered[19]);
  program.malloc(hid, 30);
}

/** Calls `use` on a handle of its own, which is deleted while another one holds memory. */
void use_handles(const char* options, const std::function<void(Program&, int)>& use) {
  Program program;
  const int held = program.create_handle(options, "AB");
  program.malloc(held, 77);
  const int hid = program.create_handle(options, "CD");
  use(program, hid);
  program.expect_nothing_lost();
  program.delete_handle(hid);
  program.expect_nothing_lost();
  const int again = program.create_handle(options);
  program.malloc(again, 10);
  program.delete_handle(again);
  program.delete_handle(held);
  program.expect_nothing_lost();
}

struct Case {
  const char* name;
  const char* options;
};

constexpr Case kHandles[] = {
    {"AnOrdinaryHandle", ""},
    {"ASharedHandle", "MULTITHREADED"},
    {"ABlockManagedHandle", "BLOCKMGMT BLOCKSIZE=300"},
    {"ASharedBlockManagedHandle", "BLOCKMGMT MULTITHREADED BLOCKINITIAL=3"},
    {"AHandleOfFreeablePieces", "BLOCKMGMT BLOCKFREE BLOCKSIZE=300 BLOCKINITIAL=0"},
    {"ASharedHandleOfFreeablePieces", "BLOCKMGMT BLOCKFREE MULTITHREADED BLOCKSIZE=64"},
    {"AnAutofreeOverheadHandle", "AUTOFREE OVERHEAD"},
};

class EachFailingRequest : public ::testing::TestWithParam<Case> {};

INSTANTIATE_TEST_SUITE_P(On, EachFailingRequest, ::testing::ValuesIn(kHandles),
                         [](const auto& row) { return row.param.name; });

TEST_P(EachFailingRequest, LeavesAllocatedMemoryAsItWas) {
  const Scene scene;
  kit::expect_no_harm(10, [] { use_handles(GetParam().options, use_in_every_way); });
}

TEST_P(EachFailingRequest, LeavesManagedArraysAsTheyWere) {
  const Scene scene;
  kit::expect_no_harm(8, [] { use_handles(GetParam().options, use_arrays); });
}

TEST_P(EachFailingRequest, LeavesRegisteredMemoryAsItWas) {
  const Scene scene;
  kit::expect_no_harm(8, [] { use_handles(GetParam().options, register_memory); });
}

TEST(EachFailingRequestOnTheDataHandle, LeavesMemoryAsItWas) {
  const Scene scene;
  kit::expect_no_harm(30, [] {
    Program program;
    use_in_every_way(program, QK_MEM_DATA_HANDLE);
    use_arrays(program, QK_MEM_DATA_HANDLE);
    program.delete_handle(QK_MEM_DATA_HANDLE);
    program.expect_nothing_lost();
  });
}

}  // namespace

#include <gtest/gtest.h>

#include <memory_resource>
#include <new>
#include <vector>

#include "qkmem/qkmem.hpp"
#include "tests/kit/failing_allocator.h"
#include "tests/kit/failing_runs.h"
#include "tests/kit/program.h"
#include "tests/kit/scene.h"

namespace {

using kit::Program;
using kit::require;
using kit::Scene;

/** An object that counts how many exist. */
struct Thing {
  Thing() { ++alive; }
  Thing(const Thing&) = delete;
  Thing& operator=(const Thing&) = delete;
  ~Thing() { --alive; }

  static int alive;
  long values[4] = {1, 2, 3, 4};
};

int Thing::alive = 0;

bool is_recorded(int hid, const void* address) {
  return qk_mem_is_recorded(hid, address, "src/app.c", 1) != 0;
}

/** Calls `body`, and again, with memory, if it throws std::bad_alloc. */
template <class Try>
void retry(int hid, Try body) {
  const int before = Thing::alive;
  try {
    body();
    return;
  } catch (const std::bad_alloc&) {
    require(Thing::alive == before, "a failure left objects behind");
    kit::let_succeed();
  }
  try {
    body();
  } catch (const std::bad_alloc&) {
    require(!kit::has_handle(hid), "the retry fails too");
  }
}

/** Objects that a handle couldn't record are the program's to delete. */
struct Things {
  Thing* single[20] = {};
  Thing* array[3] = {};
  bool stays_single[20] = {};
  bool stays_array[3] = {};
};

void make_things(Things& things, int hid) {
  for (Thing*& thing : things.single) retry(hid, [&] { thing = qk::make<Thing>(hid); });
  for (Thing*& thing : things.array) retry(hid, [&] { thing = qk::make_array<Thing>(hid, 3); });
}

void note_what_stays(Things& things, int hid) {
  for (int i = 0; i < 20; ++i) {
    things.stays_single[i] = things.single[i] != nullptr && !is_recorded(hid, things.single[i]);
  }
  for (int i = 0; i < 3; ++i) {
    things.stays_array[i] = things.array[i] != nullptr && !is_recorded(hid, things.array[i]);
  }
}

void delete_what_stayed(const Things& things) {
  for (int i = 0; i < 20; ++i) {
    if (things.stays_single[i]) delete things.single[i];
  }
  for (int i = 0; i < 3; ++i) {
    if (things.stays_array[i]) delete[] things.array[i];
  }
}

void make_and_destroy(const char* options) {
  Program program;
  const int hid = program.create_handle(options, "OB");
  Things things;
  make_things(things, hid);
  for (int i = 0; i < 5; ++i) {
    qk::destroy(hid, things.single[i]);
    things.single[i] = nullptr;
  }
  qk::destroy<Thing[]>(hid, things.array[0]);
  things.array[0] = nullptr;
  retry(hid, [&] { (void)qk::make_unique<Thing>(hid); });
  retry(hid, [&] { (void)qk::make_unique<Thing[]>(hid, 2); });
  program.malloc(hid, 100);
  require(Thing::alive == 15 + 6, "the number of objects is wrong");
  note_what_stays(things, hid);
  if (qk_mem_iclear_handle(hid, "src/app.c", 2) == 0) {
    delete_what_stayed(things);
    things = {};
    require(Thing::alive == 0, "objects outlive the clear");
    make_things(things, hid);
    note_what_stays(things, hid);
  }
  const bool deleted = qk_mem_idel_handle(hid, "src/app.c", 3) == 0;
  require(deleted || !kit::has_handle(hid) || hid == 2, "the handle can't be deleted");
  if (!deleted) {
    for (Thing* thing : things.single) qk::destroy(hid, thing);
    for (Thing* thing : things.array) qk::destroy<Thing[]>(hid, thing);
  } else {
    delete_what_stayed(things);
  }
  require(Thing::alive == 0, "objects outlive their handle");
}

TEST(ObjectsUnderFailures, AreDestroyedOnceOnAnOrdinaryHandle) {
  const Scene scene;
  kit::expect_no_harm(50, [] { make_and_destroy(""); });
}

TEST(ObjectsUnderFailures, AreDestroyedOnceOnASharedHandle) {
  const Scene scene;
  kit::expect_no_harm(50, [] { make_and_destroy("MULTITHREADED"); });
}

TEST(ObjectsUnderFailures, AreDestroyedOnceOnABlockManagedHandle) {
  const Scene scene;
  kit::expect_no_harm(50, [] { make_and_destroy("BLOCKMGMT BLOCKFREE"); });
}

TEST(ObjectsUnderFailures, AreDestroyedOnceIfNothingElseIsRecorded) {
  const Scene scene;
  kit::expect_no_harm(50, [] { make_and_destroy("BLOCKMGMT MULTITHREADED"); });
}

/** Containers keep their elements when they can't grow. */
template <class Vector>
void fill(int hid, Vector& numbers) {
  for (int i = 0; i < 200; ++i) {
    retry(hid, [&] { numbers.push_back(i); });
    if (!kit::has_handle(hid)) return;
    for (int at = 0; at <= i; ++at) {
      require(numbers[static_cast<std::size_t>(at)] == at, "a container lost an element");
    }
  }
}

void fill_containers(const char* options) {
  Program program;
  const int hid = program.create_handle(options, "CO");
  {
    std::vector<int, qk::allocator<int>> numbers{qk::allocator<int>(hid)};
    fill(hid, numbers);
    qk::memory_resource resource(hid);
    std::pmr::vector<int> others(&resource);
    fill(hid, others);
    std::pmr::vector<int> copy(&resource);
    retry(hid, [&] { copy = others; });
    require(copy.size() == others.size(), "a copy has another length");
  }
  program.delete_handle(hid);
  program.expect_nothing_lost();
}

TEST(ContainersUnderFailures, KeepTheirElementsOnAnOrdinaryHandle) {
  const Scene scene;
  kit::expect_no_harm(20, [] { fill_containers("MULTITHREADED"); });
}

TEST(ContainersUnderFailures, KeepTheirElementsInBlocks) {
  const Scene scene;
  kit::expect_no_harm(8, [] { fill_containers("BLOCKMGMT"); });
}

TEST(ContainersUnderFailures, KeepTheirElementsUnderBlockfree) {
  const Scene scene;
  kit::expect_no_harm(8, [] { fill_containers("BLOCKMGMT BLOCKFREE BLOCKSIZE=256"); });
}

}  // namespace

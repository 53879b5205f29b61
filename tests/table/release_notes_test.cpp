#include "table/release_notes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>

#include "tests/kit/failing_allocator.h"

namespace {

using qk::mem::ReleaseNotes;

[[nodiscard]] void* at(std::uintptr_t address) { return reinterpret_cast<void*>(address); }

TEST(ReleaseNotes, AreTakenOnce) {
  ReleaseNotes notes;
  ASSERT_NE(notes.add(at(0x1000), 8), nullptr);
  EXPECT_EQ(notes.take(at(0x1001)), nullptr);
  ASSERT_NE(notes.take(at(0x1000)), nullptr);
  EXPECT_EQ(notes.take(at(0x1000)), nullptr);
}

TEST(ReleaseNotes, AreFoundByEachAddressOfTheirMemory) {
  ReleaseNotes notes;
  for (const std::uintptr_t address : {0x1000U, 0x1017U}) {
    notes.add(at(0x1000), 0x18);
    notes.add(at(0x1018), 0x18);
    const ReleaseNotes::Note* note = notes.take_around(at(address));
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(note->begin, 0x1000U);
  }
  EXPECT_EQ(notes.take_around(at(0xfff)), nullptr);
  EXPECT_EQ(notes.take_around(at(0x1030)), nullptr);
  EXPECT_NE(notes.take_around(at(0x102f)), nullptr);
}

TEST(ReleaseNotes, AreOnePerAddress) {
  ReleaseNotes notes;
  notes.add(at(0x1000), 8)->is_held = true;
  EXPECT_TRUE(notes.add(at(0x1000), 16)->is_held);
  EXPECT_NE(notes.take_around(at(0x100f)), nullptr);
  EXPECT_EQ(notes.take(at(0x1000)), nullptr);
}

TEST(ReleaseNotes, KeepWhatIsHeldInTheirOrderEvenIfTaken) {
  ReleaseNotes notes;
  notes.add(at(0x3000), 1)->is_held = true;
  notes.add(at(0x2000), 1);
  notes.add(at(0x1000), 1)->is_held = true;
  static_cast<void>(notes.take(at(0x3000)));
  std::string held;
  notes.for_each_held([&](void* memory) {
    held += std::to_string(reinterpret_cast<std::uintptr_t>(memory)) + " ";
  });
  EXPECT_EQ(held, "12288 4096 ");
}

TEST(ReleaseNotes, AreEmptyAtFirst) {
  ReleaseNotes notes;
  EXPECT_EQ(notes.take(at(0x1000)), nullptr);
  notes.for_each_held([](void*) { FAIL(); });
}

TEST(ReleaseNotes, AgreeWithAMapAfterManySteps) {
  ReleaseNotes notes;
  std::map<std::uintptr_t, std::uint64_t> expected;
  std::mt19937 random(7);
  for (int step = 0; step < 20000; ++step) {
    const std::uintptr_t address = 0x10000 + 16 * (random() % 2000);
    if (random() % 2 == 0) {
      const std::uint64_t bytes = 1 + random() % 16;
      notes.add(at(address), bytes);
      expected[address] = bytes;
      continue;
    }
    const std::uintptr_t inside = address + random() % 16;
    const auto found = expected.find(address);
    const bool is_exact = random() % 2 == 0;
    const bool is_noted = found != expected.end() &&
                          (is_exact ? inside == address : inside - address < found->second);
    ASSERT_EQ((is_exact ? notes.take(at(inside)) : notes.take_around(at(inside))) != nullptr,
              is_noted);
    if (is_noted) expected.erase(found);
  }
}

TEST(ReleaseNotes, StayWhenThereIsNoMemoryForMore) {
  ReleaseNotes notes;
  ASSERT_TRUE(notes.reserve(2));
  notes.add(at(0x1000), 1);
  notes.add(at(0x2000), 1);
  for (const int request : {1, 2}) {
    kit::fail_request(request);
    EXPECT_EQ(notes.add(at(0x3000), 1), nullptr);
    EXPECT_TRUE(kit::has_failed());
  }
  kit::let_succeed();
  EXPECT_NE(notes.take(at(0x1000)), nullptr);
  EXPECT_NE(notes.add(at(0x3000), 1), nullptr);
  EXPECT_NE(notes.take(at(0x2000)), nullptr);
  EXPECT_NE(notes.take(at(0x3000)), nullptr);
}

}  // namespace

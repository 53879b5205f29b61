#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "lost/inquiry.h"
#include "profile/site_table.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"
#include "support/shared_variable.h"
#include "tests/kit/scene.h"

namespace {

namespace lost = qk::mem::lost;
namespace profile = qk::mem::profile;

struct Item {
  Item* next;
  Item* previous;
  std::uint64_t value;
};

/** Blocks of all sizes, so that the C library keeps them in all of its ways. */
Item* take(int hid, std::mt19937& random, const char* site) {
  const std::size_t more = random() % 16 == 0 ? random() % 5000 : random() % 200;
  auto* const item = static_cast<Item*>(qk_mem_imalloc(hid, sizeof(Item) + more, 16, site, 1));
  item->next = item->previous = nullptr;
  return item;
}

/** What threads share: a cache whose entries come and go, and an index of others. */
struct Shared {
  std::mutex mutex;
  std::unordered_map<std::uint64_t, Item*> cache;
  std::map<std::uint64_t, Item*> index;

  std::condition_variable changed;
  int ready = 0;
  bool may_end = false;
};

/** A thread's list, of which it has the last element only. */
struct List {
  Item* last = nullptr;

  void push(Item* item) {
    item->previous = last;
    if (last != nullptr) last->next = item;
    last = item;
  }
  void pop(int hid) {
    Item* const item = last;
    if (item == nullptr) return;
    last = item->previous;
    if (last != nullptr) last->next = nullptr;
    qk_mem_ifree(hid, item, "test.cpp", 1);
  }
};

/** Forgets one to five blocks that lead to each other. Returns how many. */
[[gnu::noinline]] std::uint64_t plant(int hid, std::mt19937& random) {
  const std::uint64_t count = 1 + random() % 5;
  Item* first = nullptr;
  for (std::uint64_t i = 0; i < count; ++i) {
    Item* const item = take(hid, random, "lost.c");
    item->next = first;
    first = item;
  }
  return count;
}

[[gnu::noinline]] std::uint64_t work(int hid, std::mt19937& random, Shared& shared, List& list,
                                     std::uint64_t wanted) {
  std::uint64_t planted = 0;
  while (planted < wanted) {
    for (int i = 0; i < 13; ++i) list.push(take(hid, random, "list.c"));
    for (int i = 0; i < 3; ++i) list.pop(hid);
    {
      const std::lock_guard lock(shared.mutex);
      for (int i = 0; i < 4; ++i) {
        Item*& entry = shared.cache[random() % 30000];
        if (entry != nullptr) qk_mem_ifree(hid, entry, "test.cpp", 2);
        entry = take(hid, random, "cache.c");
        Item*& other = shared.index[random()];
        if (other == nullptr) other = take(hid, random, "index.c");
      }
    }
    planted += plant(hid, random);
  }
  return planted;
}

[[gnu::noinline]] void wipe() {
  volatile char bytes[16384];
  for (volatile char& byte : bytes) byte = 1;
}

/** Blocks of a site, and how many of them are taken for lost. */
struct Judged {
  std::uint64_t blocks = 0;
  std::uint64_t gone = 0;
};

Judged judged(const lost::Findings& findings, std::string_view site) {
  Judged result;
  for (std::uint32_t number = 1; number <= profile::sites.count(); ++number) {
    const profile::Site& found = profile::sites.at(number);
    if (site != found.key.file) continue;
    result.blocks += qk::load(found.live_blocks);
    result.gone += findings.of(found).gone.blocks;
  }
  return result;
}

TEST(PlantedBlocks, AreFoundAndNoOthersAre) {
  const kit::Scene scene;
  ASSERT_EQ(0, qk_mem_profile_config("LOST"));
  const int hid = qk_mem_inew_handle("MULTITHREADED", nullptr, "test.cpp", 1);
  static Shared shared;
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= 3; ++seed) {
    threads.emplace_back([=] {
      std::mt19937 random(seed);
      List list;
      work(hid, random, shared, list, 8000);
      wipe();
      std::unique_lock lock(shared.mutex);
      ++shared.ready;
      shared.changed.notify_all();
      shared.changed.wait(lock, [] { return shared.may_end; });
      list.pop(hid);  // it is needed until here
    });
  }
  {
    std::unique_lock lock(shared.mutex);
    shared.changed.wait(lock, [] { return shared.ready == 3; });
  }
  const lost::Findings findings = lost::inquire(lost::Waiting::kAllowed);
  const Judged planted = judged(findings, "lost.c");
  const Judged listed = judged(findings, "list.c");
  const Judged cached = judged(findings, "cache.c");
  const Judged indexed = judged(findings, "index.c");
  {
    const std::lock_guard lock(shared.mutex);
    shared.may_end = true;
  }
  shared.changed.notify_all();
  for (std::thread& thread : threads) thread.join();
  if (findings.summary().obstacle == lost::Obstacle::kSanitizer) GTEST_SKIP() << "with a sanitizer";
  ASSERT_EQ(lost::Obstacle::kNone, findings.summary().obstacle);
  EXPECT_LE(24'000, planted.blocks);
  EXPECT_LE(150'000, planted.blocks + listed.blocks + cached.blocks + indexed.blocks);
  EXPECT_LE(planted.blocks * 95 / 100, planted.gone);
  EXPECT_EQ(0, listed.gone);
  EXPECT_EQ(0, cached.gone);
  EXPECT_EQ(0, indexed.gone);
}

}  // namespace

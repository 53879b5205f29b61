#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

namespace {

using kit::Environment;
using kit::Ledger;

void* resize(int hid, void* memory, std::size_t num, std::size_t size, std::size_t old_num) {
  return qk_mem_irecalloc(hid, memory, num, size, old_num, 16, "lib/other.c", 80);
}

/** An array that is full of 'x'. */
void* allocate(int hid, std::size_t num, std::size_t size) {
  return std::memset(qk_mem_icalloc(hid, num, size, 16, "src/app.c", 12), 'x', num * size);
}

std::string bytes(const void* memory, std::size_t size) {
  return {static_cast<const char*>(memory), size};
}

TEST(Recalloc, ZeroesOnlyTheElementsThatItAdds) {
  Ledger ledger("");
  void* memory = resize(ledger.pool, allocate(ledger.pool, 10, 8), 25, 8, 10);
  EXPECT_EQ(bytes(memory, 200), std::string(80, 'x') + std::string(120, '\0'));
}

TEST(Recalloc, TrustsTheCallersOldNumberOfElements) {
  Ledger ledger("");
  void* memory = resize(ledger.pool, allocate(ledger.pool, 10, 8), 10, 8, 4);
  EXPECT_EQ(bytes(memory, 80), std::string(32, 'x') + std::string(48, '\0'));
}

TEST(Recalloc, ZeroesNothingUnlessTheNumberGrows) {
  Ledger ledger("");
  void* memory = resize(ledger.pool, allocate(ledger.pool, 10, 8), 10, 8, 10);
  EXPECT_EQ(bytes(memory, 80), std::string(80, 'x'));
  memory = resize(ledger.pool, memory, 9, 8, 10);
  EXPECT_EQ(bytes(memory, 72), std::string(72, 'x'));
  memory = resize(ledger.pool, memory, 4, 8, 9);
  EXPECT_EQ(bytes(memory, 32), std::string(32, 'x'));
}

TEST(Recalloc, ZeroesAllElementsIfThePointerIsNull) {
  Ledger ledger("");
  void* memory = resize(ledger.pool, nullptr, 10, 8, 0);
  EXPECT_EQ(bytes(memory, 80), std::string(80, '\0'));
}

TEST(Recalloc, IsRecordedLoggedAndTracedAsARealloc) {
  Ledger ledger(Environment{"DEBUG", "DB", ""});
  void* created = resize(ledger.pool, nullptr, 10, 8, 0);
  EXPECT_EQ(ledger.log(), "   qk_mem_irealloc:       3 [p1] R 80 other.c:80; newly created\n");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 80 other.c 80 80\n");
  EXPECT_EQ(ledger.record(created), "R 1/80 other.c:80 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 80, tag 1 for 80, events 1");

  ledger.skip_all();
  void* counted = allocate(ledger.pool, 10, 8);
  ledger.skip_all();
  void* resized = resize(ledger.pool, counted, 25, 8, 10);
  EXPECT_EQ(ledger.log(), std::string("   qk_mem_irealloc:       3 [p1] R 200 other.c:80; [") +
                              (resized == counted ? "p1" : "p2") + "] C 10/8 app.c:12\n");
  EXPECT_EQ(ledger.trace(), "3 R [p1] 1 200 other.c 80 120\n");
  EXPECT_EQ(ledger.record(resized), "R 1/200 other.c:80 event 1");
  EXPECT_EQ(ledger.sums(), "handle 2 for 280, tag 2 for 280, events 1");
}

TEST(Recalloc, KeepsMemoryAndRecordOnFailure) {
  Ledger ledger("EXCEPTIONS");
  void* memory = allocate(ledger.pool, 10, 8);
  kit::fail_request(1);
  EXPECT_EQ(resize(ledger.pool, memory, 25, 8, 4), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(bytes(memory, 80), std::string(80, 'x'));
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_irealloc: ERROR: realloc of 200 at other.c:80 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.record(memory), "C 10/8 app.c:12 event 1");
  EXPECT_EQ(ledger.sums(), "handle 1 for 80, tag 1 for 80, events 1");
}

TEST(Recalloc, ReleasesTheMemoryIfNumberOrSizeIsZero) {
  struct {
    std::size_t num;
    std::size_t size;
  } const rows[] = {{0, 8}, {10, 0}, {0, 0}};
  for (const auto& row : rows) {
    Ledger ledger("EXCEPTIONS");
    EXPECT_EQ(resize(ledger.pool, allocate(ledger.pool, 10, 8), row.num, row.size, 4), nullptr);
    EXPECT_EQ(kit::data_of(ledger.pool), "0 for 0");
    EXPECT_EQ(kit::tag_of("AB"), "0 for 0");
  }
}

TEST(Recalloc, WarnsOfUnknownMemoryLikeRealloc) {
  Ledger ledger("EXCEPTIONS");
  void* memory = std::memset(std::malloc(80), 'x', 80);
  memory = resize(ledger.pool, memory, 25, 8, 10);
  EXPECT_EQ(bytes(memory, 200), std::string(80, 'x') + std::string(120, '\0'));
  EXPECT_EQ(ledger.log(),
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n"
            "   qk_mem_irealloc: WARNING:   3 [p1] ptr not found at other.c:80\n");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
  std::free(memory);
}

}  // namespace

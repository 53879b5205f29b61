#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/kit/ledger.h"
#include "tests/kit/scene.h"

/** A product that overflows fails like an allocation without memory. */
namespace {

using kit::Ledger;
using kit::Scene;

struct Product {
  std::size_t num;
  std::size_t size;
};

constexpr std::size_t kTwo33 = std::size_t{1} << 33;

/** Each wraps to 8 bytes or less if the overflow isn't detected. */
constexpr Product kTooLarge[] = {
    {SIZE_MAX / 8 + 2, 8},
    {std::size_t{1} << 63, 2},
    {std::size_t{1} << 32, std::size_t{1} << 32},
    {SIZE_MAX, SIZE_MAX},
};

TEST(Overflow, MakesCallocFailWithAnErrorLine) {
  Ledger ledger("EXCEPTIONS");
  EXPECT_EQ(qk_mem_icalloc(ledger.pool, kTwo33, kTwo33, 16, "src/app.c", 12), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(
      ledger.log(),
      "   qk_mem_icalloc: ERROR: calloc of 8589934592/8589934592 at app.c:12 failed: 12 Cannot allocate memory\n");
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Overflow, IsDetectedByCallocForEveryProduct) {
  Ledger ledger("");
  for (const auto& [num, size] : kTooLarge) {
    EXPECT_EQ(qk_mem_icalloc(ledger.pool, num, size, 16, "src/app.c", 12), nullptr);
    EXPECT_EQ(qk_mem_icalloc(QK_MEM_DATA_HANDLE, num, size, 16, "src/app.c", 12), nullptr);
  }
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

TEST(Overflow, MakesRecallocFailAndKeepMemoryAndRecord) {
  Ledger ledger("EXCEPTIONS");
  void* memory = qk_mem_icalloc(ledger.pool, 10, 8, 16, "src/app.c", 12);
  std::memset(memory, 'x', 80);
  for (const auto& [num, size] : kTooLarge) {
    EXPECT_EQ(qk_mem_irecalloc(ledger.pool, memory, num, size, 10, 16, "src/app.c", 13), nullptr);
    EXPECT_EQ(qk_mem_error(), 5012);
    EXPECT_EQ(ledger.record(memory), "C 10/8 app.c:12 event 1");
    EXPECT_EQ(std::string(static_cast<char*>(memory), 80), std::string(80, 'x'));
  }
  EXPECT_EQ(ledger.sums(), "handle 1 for 80, tag 1 for 80, events 1");
}

TEST(Overflow, IsReportedByRecallocAsAFailedRealloc) {
  Ledger ledger("EXCEPTIONS");
  EXPECT_EQ(qk_mem_irecalloc(ledger.pool, nullptr, SIZE_MAX, 2, 0, 16, "src/app.c", 13), nullptr);
  const std::string log = ledger.log();
  EXPECT_EQ(log.rfind("   qk_mem_irealloc: ERROR: realloc of ", 0), 0U) << log;
  EXPECT_NE(log.find(" at app.c:13 failed: 12 Cannot allocate memory\n"), std::string::npos) << log;
}

TEST(Overflow, MakesRecallocFailOnTheUntrackedDataHandleToo) {
  Scene scene("");
  void* memory = qk_mem_icalloc(QK_MEM_DATA_HANDLE, 10, 8, 16, "src/app.c", 12);
  for (const auto& [num, size] : kTooLarge) {
    EXPECT_EQ(qk_mem_irecalloc(QK_MEM_DATA_HANDLE, memory, num, size, 10, 16, "src/app.c", 13),
              nullptr);
  }
  EXPECT_EQ(qk_mem_error(), 5012);
  qk_mem_ifree(QK_MEM_DATA_HANDLE, memory, "src/app.c", 14);
}

TEST(Overflow, MakesARequestForSizeMaxFail) {
  Ledger ledger("");
  EXPECT_EQ(qk_mem_imalloc(ledger.pool, SIZE_MAX, 16, "src/app.c", 12), nullptr);
  EXPECT_EQ(qk_mem_error(), 5012);
  EXPECT_EQ(qk_mem_irealloc(ledger.pool, nullptr, SIZE_MAX, 16, "src/app.c", 12), nullptr);
  EXPECT_EQ(qk_mem_imalloc(QK_MEM_DATA_HANDLE, SIZE_MAX, 16, "src/app.c", 12), nullptr);
  EXPECT_EQ(ledger.sums(), "handle 0 for 0, tag 0 for 0, events 0");
}

}  // namespace

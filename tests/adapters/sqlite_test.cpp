#include "qkmem/adapters/sqlite.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "tests/kit/scene.h"

namespace {

int answer_to(const char* statement) {
  sqlite3* database = nullptr;
  int result = sqlite3_open(":memory:", &database);
  if (result == SQLITE_OK) result = sqlite3_exec(database, statement, nullptr, nullptr, nullptr);
  sqlite3_close(database);
  return result;
}

TEST(SqliteAdapter, LeavesSqliteAloneWithoutAHandle) {
  const kit::Scene scene;
  EXPECT_EQ(qk_mem_adapt_sqlite(0), SQLITE_MISUSE);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(answer_to("CREATE TABLE one (number)"), SQLITE_OK);
}

TEST(SqliteAdapter, RefusesAHandleThatFreesAllAtOnce) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT");
  EXPECT_EQ(qk_mem_adapt_sqlite(pool), SQLITE_MISUSE);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(SqliteAdapter, GetsNoMemoryWhereReallocDoesNotCopy) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT BLOCKFREE");
  EXPECT_EQ(qk_mem_adapt_sqlite(pool), SQLITE_OK);
  EXPECT_EQ(sqlite3_initialize(), SQLITE_NOMEM);
  EXPECT_EQ(qk_mem_error(), 5022);
}

TEST(SqliteAdapter, IsRefusedOnceSqliteIsInUse) {
  const kit::Scene scene;
  const kit::Pool pool;
  EXPECT_EQ(sqlite3_initialize(), SQLITE_OK);
  EXPECT_EQ(qk_mem_adapt_sqlite(pool), SQLITE_MISUSE);
  EXPECT_EQ(qk_mem_error(), 0);
  EXPECT_EQ(answer_to("CREATE TABLE one (number)"), SQLITE_OK);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
}

TEST(SqliteAdapter, AddsEightBytesToEachBlock) {
  const kit::Scene scene;
  const kit::Pool pool;
  ASSERT_EQ(qk_mem_adapt_sqlite(pool), SQLITE_OK);
  ASSERT_EQ(sqlite3_initialize(), SQLITE_OK);
  const std::size_t before = qk_mem_size(pool);
  void* block = sqlite3_malloc(99);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(sqlite3_msize(block), 104U);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0U);
  EXPECT_EQ(qk_mem_size(pool) - before, 104 + 8U);
  static_cast<char*>(block)[98] = 'x';
  block = sqlite3_realloc(block, 200);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(static_cast<char*>(block)[98], 'x');
  EXPECT_EQ(sqlite3_msize(block), 200U);
  EXPECT_EQ(qk_mem_size(pool) - before, 200 + 8U);
  sqlite3_free(block);
  EXPECT_EQ(qk_mem_size(pool), before);
  EXPECT_EQ(qk_mem_sqlite_size(nullptr), 0);
  sqlite3_shutdown();
}

TEST(SqliteAdapter, TakesAnotherHandleAfterAShutdown) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool first;
  const kit::Pool second;
  scene.skip_log();
  for (const int hid : {int{first}, int{second}}) {
    ASSERT_EQ(qk_mem_adapt_sqlite(hid), SQLITE_OK);
    EXPECT_EQ(answer_to("CREATE TABLE one (number)"), SQLITE_OK);
    void* const block = sqlite3_malloc(8);
    EXPECT_GT(qk_mem_size(hid), 0U);
    sqlite3_free(block);
    EXPECT_EQ(sqlite3_shutdown(), SQLITE_OK);
    EXPECT_EQ(qk_mem_size(hid), 0U);
  }
  EXPECT_EQ(scene.log(), "");
}

TEST(SqliteAdapter, ServesThreadsOnAMultithreadedHandle) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool("MULTITHREADED");
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_sqlite(pool), SQLITE_OK);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int round = 0; round < 50; ++round) answer_to("CREATE TABLE one (number)");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sqlite3_shutdown(), SQLITE_OK);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

}  // namespace

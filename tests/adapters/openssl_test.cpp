#include "qkmem/adapters/openssl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "tests/kit/scene.h"

namespace {

TEST(OpensslAdapter, LeavesOpensslAloneWithoutAHandle) {
  const kit::Scene scene;
  EXPECT_EQ(qk_mem_adapt_openssl(0), 0);
  EXPECT_EQ(qk_mem_error(), 5566);
  void* const block = CRYPTO_malloc(10, "bio.c", 1);
  EXPECT_NE(block, nullptr);
  CRYPTO_free(block, "bio.c", 2);
}

TEST(OpensslAdapter, RefusesAHandleThatFreesAllAtOnce) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT");
  EXPECT_EQ(qk_mem_adapt_openssl(pool), 0);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(OpensslAdapter, GetsNoMemoryWhereReallocDoesNotCopy) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT BLOCKFREE");
  EXPECT_EQ(qk_mem_adapt_openssl(pool), 1);
  EXPECT_EQ(qk_mem_openssl_malloc(10, "bio.c", 1), nullptr);
  EXPECT_EQ(qk_mem_error(), 5022);
}

TEST(OpensslAdapter, IsRefusedOnceOpensslHasAllocated) {
  const kit::Scene scene;
  const kit::Pool pool;
  void* const block = CRYPTO_malloc(10, "bio.c", 1);
  EXPECT_EQ(qk_mem_adapt_openssl(pool), 0);
  CRYPTO_free(block, "bio.c", 2);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
}

TEST(OpensslAdapter, ShowsTheLinesOfOpenssl) {
  kit::Scene scene("DEBUG");
  const kit::Pool pool;
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_openssl(pool), 1);
  void* block = CRYPTO_malloc(10, "crypto/bio.c", 1);
  block = CRYPTO_realloc(block, 20, "crypto/bio.c", 2);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0U);
  EXPECT_EQ(kit::data_of(pool), "1 for 20");
  CRYPTO_free(block, "crypto/bio.c", 3);
  EXPECT_EQ(scene.log("qk_mem_imalloc"), "   qk_mem_imalloc:        3 [p1] M 10 bio.c:1\n");
  EXPECT_EQ(scene.log("qk_mem_ifree"),
            "   qk_mem_ifree:          3 [p1] F bio.c:3; R 20 bio.c:2\n");
}

TEST(OpensslAdapter, TreatsNullAndNoBytesAsOpensslDoes) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool;
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_openssl(pool), 1);
  EXPECT_EQ(CRYPTO_malloc(0, "bio.c", 1), nullptr);
  CRYPTO_free(nullptr, "bio.c", 2);
  void* const block = CRYPTO_realloc(nullptr, 10, "bio.c", 3);
  EXPECT_EQ(kit::data_of(pool), "1 for 10");
  EXPECT_EQ(CRYPTO_realloc(block, 0, "bio.c", 4), nullptr);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

void resize_often() {
  for (int round = 0; round < 10'000; ++round) {
    void* const block = CRYPTO_malloc(10, "bio.c", 1);
    CRYPTO_free(CRYPTO_realloc(block, 1000, "bio.c", 2), "bio.c", 3);
  }
}

TEST(OpensslAdapter, ServesThreadsOnAMultithreadedHandle) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool("MULTITHREADED");
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_openssl(pool), 1);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(resize_often);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

}  // namespace

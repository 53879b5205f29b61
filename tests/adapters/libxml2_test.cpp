#include "qkmem/adapters/libxml2.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/kit/scene.h"

namespace {

void read_book() {
  const char text[] = "<book title='Notes'>text</book>";
  xmlDoc* const document = xmlReadMemory(text, sizeof text - 1, "book.xml", nullptr, 0);
  EXPECT_NE(document, nullptr);
  xmlFreeDoc(document);
}

TEST(Libxml2Adapter, LeavesLibxml2AloneWithoutAHandle) {
  const kit::Scene scene;
  const xmlMallocFunc before = xmlMalloc;
  EXPECT_EQ(qk_mem_adapt_libxml2(0), -1);
  EXPECT_EQ(qk_mem_error(), 5566);
  EXPECT_EQ(xmlMalloc, before);
}

TEST(Libxml2Adapter, RefusesAHandleThatFreesAllAtOnce) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT");
  EXPECT_EQ(qk_mem_adapt_libxml2(pool), -1);
  EXPECT_EQ(qk_mem_error(), 0);
}

TEST(Libxml2Adapter, GetsNoMemoryWhereReallocDoesNotCopy) {
  const kit::Scene scene;
  const kit::Pool pool("BLOCKMGMT BLOCKFREE");
  EXPECT_EQ(qk_mem_adapt_libxml2(pool), 0);
  EXPECT_EQ(xmlMalloc(10), nullptr);
  EXPECT_EQ(qk_mem_error(), 5022);
}

TEST(Libxml2Adapter, HoldsWhatLibxml2KeepsUntilItCleansUp) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool;
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_libxml2(pool), 0);
  xmlInitParser();
  EXPECT_GT(qk_mem_size(pool), 0U);
  read_book();
  xmlCleanupParser();
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

TEST(Libxml2Adapter, TreatsNullAsLibxml2DoesAndGivesOneByteForNone) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool;
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_libxml2(pool), 0);
  xmlFree(nullptr);
  EXPECT_EQ(xmlMemStrdup(nullptr), nullptr);
  void* const none = xmlMalloc(0);
  EXPECT_EQ(kit::data_of(pool), "1 for 1");
  void* block = xmlRealloc(nullptr, 10);
  block = xmlRealloc(block, 0);
  EXPECT_EQ(kit::data_of(pool), "2 for 2");
  char* const copy = xmlMemStrdup("text");
  EXPECT_STREQ(copy, "text");
  EXPECT_EQ(kit::data_of(pool), "3 for 7");
  xmlFree(none);
  xmlFree(block);
  xmlFree(copy);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

TEST(Libxml2Adapter, FreesBlocksFromBeforeWithAWarning) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool;
  scene.skip_log();
  void* const early = xmlMalloc(10);
  ASSERT_EQ(qk_mem_adapt_libxml2(pool), 0);
  xmlFree(early);
  const std::string warning = "   qk_mem_ifree: WARNING:   3 [p1] ptr not found at libxml2.h:#\n";
  EXPECT_EQ(std::regex_replace(scene.log(), std::regex(R"(\.h:\d+)"), ".h:#"), warning + warning);
}

TEST(Libxml2Adapter, ServesThreadsOnAMultithreadedHandle) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool("MULTITHREADED");
  scene.skip_log();
  ASSERT_EQ(qk_mem_adapt_libxml2(pool), 0);
  xmlInitParser();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int round = 0; round < 50; ++round) read_book();
    });
  for (std::thread& thread : threads) thread.join();
  xmlCleanupParser();
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

}  // namespace

#include "qkmem/adapters/lua.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/kit/failing_allocator.h"
#include "tests/kit/scene.h"

namespace {

TEST(LuaAdapter, MakesNoStateWithoutAHandle) {
  const kit::Scene scene;
  EXPECT_EQ(qk_mem_lua_newstate(0), nullptr);
  EXPECT_EQ(qk_mem_error(), 5566);
}

TEST(LuaAdapter, MakesNoStateOnABlockManagedHandle) {
  const kit::Scene scene;
  const kit::Pool arena("BLOCKMGMT");
  EXPECT_EQ(qk_mem_lua_newstate(arena), nullptr);
  EXPECT_EQ(qk_mem_error(), 0);
  const kit::Pool blockfree("BLOCKMGMT BLOCKFREE");
  EXPECT_EQ(qk_mem_lua_newstate(blockfree), nullptr);
  EXPECT_EQ(qk_mem_error(), 5022);
}

TEST(LuaAdapter, GivesEachStateItsOwnHandle) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool first;
  const kit::Pool second;
  scene.skip_log();
  lua_State* const one = qk_mem_lua_newstate(first);
  ASSERT_NE(one, nullptr);
  EXPECT_EQ(kit::data_of(second), "0 for 0");
  lua_State* const other = qk_mem_lua_newstate(second);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(qk_mem_size(first), static_cast<std::size_t>(lua_gc(one, LUA_GCCOUNT, 0)) * 1024 +
                                    static_cast<std::size_t>(lua_gc(one, LUA_GCCOUNTB, 0)));
  EXPECT_EQ(qk_mem_size(first), qk_mem_size(second));
  lua_close(one);
  EXPECT_EQ(kit::data_of(first), "0 for 0");
  lua_close(other);
  EXPECT_EQ(kit::data_of(second), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

TEST(LuaAdapter, SaysWhatLuaAllocates) {
  EXPECT_STREQ(qk_mem_lua_place(LUA_TSTRING), "lua.h(string)");
  EXPECT_STREQ(qk_mem_lua_place(LUA_TTABLE), "lua.h(table)");
  EXPECT_STREQ(qk_mem_lua_place(LUA_TFUNCTION), "lua.h(function)");
  EXPECT_STREQ(qk_mem_lua_place(LUA_TUSERDATA), "lua.h(userdata)");
  EXPECT_STREQ(qk_mem_lua_place(LUA_TTHREAD), "lua.h(thread)");
  EXPECT_STREQ(qk_mem_lua_place(0), "lua.h(other)");
  EXPECT_STREQ(qk_mem_lua_place(1000), "lua.h(other)");
}

TEST(LuaAdapter, ShowsObjectsByTheirTypes) {
  const kit::Scene scene("TRACE");
  const kit::Pool pool;
  lua_State* const state = qk_mem_lua_newstate(pool);
  ASSERT_NE(state, nullptr);
  qk_mem_baseline("");
  lua_newtable(state);
  lua_newuserdata(state, 100);
  const std::string rows = kit::dump("", QK_MEM_DUMP_POINTERS | QK_MEM_DUMP_GROWTH);
  EXPECT_NE(rows.find(" lua.h(table):"), std::string::npos) << rows;
  EXPECT_NE(rows.find(" lua.h(userdata):"), std::string::npos) << rows;
  EXPECT_EQ(rows.find(" lua.h(thread):"), std::string::npos) << rows;
  lua_close(state);
}

TEST(LuaAdapter, AllocatesAsLuaWantsIt) {
  kit::Scene scene("EXCEPTIONS");
  const kit::Pool pool;
  scene.skip_log();
  void* const data = qk_mem_lua_data(pool);
  EXPECT_EQ(qk_mem_lua_alloc(data, nullptr, LUA_TTABLE, 0), nullptr);
  auto* block = static_cast<char*>(qk_mem_lua_alloc(data, nullptr, LUA_TSTRING, 10));
  ASSERT_NE(block, nullptr);
  block[9] = 'x';
  block = static_cast<char*>(qk_mem_lua_alloc(data, block, 10, 5000));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block[9], 'x');
  EXPECT_EQ(kit::data_of(pool), "1 for 5000");
  EXPECT_EQ(qk_mem_lua_alloc(data, block, 5000, 0), nullptr);
  EXPECT_EQ(kit::data_of(pool), "0 for 0");
  EXPECT_EQ(scene.log(), "");
}

TEST(LuaAdapter, KeepsABlockThatCannotShrink) {
  const kit::Scene scene;
  const kit::Pool pool;
  void* const data = qk_mem_lua_data(pool);
  void* const block = qk_mem_lua_alloc(data, nullptr, 0, 100);
  kit::fail_all_requests();
  const void* const smaller = qk_mem_lua_alloc(data, block, 100, 10);
  const void* const larger = qk_mem_lua_alloc(data, block, 100, 200);
  kit::let_succeed();
  EXPECT_EQ(smaller, block);
  EXPECT_EQ(larger, nullptr);
  EXPECT_EQ(kit::data_of(pool), "1 for 100");
  qk_mem_lua_alloc(data, block, 100, 0);
}

}  // namespace

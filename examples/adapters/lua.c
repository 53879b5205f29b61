/* A shop whose rules are in Lua. A global table keeps each order that the rules have seen. */
/* usage: adapters_lua [fixed] */
#include "qkmem/adapters/lua.h"

#include <lauxlib.h>
#include <lualib.h>
#include <stdio.h>
#include <string.h>

#include "qkmem/profile.h"

static const char rules[] =
    "seen = {}\n"
    "function price(number)\n"
    "  local order = {number = number, name = 'order ' .. number}\n"
    "  if keeps_orders then seen[number] = order end\n"
    "  return 3 * order.number\n"
    "end\n";

/* Returns the sum of the prices, or -1 if the rules have failed. */
static lua_Integer take_orders(lua_State* state, int first, int last) {
  lua_Integer sum = 0;
  for (int number = first; number <= last; ++number) {
    lua_getglobal(state, "price");
    lua_pushinteger(state, number);
    if (lua_pcall(state, 1, 1, 0) != LUA_OK) return -1;
    sum += lua_tointeger(state, -1);
    lua_pop(state, 1);
  }
  lua_gc(state, LUA_GCCOLLECT, 0);
  return sum;
}

int main(int argc, char** argv) {
  const int is_fixed = argc > 1 && strcmp(argv[1], "fixed") == 0;
  lua_State* const state = qk_mem_lua_newstate(qk_mem_new_handle("DATA", "LU"));
  if (state == NULL) return 1;
  luaL_openlibs(state);
  lua_pushboolean(state, !is_fixed);
  lua_setglobal(state, "keeps_orders");
  if (luaL_dostring(state, rules) != LUA_OK) return 1;
  take_orders(state, 1, 100);
  qk_mem_snapshot("warm");
  printf("%lld\n", (long long)take_orders(state, 101, 1100));
  qk_mem_profile_report(stdout, "SINCE=warm");
  lua_close(state);
  return 0;
}

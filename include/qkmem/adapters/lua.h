/**
 * Puts the memory of a Lua state on a handle:
 *
 *   lua_State* state = qk_mem_lua_newstate(qk_mem_new_handle("DATA", "LU"));
 *
 * For C11, C++17 and later, and Lua 5.2 to 5.4. The conventions of qkmem/qkmem.h hold here too.
 *
 * Order. Create the state with it. A state of another allocator has blocks that the handle doesn't
 * know: don't give it qk_mem_lua_alloc() by lua_setallocf().
 *
 * Handle. An ordinary one. Each state can have its own, and several can share one. A state and its
 * coroutines are used by one thread at a time, so that MULTITHREADED is needed only where states of
 * several threads share the handle. With 0, a number without a handle, or a block-managed handle,
 * there is no state.
 *
 * End. lua_close() gives all memory of the state back. Until then unreachable objects are on the
 * handle too: lua_gc(state, LUA_GCCOLLECT, 0) before a snapshot or a report leaves what is in use.
 * Don't delete the handle before lua_close().
 *
 * Records. The site names what Lua has allocated, as far as Lua says so: lua.h(string),
 * lua.h(table), lua.h(function), lua.h(userdata) and lua.h(thread) for objects, lua.h(other) for
 * parts of them, such as the first slots of a table, and lua.h(resized) for what has grown or
 * shrunk since, such as the slots of a large table. Labels (qk_mem_push_site()) or
 * QK_MEM_PROFILE="STACKS SKIP=liblua" tell who called. Blocks are aligned to 16 bytes.
 */
#ifndef QKMEM_ADAPTERS_LUA_H_
#define QKMEM_ADAPTERS_LUA_H_

#include <stddef.h>
#include <stdint.h>

#include "qkmem/adapters/adapter.h"
#include "qkmem/qkmem.h"

#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
extern "C" {
#endif

/* It has no extern "C" of its own. */
#include <lua.h>

/** Stands for the file of what Lua creates. `type` is the argument osize for a new block. */
static inline const char* qk_mem_lua_place(size_t type) {
  switch (type) {
    case LUA_TSTRING:
      return "lua.h(string)";
    case LUA_TTABLE:
      return "lua.h(table)";
    case LUA_TFUNCTION:
      return "lua.h(function)";
    case LUA_TUSERDATA:
      return "lua.h(userdata)";
    case LUA_TTHREAD:
      return "lua.h(thread)";
    default:
      return "lua.h(other)";
  }
}

/** Returns the argument `ud` that qk_mem_lua_alloc() needs for a handle. */
static inline void* qk_mem_lua_data(int hid) { return (void*)(intptr_t)hid; }

/**
 * A lua_Alloc for lua_newstate() and the like, with qk_mem_lua_data(hid) as its data. As Lua wants
 * it, 0 bytes free the block, a free of null does nothing, and shrinking never fails.
 */
static inline void* qk_mem_lua_alloc(void* data, void* block, size_t old_size, size_t size) {
  const int hid = (int)(intptr_t)data;
  if (size == 0) {
    if (block != NULL) qk_mem_ifree(hid, block, "lua.h(free)", __LINE__);
    return NULL;
  }
  if (block == NULL) {
    return qk_mem_imalloc(hid, size, QK_MEM_ADAPTER_ALIGNMENT, qk_mem_lua_place(old_size),
                          __LINE__);
  }
  void* const resized =
      qk_mem_irealloc(hid, block, size, QK_MEM_ADAPTER_ALIGNMENT, "lua.h(resized)", __LINE__);
  return resized == NULL && size <= old_size ? block : resized;
}

/**
 * Creates a Lua state on a handle, see above. It has no libraries yet (luaL_openlibs()), and,
 * unlike one of luaL_newstate(), no panic function: without lua_atpanic(), an error outside of all
 * protected calls ends the program without a message.
 *
 * @return the state, which the caller gives back by lua_close(). Null if there is no memory, or if
 *         the handle can't serve Lua: qk_mem_error() is 5566 if there is no such handle.
 */
static inline lua_State* qk_mem_ilua_newstate(int hid, const char* file, int line) {
  if (qk_mem_frees_singly(hid, file, line) == 0) return NULL;
  return lua_newstate(qk_mem_lua_alloc, qk_mem_lua_data(hid));
}

#ifdef __cplusplus
} /* extern "C" */
#pragma GCC diagnostic pop
#endif

#define qk_mem_lua_newstate(hid) qk_mem_ilua_newstate((hid), __FILE__, __LINE__)

#endif /* QKMEM_ADAPTERS_LUA_H_ */

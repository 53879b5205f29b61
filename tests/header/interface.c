/* The public header as a C program uses it: every function and macro that needs no C++ type. */
#include <string.h>

#include "qkmem/qkmem.h"
#include "tests/header/expect.h"

static void allocate(void) {
  const int hid = qk_mem_new_handle("DATA", "ch");
  char* text = qk_mem_strdup(hid, "text");
  int* numbers = qk_mem_calloc(hid, 2, sizeof *numbers);
  numbers = qk_mem_recalloc(hid, numbers, 4, sizeof *numbers, 2);
  void* block = qk_mem_malloc(hid, 10);
  block = qk_mem_realloc(hid, block, 20);
  expect(strcmp(text, "text") == 0, "a string is copied");
  expect(numbers[3] == 0, "added elements are zeroed");
  expect(qk_mem_size(hid) == 5 + 4 * sizeof *numbers + 20, "sizes are summed");
  expect(qk_mem_tag_size("CH") == (int64_t)qk_mem_size(hid), "a tag sums its handles");
  expect(qk_mem_is_recorded(hid, block, __FILE__, __LINE__) == 1, "a pointer is recorded");
  qk_mem_free(hid, text);
  qk_mem_free(hid, numbers);
  qk_mem_free(hid, block);
  expect(qk_mem_size(hid) == 0, "frees are summed");
  expect(qk_mem_del_handle(hid) == 0, "a handle is deleted");
  expect(qk_mem_malloc(hid, 1) == NULL && qk_mem_error() == QK_MEM_ERROR_HANDLE,
         "an invalid handle is refused");
}

static void tell_sizes_to_the_compiler(void) {
#if defined(__OPTIMIZE__)
  const int hid = qk_mem_new_handle("BLOCKMGMT BLOCKFREE", NULL);
  void* block = qk_mem_malloc(hid, 10);
  expect(__builtin_object_size(block, 0) == 10, "malloc tells its size");
  void* zeroed = qk_mem_calloc(hid, 3, 8);
  expect(__builtin_object_size(zeroed, 0) == 24, "calloc tells its product");
  block = qk_mem_realloc(hid, block, 20);
  expect(__builtin_object_size(block, 0) == 20, "realloc tells its new size");
  zeroed = qk_mem_recalloc(hid, zeroed, 5, 8, 3);
  expect(__builtin_object_size(zeroed, 0) == 40, "recalloc tells its new product");
  void* none = qk_mem_malloc(hid, 0);
  void* next = qk_mem_malloc(hid, 8);
  expect(none == next, "a piece of 0 bytes can have the address of the next one");
  qk_mem_del_handle(hid);
#endif
}

static void allocate_in_blocks(void) {
  const int hid = qk_mem_new_handle("BLOCKMGMT", NULL);
  void* array = NULL;
  expect(qk_mem_malloc(hid, 100) != NULL, "a piece is handed out");
  expect(qk_mem_frees_singly(hid, __FILE__, __LINE__) == 0, "pieces are not freed one by one");
  expect(qk_mem_clear_handle(hid) == 0, "a handle is cleared");
  expect(qk_mem_marralloc(hid, &array, 8, 4) == 0, "an array begins with element 0");
  qk_mem_arrfree(hid, &array);
  expect(array == NULL, "the caller's pointer is reset");
  qk_mem_del_handle(hid);
}

static void register_memory(void) {
  const int hid = qk_mem_new_handle(NULL, NULL);
  char memory[8];
  qk_mem_register(hid, QK_MEM_EXTERNAL, memory, sizeof memory);
  expect(qk_mem_size(hid) == sizeof memory, "registered memory is summed");
  qk_mem_deregister(hid, QK_MEM_EXTERNAL, memory);
  expect(qk_mem_size(hid) == 0, "and deregistered again");
  qk_mem_del_handle(hid);
}

static void query(void) {
  long answer = -1;
  qk_mem_init();
  expect(qk_mem_info("CURRENT_ALLOC", "", &answer) == 0 && answer == 0, "a query is answered");
  expect(qk_mem_baseline("") == -1, "a baseline needs a configuration");
  expect(qk_mem_debug_on() == 0, "nothing is switched on");
  expect(qk_heapsize() >= 0, "the heap has a size");
  qk_mallinfo();
  qk_mem_dump(NULL, "", QK_MEM_DUMP_SUMMARY);
}

static void compare_versions(void) {
  expect(strcmp(qk_mem_version(), QK_MEM_VERSION) == 0, "the library has the headers' version");
}

int main(void) {
  allocate();
  tell_sizes_to_the_compiler();
  allocate_in_blocks();
  register_memory();
  query();
  compare_versions();
  return failures;
}

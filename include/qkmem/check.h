/**
 * The checks of qkmem: guards around blocks, fillings, and a quarantine of released blocks, by which
 * it finds writes outside of memory and to memory that was released, and says who allocated and who
 * released it.
 *
 * They stand beside the records, logs and reports of qkmem/qkmem.h, and the profile of
 * qkmem/profile.h. While they are off they cost nothing.
 *
 * The environment variable QK_MEM_CHECK switches them on in a program that is already built:
 *
 *   QK_MEM_CHECK="GUARD FILL QUARANTINE" ./program
 *
 * The conventions of qkmem/qkmem.h hold here too.
 */
#ifndef QKMEM_CHECK_H_
#define QKMEM_CHECK_H_

#include <stddef.h>
#include <stdint.h>

/* A pointer can lead to memory that has no value yet. clang doesn't look at that. */
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 11
#define QK_MEM_NOT_READ(parameter) __attribute__((access(none, parameter)))
#else
#define QK_MEM_NOT_READ(parameter)
#endif

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Switches the checks on, or changes them. Blocks that are allocated from then on are checked; of
 * blocks from before, of registered memory, and of memory of others nothing is expected.
 *
 * Each finding is told once, at once, and again in the report at the end of the process, with how
 * often it happened. A release that is known to be wrong, such as that of a block that was released
 * already, is told, and is not passed on to the system's allocator; a realloc of that kind returns
 * null with code 5022. The program goes on.
 *
 * @param options  keywords, separated as in other option strings, of any length:
 *                 GUARD[=bytes]    bytes behind each block that are looked at, 16 unless given, a
 *                                  multiple of 16 up to 4096; a number between is rounded up. The
 *                                  address of a block stays the allocator's. Pieces of blocks of
 *                                  block-managed handles have guards too, which are part of the
 *                                  bytes of the block that are used. The first size stays
 *                 GUARD=bytes,FRONT  or GUARD=FRONT: guards in front of blocks as well. Only calls
 *                                  of the library can then release a block: the C library's free()
 *                                  crashes on its address. Pieces have none in front
 *                 FILL             new memory has 0xA5 in each byte, but not that of calloc;
 *                                  released memory has 0x5A
 *                 QUARANTINE[=bytes]  released blocks stay out of use until others of so many bytes
 *                                  were released after them, 16M unless given, with K, M or G for
 *                                  the powers of 1,024. They are filled with 0x5A, and looked at
 *                                  when they leave. A larger block, and pieces, don't come there;
 *                                  realloc moves each block. Before an allocation fails, all leave
 *                 SCAN=events      look at everything after so many events, see qk_mem_check().
 *                                  Without it a release looks at its own block, and at others in the
 *                                  same page; clear and deletion look at their handle, and the end
 *                                  of the process at everything
 *                 HISTORY=blocks   remember the blocks that were released last, as of the profile:
 *                                  the larger of both numbers counts
 *                 ABORT            write the report and end the process by SIGABRT at the first
 *                                  finding
 *                 BREAK=event      raise SIGTRAP at the event of that number, for a debugger.
 *                                  Numbers of events are in the findings
 *                 FINDINGS=FAIL    let a process that would end with code 0 end with 23 if there
 *                                  are findings; FINDINGS=FAIL=code with another one
 *                 REPORT=name      where findings go, as of the profile, whose reports go there too
 *                 Null or an empty string switch the checks off: new blocks have no guards, and the
 *                 quarantine is emptied. Guards of live blocks are still looked at.
 *
 * @return 0; 10041 to 10044 for a mistake in the form of a keyword, 5022 for a value that is not
 *         understood: it is named on standard error, and the rest is used. 5012 if there is no
 *         memory. Also the error code of the thread.
 *
 * Any thread can call it. From within a callback of the allocator it must not be called.
 */
int qk_mem_check_config(const char* options);

/**
 * Looks at the guards of all live blocks of a handle, or of all handles, and then also at the blocks
 * in quarantine. Damage that was not told before is told.
 *
 * @param hid  the handle, which the calling thread may use; 0 for all. While the process has other
 *             threads, that leaves out handles without MULTITHREADED, which one of them can be using.
 * @return the blocks that are damaged now; -1 with code 5566 if there is no such handle, and with
 *         5061 if the checks were never on.
 *
 * Takes some 20 to 50 ns for each block. Any thread can call it; the others wait for the locks of
 * handles meanwhile.
 */
int64_t qk_mem_check(int hid);

/**
 * Says in words what an address is: a live block of a handle, an address inside one, past its end or
 * in front of it, a block that was freed, the library's own memory, a stack, static data, or
 * nothing of these. For instance
 * "24 bytes inside a block of 40 on handle 3 SE, allocated at a.c:7 (event 120)".
 *
 * @param pointer  any address, also one that is no memory; the library doesn't read what is there.
 * @param buffer   gets one line without a newline, terminated, and cut to what fits. Null if size
 *                 is 0.
 * @param size     bytes of the buffer; if it is 0, nothing is written.
 * @return how long the whole text is, without its terminator: if that is not less than size, the
 *         buffer has only a part of it. At most 1,022.
 *
 * What was freed, and the number of the event, is known while the profile is on, see
 * qkmem/profile.h; records of handles are known without it. A block is near up to 4,095 bytes away.
 * Of the data handle's memory there are no records unless there are reports or the profile is on.
 *
 * Looks at all records, so it takes longer the more there are. Takes nothing from the heap, never
 * fails, and leaves errno and the thread's error code as they are. Doesn't start the library up.
 * Any thread; not in a signal handler.
 *
 *   char words[200];
 *   qk_mem_describe(words, words, sizeof words);
 *   puts(words);
 */
size_t qk_mem_describe(const void* pointer, char* buffer, size_t size) QK_MEM_NOT_READ(1);

#ifdef __cplusplus
} /* extern "C" */
#endif

#pragma GCC visibility pop

#endif /* QKMEM_CHECK_H_ */

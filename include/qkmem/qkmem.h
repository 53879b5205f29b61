/**
 * qkmem accounts for memory and finds its misuse inside a running 64-bit Linux program.
 *
 * Memory is allocated on handles, which are numbered pools, and each call passes its location in
 * the source. The library keeps a record of each live pointer of a handle, and totals per handle
 * and per tag. It warns of misuse, such as the free of an unknown pointer. It writes a log, a trace
 * file and reports. Environment variables switch these on in a program that is already built:
 *
 *   QK_MEM_DEBUG    which routines are watched and where the log is, see qk_mem_debug_config()
 *   QK_MEM_OPTIONS  heap sizes in the log, and the trace file, see qk_mem_options()
 *   QK_MEM_DUMP     the sections of the report, see qk_mem_dump_config()
 *   QK_MEM_PROFILE  memory by the places that allocate it, see qkmem/profile.h
 *
 * Conventions. They hold for every function unless its comment says otherwise.
 *
 * (1) Language. C11, C++17 and later. What needs a C++ type is declared in C++ only. C programs
 *     configure the library through the environment, or by the calls that need none.
 *
 * (2) Location. `file` and `line` are the caller's location in the source. The macros at the end of
 *     qkmem.h pass `__FILE__` and `__LINE__`. The library keeps the pointer `file` and doesn't copy
 *     the string, which must live as long as the program, as string literals do. Null is shown as
 *     "(null)". Log and reports show `file` without its directories. A record keeps the low 16 bits
 *     of `line`: a report shows line 70000 as 4464.
 *
 * (3) Handles. `hid` is the number of a handle: 1 or greater. A number without a handle fails with
 *     code 5566, and nothing is allocated or freed. Handles created without BLOCKMGMT are called
 *     ordinary. They allocate with malloc().
 *
 * (4) Sizes. They are in bytes.
 *
 * (5) Errors. Nothing throws. A function that fails stores a code for the calling thread, which
 *     qk_mem_error() returns. The code is a QK_MEM_ERROR_ constant, or 5000 plus an errno value:
 *     5012 when memory runs out, 5014 for a null address, 5022 for an invalid number. A function
 *     with a `status` stores the code there instead. Success doesn't reset the thread's code.
 *
 * (6) Option strings. Keywords are separated by blanks, tabs or commas, and match in either case.
 *     If one is repeated, the last one counts. The value in KEYWORD=value ends at the next blank or
 *     tab, NOT at a comma: in "BLOCKSIZE=4096,BLOCKFREE" the value is "4096,BLOCKFREE". A value
 *     that contains blanks is put between ' or ". Numbers are read as atoi() reads them, so "4k" is
 *     4 and "abc" is 0. A string has at most 256 characters. It is copied and never modified.
 *
 * (7) Threads. Any thread can call any function. Several threads can use one handle at the same
 *     time only if it was created MULTITHREADED. Without that its records are damaged, and correct
 *     frees produce the warnings of a double free ("ptr not found"). A handle must not be in use
 *     while another thread deletes it. No function is a cancellation point, but destructors that it
 *     runs can be. Threads with asynchronous cancelability can't call the library.
 *
 * (8) Start-up. The first call starts the library up: it reads the environment, creates the two
 *     standing handles, and registers the handlers for exit and signals. A call from another
 *     thread waits meanwhile. These functions don't start it up: qk_mem_error(), qk_mem_tag_size(),
 *     qk_heapsize(), qk_mem_debug_config(), qk_mem_debug_settings(), qk_mem_dump_config(), their
 *     forms for C, qk_mem_version(), and the functions under "Bookkeeping". A start-up that fails is
 *     not repeated.
 *     The environment is ignored in a process with raised privileges (secure_getenv()). Each
 *     variable but QK_MEM_PROFILE is cut to 256 characters. A mistake in QK_MEM_DEBUG or
 *     QK_MEM_DUMP doesn't fail the start-up. It is logged if QK_MEM_DEBUG has opened a log. An
 *     unknown keyword in QK_MEM_DEBUG leaves everything off and opens no log, so nothing shows it.
 *     A mistake in QK_MEM_OPTIONS ends the start-up, and no line shows it. There are then no
 *     standing handles (the program's first two handles get their numbers), no report at the end,
 *     no AUTOFREE, and no handlers for signals. The signs are qk_mem_error(), 10041 to
 *     10044 after the first call, and a first handle with number 1 instead of 3.
 *
 * (9) Log. Warnings, errors and trace lines are written to the log if the switches of the routine
 *     ask for them; "warns" means that. A longer line is cut to 1023 characters. A log file
 *     is buffered unless FLUSH is set: a program that crashes or is killed loses the last lines.
 *     LOG=STDERR loses none. A log file is emptied when it is opened, unless another copy of the
 *     library in the same process has it open. If another process has it open, such as a program
 *     that started this one and whose QK_MEM_DEBUG it inherits, the lines so far are lost: use
 *     APPEND. Every line goes to the end of the file. With LOG=STDERR or LOG=STDOUT, a thread must
 *     not call the library while it holds that stream's lock (flockfile()): another thread can wait
 *     for the stream, to write a line, with a lock of the library that the call needs.
 *
 * (10) End. After main() or exit(), and on HUP, INT, QUIT and TERM if they had their default action
 *     at start-up, the library deletes the AUTOFREE handles, writes the report if SUMMARY or
 *     CTRLBLKS is set, and closes log and trace file. While other threads run, the deletion of the
 *     AUTOFREE handles is only shown: their memory stays, and their objects are not destroyed. A
 *     fault, such as SEGV or ABRT, writes one line at most. _exit() and KILL write nothing. Calls
 *     after that, from static destructors for instance, fail with 5566 for handles that existed
 *     before.
 */
#ifndef QKMEM_QKMEM_H_
#define QKMEM_QKMEM_H_

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
#include <cstddef>
#include <typeinfo>

#include "qkmem/status.h"
#endif

#include "qkmem/version.h"

#pragma GCC visibility push(default)

/*
 * Tells compilers which arguments are the bytes of the result. They know nothing else of it. It is
 * not `malloc`, because a piece of 0 bytes can have the address of the next piece. It is not
 * `alloc_align`, because ordinary handles ignore the alignment. It can be ignored, because the
 * memory belongs to its handle.
 */
#define QK_MEM_BYTES_IN(...) __attribute__((alloc_size(__VA_ARGS__)))

/* Opaque records of the library. */
struct qk_mem_handle;
struct qk_mem_debug;

#ifdef __cplusplus
namespace qk {
class MemTracker;
}

extern "C" {
#endif

/** The two standing handles, which start-up creates. */
enum {
  /** Accounts for the array of handles. Programs neither allocate on it nor delete it. */
  QK_MEM_OVERHEAD_HANDLE = 1,
  /**
   * The data handle, for memory that needs no pool of its own. It can't be deleted. With nothing
   * configured, allocations and frees on it are passed to the system's allocator and not recorded.
   * It records pointers only if a switch of qk_mem_debug_config() was on at start-up and still is.
   */
  QK_MEM_DATA_HANDLE = 2
};

/**
 * Error codes, see (5). Option strings fail with four more, which have no constant: 10041 unknown
 * keyword, 10042 a value that is not allowed, 10043 a value that is missing, 10044 an open quote.
 */
enum {
  QK_MEM_ERROR_HANDLE = 5566,           /**< no such handle, or the wrong type of handle */
  QK_MEM_ERROR_NULL_OPTIONS = 10036,    /**< the option string is null */
  QK_MEM_ERROR_LONG_OPTIONS = 10037,    /**< the option string is longer than 256 characters */
  QK_MEM_ERROR_ROUTINE = 10040,         /**< a list names a routine that doesn't exist */
  QK_MEM_ERROR_NULL_STATUS = 10047,     /**< the status pointer is null */
  QK_MEM_ERROR_NOT_FIRST = 10048,       /**< "not" in a list, but not as its first word */
  QK_MEM_ERROR_OPTIONS = 11102,         /**< invalid options of a handle, filter or query */
  QK_MEM_ERROR_FILTER_TAG = 11103,      /**< the tag of a filter is longer than two characters */
  QK_MEM_ERROR_OFF_WITH_OTHERS = 11104, /**< OFF together with another switch */
  QK_MEM_ERROR_TAG = 11110,             /**< tag longer than two characters, or a 33rd tag */
  QK_MEM_ERROR_HEAP_FILTER = 11112      /**< a query about the heap together with a filter */
};

/** Sections of the report of qk_mem_dump(), to be combined with |. */
enum {
  QK_MEM_DUMP_SUMMARY = 0x001,    /**< totals per category and tag */
  QK_MEM_DUMP_HEAPSIZE = 0x002,   /**< the heap's size in one line, unless SUMMARY is set */
  QK_MEM_DUMP_HANDLES = 0x004,    /**< a row for each handle */
  QK_MEM_DUMP_MGMT = 0x008,       /**< a row for each record of the library's bookkeeping */
  QK_MEM_DUMP_BLOCKS = 0x010,     /**< a row for each block of block-managed handles */
  QK_MEM_DUMP_POINTERS = 0x020,   /**< a row for each live pointer */
  QK_MEM_DUMP_COMPARISON = 0x040, /**< baseline, now and growth in a table, instead of the others */
  QK_MEM_DUMP_GROWTH = 0x080,     /**< limits the four kinds of rows to what is new */
  QK_MEM_DUMP_TERSE = 0x100       /**< with GROWTH: prints nothing if nothing is new */
};

/** Other constants. */
enum {
  /** Alignment in bytes that the macros below pass: enough for every fundamental type. */
  QK_MEM_ALIGNMENT = 16,
  /** Size in bytes of the buffer that qk_mem_debug_settings() fills. */
  QK_MEM_SETTINGS_SIZE = 4096
};

/* ---- Start-up and errors ------------------------------------------------------------------- */

/**
 * Starts the library up, see (8). Other functions do so themselves, so this call only chooses the
 * moment. Later calls do nothing. On failure it stores a code, see (5).
 */
void qk_mem_init(void);

/**
 * Returns the last error code of the calling thread: 0 if no call of it has failed. A success
 * doesn't reset the code.
 */
int qk_mem_error(void);

/* ---- Handles and tags ---------------------------------------------------------------------- */

/**
 * Creates a handle.
 *
 * @param options  an option string, see (6); null and "" mean DATA.
 *                 DATA           a handle for the program's data (the default)
 *                 OVERHEAD       a handle for bookkeeping, which reports list apart; wins over DATA
 *                 AUTOFREE       deleted with its contents at the end of the program, see (10)
 *                 MULTITHREADED  several threads can use it at the same time
 *                 BLOCKMGMT      block-managed: allocates blocks of BLOCKSIZE bytes, each with a
 *                                header of 32 bytes, and serves requests with consecutive pieces of
 *                                them. A piece that fits no block gets a new one, large enough for
 *                                it. All pieces are released together by qk_mem_iclear_handle() or
 *                                deletion. The handle is charged for its blocks. Pieces aren't
 *                                recorded unless BLOCKFREE is set or DEBUG is on at creation
 *                 BLOCKSIZE=n    size of a block without its header, 2048 by default. A negative n
 *                                fails with 5012
 *                 BLOCKINITIAL=n blocks allocated at creation, 1 by default; none if n is below 1
 *                 BLOCKFREE      pieces are recorded and can be freed and resized one by one. Only
 *                                space at either end of the live part of a block can be used again
 *                                before the handle is cleared
 *                 The last three have no effect without BLOCKMGMT. D, O, A and B, and any longer
 *                 start of the word, mean DATA, OVERHEAD, AUTOFREE and BLOCKMGMT.
 * @param tag      one or two characters under which reports sum up this and other handles,
 *                 converted to upper case. Null or "": no tag. A process has at most 32 different
 *                 tags; a tag is never removed.
 * @return the lowest free number, or 0 with a code: 11102 for bad options (the log line shows why),
 *         11110 for a tag that is too long or too many, 5566 if the array of handles couldn't grow
 *         at an earlier creation, or the system allocator's code.
 *
 * The caller owns the handle until qk_mem_idel_handle().
 *
 *   int people = qk_mem_new_handle("MULTITHREADED", "PE");
 *   char* name = qk_mem_strdup(people, "Ada");
 *   if (name != NULL) puts(name);
 *   qk_mem_del_handle(people);  // frees the name, too
 */
int qk_mem_inew_handle(const char* options, const char* tag, const char* file, int line);

/**
 * Deletes a handle and releases everything recorded on it. Allocated and registered memory is
 * freed. Registered objects and arrays are destroyed through their trackers. Blocks are freed with
 * their pieces. Memory with two records is released once. A new handle can then get the number.
 *
 * Nothing warns of what was still live; DEBUG=qk_mem_idel_handle logs each record that is released.
 * Memory that has no record, because there was no memory for one, is not released.
 *
 * The destructor of an object can release what the object owns on the handle by qk_mem_ifree() and
 * qk_mem_ideregister(). If the deletion was first, these do nothing, and qk_mem_irealloc() returns
 * null unless the memory is still there. What the destructor releases in another way, with free()
 * or delete, it must ask for: see qk_mem_is_recorded() and qk_mem_may_destroy(). Memory of an
 * ordinary handle stays readable until the last object is destroyed, unless the trace file or
 * HEAPSIZE is on and no container of qkmem.hpp has used the handle.
 *
 * @return 0, or 5566 for the data handle and for a number without a handle.
 *
 * Threads: no other thread uses the handle meanwhile. Takes time proportional to the records.
 */
int qk_mem_idel_handle(int hid, const char* file, int line);

/**
 * Empties a block-managed handle. All pieces become invalid, registered memory is freed, and
 * registered objects and arrays are destroyed through their trackers. The blocks stay with the
 * handle, empty, and it remains charged for them. Destructors can release what they own, as in a
 * deletion.
 *
 *   int words = qk_mem_new_handle("BLOCKMGMT", NULL);
 *   qk_mem_strdup(words, "first");
 *   qk_mem_clear_handle(words);  // the word is gone, and its block serves the next ones
 *
 * @return 0, or 5566 for a number without a handle and for an ordinary handle.
 *
 * Threads: no other thread allocates on the handle meanwhile. Takes time proportional to the
 * blocks, and to the records if pieces are recorded.
 */
int qk_mem_iclear_handle(int hid, const char* file, int line);

/**
 * Returns the bytes of data on all handles that have a tag: the sum of their qk_mem_isize().
 *
 * @param name  one or two characters, in either case.
 * @return the bytes; 0 for a null, empty, longer or unknown name. Never fails.
 */
int64_t qk_mem_tag_size(const char* name);

/**
 * Returns the bytes of data on a handle. On an ordinary handle these are the bytes of its recorded
 * memory. On a block-managed handle they are its blocks with their headers, and what is registered.
 * Bookkeeping isn't included.
 *
 * @return the bytes, or (size_t)-1 with code 5566 for a number without a handle.
 */
size_t qk_mem_isize(int hid, const char* file, int line);

/**
 * Returns 1 if a handle has a record of an address, else 0.
 *
 * The data handle records nothing while nothing is configured. A block-managed handle records its
 * pieces only with BLOCKFREE, or if it was created under DEBUG.
 *
 * @param ptr  an address. It isn't read; only the first byte of memory has a record.
 * @return 1 or 0; 0 also for null, and for a number without a handle (code 5566).
 */
int qk_mem_is_recorded(int hid, const void* ptr, const char* file, int line);

/**
 * Returns 1 if memory of a handle can be freed piece by piece, else 0.
 *
 * @return 1 or 0; 0 for a block-managed handle without BLOCKFREE, and for a number without a handle
 *         (code 5566).
 */
int qk_mem_frees_singly(int hid, const char* file, int line);

/**
 * Returns the generation of a handle: a number above 0 that no other handle of the process has had,
 * as long as fewer than 2^32 are created. With it qk_mem_is_current() can tell a handle from a
 * later one with the same number.
 *
 * @return the generation; 0, without a code, for a number without a handle.
 */
uint32_t qk_mem_generation(int hid);

/** The calls that qk_mem_is_current() is asked for. */
enum {
  QK_MEM_CALL_DEL_HANDLE = 0,
  QK_MEM_CALL_CLEAR_HANDLE = 1,
  QK_MEM_CALL_MALLOC = 2, /**< for a container, which the handle then knows of */
  QK_MEM_CALL_FREE = 3,
  QK_MEM_CALL_REGISTER = 4,
  QK_MEM_CALL_DEREGISTER = 5
};

/**
 * Returns 1 if a number still belongs to the handle of a generation. For code that keeps a handle's
 * number and can outlive the handle: the classes of qkmem.hpp ask before each call.
 *
 * @param generation  as qk_mem_generation() returned it. 0 is not checked: the result is 1.
 * @param call        the call that was meant, a QK_MEM_CALL_ constant. Other numbers act as
 *                    QK_MEM_CALL_DEL_HANDLE.
 * @return 1. Otherwise 0 with code 5566, and an error line like one of the call that was meant,
 *         under its switches; the call must not be made then.
 *
 * Threads: the answer holds as long as no other thread deletes the handle.
 */
int qk_mem_is_current(int hid, uint32_t generation, int call, const char* file, int line);

/**
 * Returns 1 if an object, or array, that was registered on a handle is still its owner's to
 * destroy, else 0. For owners that destroy objects themselves, as qk::unique does. An owner that is
 * on the same handle can be destroyed by the handle's deletion, or clear, after what it owns.
 *
 * @param generation  as in qk_mem_is_current().
 * @param object      the object or a base of it. It isn't read.
 * @return 1 or 0. The first call for an object that the handle has destroyed returns 0; by a second
 *         one the address can be that of another object. If the handle is gone, as
 *         qk_mem_is_current() for QK_MEM_CALL_DEREGISTER.
 */
int qk_mem_may_destroy(int hid, uint32_t generation, const void* object, const char* file,
                       int line);

/**
 * Tells in words what a handle still holds, for an owner that will delete it next: qk::Handle does
 * so. It goes where the report of qkmem/profile.h goes, once for each place that makes handles, and
 * that report counts how often. Does nothing while the profile is off, for a handle that is not
 * there or holds nothing, and for those with AUTOFREE or BLOCKMGMT, whose memory is meant to end
 * with them.
 *
 * @param file,line  the place that has made the handle; `file` must stay valid, as with every call.
 *
 * Any thread; no other one may be deleting the handle.
 */
void qk_mem_tell_forgotten(int hid, const char* file, int line);

/* ---- Memory -------------------------------------------------------------------------------- */

/**
 * Allocates memory on a handle. The contents are undefined.
 *
 * @param hid    handle to allocate on.
 * @param size   bytes. 0 is warned about. It returns what malloc(0) returns; on a block-managed
 *               handle an address that the next piece can have too.
 * @param align  in bytes, on block-managed handles: 1, 2, 4, 8 or 16. Other positive numbers are
 *               warned about and align relative to the start of a block only. 0 and less fail with
 *               5022. Ignored on ordinary handles, whose memory is aligned as malloc() aligns it.
 * @return memory that is valid until it is freed, or its handle is cleared or deleted. Null with
 *         code 5566 for a bad `hid`, or with the system allocator's code. If there is memory for
 *         the request but none for its record, the memory is returned without a record, an error
 *         line is logged, and the code is set.
 *
 *   int* years = qk_mem_malloc(pool, 3 * sizeof *years);
 *   if (years == NULL) return;  // qk_mem_error() has the code
 *   years[0] = 1815;
 *   qk_mem_free(pool, years);
 */
void* qk_mem_imalloc(int hid, size_t size, int align, const char* file, int line)
    QK_MEM_BYTES_IN(2);

/**
 * Allocates zeroed memory for `num` elements of `size` bytes on a handle. The record shows both
 * numbers.
 *
 * @param num        number of elements. 0 is warned about.
 * @param size       bytes of an element. 0 is warned about.
 * @param alignment  as in qk_mem_imalloc().
 * @return memory as from qk_mem_imalloc(). A product that overflows fails with 5012.
 *
 *   int* counts = qk_mem_calloc(pool, 12, sizeof *counts);  // all of them 0
 *   qk_mem_free(pool, counts);
 */
void* qk_mem_icalloc(int hid, size_t num, size_t size, int alignment, const char* file, int line)
    QK_MEM_BYTES_IN(2, 3);

/**
 * Changes the size of memory on a handle, or allocates memory if `ptr` is null.
 *
 * On an ordinary handle the contents are kept and the address can change. The data handle with
 * nothing configured calls realloc(). On a block-managed handle with BLOCKFREE a piece that is
 * large enough keeps its address. One that is too small is replaced, and its CONTENTS ARE NOT
 * COPIED. On a block-managed handle without BLOCKFREE only a null `ptr` is served.
 *
 * @param hid        handle that `ptr` was allocated on.
 * @param ptr        null, or memory of that handle. An ordinary handle warns of memory that it has
 *                   no record of, resizes it and leaves it unrecorded.
 * @param size       new size. 0 is warned about and passed to realloc(): glibc frees `ptr` and
 *                   returns null, the record is removed, and an error line is logged. A piece of a
 *                   BLOCKFREE handle stays where it is, with a size of 0.
 * @param alignment  as in qk_mem_imalloc().
 * @return memory as from qk_mem_imalloc(), or null. After a null for a `size` other than 0, `ptr`
 *         is still valid and recorded as before. A block-managed handle returns null WITHOUT a code
 *         for memory that it has no record of, and for any `ptr` but null without BLOCKFREE.
 *
 *   char* longer = qk_mem_realloc(pool, text, 200);
 *   if (longer != NULL) text = longer;  // otherwise `text` is as it was
 */
void* qk_mem_irealloc(int hid, void* ptr, size_t size, int alignment, const char* file, int line)
    QK_MEM_BYTES_IN(3);

/**
 * Resizes an array of `old_num` elements to `num` elements of `size` bytes, and zeroes the elements
 * that were added. Otherwise as qk_mem_irealloc(), under whose name it writes its log lines and
 * whose record it makes: one element of num * size bytes. On a BLOCKFREE handle the old elements
 * aren't copied when the array moves.
 *
 * @param hid        handle that `ptr` was allocated on.
 * @param ptr        the array; null for a new one.
 * @param num        number of elements that it gets.
 * @param size       bytes of an element, the same as before.
 * @param old_num    number of elements that it has; 0 for a null `ptr`.
 * @param alignment  as in qk_mem_imalloc().
 * @return memory as from qk_mem_irealloc(). A product that overflows fails with 5012.
 */
void* qk_mem_irecalloc(int hid, void* ptr, size_t num, size_t size, size_t old_num, int alignment,
                       const char* file, int line) QK_MEM_BYTES_IN(3, 4);

/**
 * Copies a string with its terminator onto a handle. On a block-managed handle the copy isn't
 * aligned.
 *
 * @param str  null is warned about; the result is null, without a code.
 * @return the copy, as from qk_mem_imalloc(). It is the caller's, to be freed by qk_mem_ifree().
 *
 *   char* name = qk_mem_strdup(pool, "Ada");
 *   qk_mem_free(pool, name);
 */
char* qk_mem_istrdup(int hid, const char* str, const char* file, int line);

/**
 * Frees memory of a handle. A number without a handle stores code 5566 and frees nothing. Nothing
 * else fails; misuse is warned about.
 *
 * On an ordinary handle a null `ptr` does nothing. Memory without a record is passed to free() too,
 * so that a double free ends the program as it does without the library. So is the memory of a
 * registered object or array, whose destructor doesn't run.
 *
 * On a block-managed handle registered memory is freed and unknown memory is left alone. A piece is
 * released only with BLOCKFREE; otherwise the call has no effect on it.
 *
 * @param hid  handle that the memory was allocated on.
 * @param ptr  memory of that handle, or null.
 */
void qk_mem_ifree(int hid, void* ptr, const char* file, int line);

/**
 * Adds an element to a growable array and returns its index. The caller holds a pointer to the
 * first element. If it is null, the call creates the array. A full array grows by `block_factor`
 * elements, which can move it and updates `*address`. New elements are zeroed, old ones are kept,
 * on every type of handle.
 *
 * @param hid           handle of the array, the same in every call. A block-managed handle needs
 *                      BLOCKFREE for the array to grow.
 * @param address       address of the caller's pointer, which is null before the first call.
 * @param element_size  bytes of an element, the same in every call.
 * @param block_factor  elements that the array begins with and grows by.
 * @return the index: 0, then 1, 2, …. On failure, which leaves the array unchanged: -1 with code
 *         5014 if `address` is null; -2 with 5022 if `element_size` is 0; -3 with 5022 if
 *         `block_factor` is 0; -2 with the code of qk_mem_icalloc() or qk_mem_irealloc() if memory
 *         runs out or `hid` is bad; -2 without a code on a block-managed handle without BLOCKFREE.
 *
 * The first element is aligned to 16 bytes. A header of 16 bytes precedes it: the record has the
 * address and the bytes of the header with all elements, so free the array with qk_mem_iarrfree().
 * Threads: one thread at a time uses an array.
 *
 *   void* numbers = NULL;
 *   int64_t last = qk_mem_marralloc(pool, &numbers, sizeof(int), 16);
 *   if (last >= 0) ((int*)numbers)[last] = 7;
 *   qk_mem_arrfree(pool, &numbers);
 */
int64_t qk_mem_imarralloc(int hid, void** address, size_t element_size, size_t block_factor,
                          const char* file, int line);

/**
 * Frees a growable array as qk_mem_ifree() does, and sets the caller's pointer to null, also if
 * `hid` is bad and nothing is freed. If the pointer is already null, nothing happens.
 *
 * @param hid      handle of the array.
 * @param address  address of the caller's pointer. Null is warned about and stores code 5014.
 */
void qk_mem_iarrfree(int hid, void** address, const char* file, int line);

/* ---- Memory and objects from elsewhere ------------------------------------------------------ */

/** What is registered. */
enum {
  QK_MEM_EXTERNAL = 0, /**< memory that free() releases */
  QK_MEM_OBJECT = 1,   /**< an object that new created, through its tracker */
  QK_MEM_ARRAY = 2     /**< an array that new[] created, through its tracker */
};

/**
 * Adds memory, or a C++ object, that was not allocated through this library to the accounting of a
 * handle. C++ programs use qkmem.hpp instead.
 *
 * @param type    QK_MEM_EXTERNAL (any other number acts as it), QK_MEM_OBJECT or QK_MEM_ARRAY.
 * @param ptr     for QK_MEM_EXTERNAL the memory, otherwise a qk::MemTracker with the address of the
 *                object or array. The handle takes ownership: its deletion, or clear, frees the
 *                memory with free(), or deletes the tracker, which destroys the object.
 * @param unused  ignored; pass null.
 * @param size    bytes of all of it, as stated by the caller.
 *
 * Null, a tracker with a null address or of type void, and a size of 0 for objects are warned
 * about. A second registration of an address is warned about and recorded; the deletion of the
 * handle releases both once. Don't register a tracker twice: the first deregistration deletes it.
 *
 * Nothing is registered, and the caller keeps the ownership, for null, for a bad `hid` (code 5566),
 * if there is no memory for the record (5012), and on the data handle when it doesn't record.
 * qk_mem_is_recorded() shows it.
 *
 *   void* picture = malloc(4000);
 *   qk_mem_register(pool, QK_MEM_EXTERNAL, picture, 4000);
 *   qk_mem_deregister(pool, QK_MEM_EXTERNAL, picture);  // without it, the handle would free it
 *   free(picture);
 */
void qk_mem_iregister(int hid, int type, void* ptr, const void* unused, size_t size,
                      const char* file, int line);

/**
 * Removes registered memory, or an object, from the accounting. The memory or object then belongs
 * to the caller. The tracker that it was registered with is deleted, without the object.
 *
 * @param type  as in the registration.
 * @param ptr   as in qk_mem_iregister(). The tracker can be another one with the same address,
 *              which the caller keeps.
 *
 * Warned about: null, an address without a record, one that was registered as another type, and a
 * tracker of another C++ type. The record is removed all the same if there is one. The code is set
 * only for a bad `hid`, to 5566.
 */
void qk_mem_ideregister(int hid, int type, void* ptr, const char* file, int line);

/* ---- Bookkeeping ---------------------------------------------------------------------------- */

/* For modules that manage handles themselves and have their records. Programs don't need these. */

/**
 * Records memory of a handle's own bookkeeping on the handle, as overhead of kind 'H'. The deletion
 * of the handle removes the record.
 *
 * @param handle  the handle, not null.
 * @param ptr     the memory, which stays the caller's.
 * @param size    its bytes.
 * @param kind    ignored.
 * @param entry   the switches that decide whether a failure is logged. The global switches decide
 *                about the trace line.
 */
void qk_mem_handle_memory(struct qk_mem_handle* handle, void* ptr, size_t size, unsigned char kind,
                          const char* file, int line, struct qk_mem_debug* entry);

/**
 * Moves the record of the array of handles, on handle 1, from an array that was replaced to its
 * replacement, and releases the old array. Without handle 1 it only releases. The caller holds the
 * registry's lock.
 *
 * @param old_array  the array that was replaced; null if there was none.
 * @param new_array  its replacement; null if there is none.
 * @param debug      the switches that decide about log lines.
 */
void qk_mem_handle_array(struct qk_mem_handle** old_array, struct qk_mem_handle** new_array,
                         const char* file, int line, struct qk_mem_debug* debug);

#ifdef __cplusplus
/**
 * Accounts for the memory of a tracker.
 *
 * @param handle   the handle that the tracker's object is registered on, not null.
 * @param tracker  the tracker. For a removal it can be deleted already.
 * @param kind     'W' or 'J' records it, 'E' or 'K' removes the record. Others do nothing.
 * @param entry    the switches that decide whether a failure is logged. The global switches decide
 *                 about the trace line, which shows every removal as 'E'.
 */
void qk_mem_tracker(struct qk_mem_handle* handle, qk::MemTracker* tracker, unsigned char kind,
                    const char* file, int line, struct qk_mem_debug* entry);
#endif

/* ---- Reports and heap ---------------------------------------------------------------------- */

/**
 * Prints a report of what the handles hold.
 *
 * Any switch of qk_mem_debug_config() must be on, TRACE at least. Otherwise the report is one line
 * that says so, unless QK_MEM_DUMP_HEAPSIZE is the only section.
 *
 * @param fp      stream to print to, neither flushed nor closed. Null prints nothing.
 * @param filter  which handles and pointers to list; null and "" select all. An option string, see
 *                (6), whose conditions must all hold; AND between them has no effect:
 *                HANDLE=n                  handle n; 0 selects all
 *                TAG=xx  TAG=NONE          handles with that tag; handles without a tag
 *                TYPE=DATA or OVERHEAD     handles of that type
 *                AUTOFREE=TRUE or FALSE    handles with or without that option
 *                BLOCKMGMT=TRUE or FALSE   the same
 *                NEW_HANDLE=TRUE or FALSE  handles that no baseline covers, or the others
 *                NEW_PTRS=TRUE or FALSE    pointers that no baseline covers, or the others. Handles
 *                                          are selected by what the last report with GROWTH found:
 *                                          print one first
 *                Values are NOT checked. TYPE=DTAA and AUTOFREE=YES are ignored and select all
 *                handles, and so is HANDLE=abc, which is 0. HANDLE=3,TAG=AB is HANDLE=3. Refused
 *                are an unknown keyword, a missing or empty value, a value of AND, an open quote
 *                and more than 256 characters, with 11102, and a tag of more than two characters,
 *                with 11103. The stream then gets a line with the filter instead of the report.
 *                SUMMARY and HEAPSIZE ignore the filter. The rows of tags in COMPARISON follow only
 *                TAG.
 * @param opts    QK_MEM_DUMP_ constants; 0 means those of qk_mem_dump_config().
 *
 * With GROWTH, the rows of HANDLES, MGMT, BLOCKS and POINTERS are limited to what no baseline
 * covers. If there is no new handle and no new pointer or block, the report is one line, or nothing
 * with TERSE. GROWTH without any of these four sections lists nothing and prints a rule.
 *
 * Allocates nothing. The stream is locked (flockfile()), so that nothing comes between the rows.
 * Meanwhile these wait in other threads: creation and deletion of handles, growth of a handle's
 * array of records, rows of the trace file, configuration. They don't wait while the report itself
 * waits for the stream: a thread can call the library while it holds the stream's lock, unless the
 * stream is the log, see (9).
 *
 *   qk_mem_dump(stderr, "TAG=PE", QK_MEM_DUMP_HANDLES | QK_MEM_DUMP_POINTERS);
 */
void qk_mem_dump(FILE* fp, const char* filter, unsigned int opts);

/**
 * Sets a baseline: stores what the selected handles and tags hold now, for reports and queries to
 * compare with. Replaces their earlier baseline. Other handles and tags keep theirs.
 *
 * @param filter  as in qk_mem_dump(). Tags are selected by TAG alone: with any other filter all of
 *                them get a new baseline. The heap always does.
 * @return 0; also for an invalid filter, which changes nothing and stores the code. -1 without a
 *         code if no switch of qk_mem_debug_config() is on.
 *
 *   qk_mem_baseline("");
 *   parse("request.txt");
 *   qk_mem_dump(stderr, "", QK_MEM_DUMP_GROWTH | QK_MEM_DUMP_POINTERS | QK_MEM_DUMP_TERSE);
 */
int qk_mem_baseline(const char* filter);

/**
 * Answers one question about memory. Works without any configuration.
 *
 * @param query   a keyword; of several the first in this list. Null and "" give 0. The first eight
 *                are about the heap, and have no filter. Heaps, ALLOC and CHG are bytes, PCT is per
 *                cent.
 *                INITIAL_HEAP             the heap at start-up
 *                BASELINE_HEAP            the heap at the last baseline
 *                CURRENT_HEAP             the heap now
 *                HEAP_CHG_SINCE_BASELINE  its growth since the last baseline, signed
 *                HEAP_CHG_SINCE_INITIAL   its growth since start-up, signed
 *                HEAP_PCT_SINCE_BASELINE  the same in per cent; 0 if the baseline is 0
 *                HEAP_PCT_SINCE_INITIAL   the same in per cent; 0 if it was 0 at start-up
 *                UNTRACKED                its growth since start-up, less what handles account for
 *                CURRENT_ALLOC            what the selected handles hold
 *                CURRENT_PTRS             the number of their records, 1 too low for each object or
 *                                         array that was deregistered; it wraps below 0
 *                BASELINE_ALLOC           what they held at their baseline
 *                BASELINE_PTRS            the number of records that they had at their baseline
 *                CHG_SINCE_BASELINE       growth of what they hold, signed
 *                PCT_SINCE_BASELINE       the same in per cent, unsigned: a decrease gives a huge
 *                                         number; 0 if they hold nothing now, or held nothing at
 *                                         the baseline
 * @param filter  as in qk_mem_dump(). "" and null select all handles.
 * @param answer  receives the answer; can be null. Unchanged on failure.
 * @return 0; or -1 with code 11102 or 11103 for an invalid query or filter, 11112 for a query about
 *         the heap together with a filter.
 *
 * Other threads wait as during qk_mem_dump().
 *
 *   long bytes = 0;
 *   if (qk_mem_info("CURRENT_ALLOC", "TAG=PE", &bytes) == 0) printf("%ld bytes\n", bytes);
 */
int qk_mem_info(const char* query, const char* filter, long* answer);

/**
 * Returns the bytes of the main heap: what the C library got from the system for its main arena.
 * Memory that is mapped separately, and the arenas of other threads, are not part of it. The figure
 * is `arena` of mallinfo(), a signed 32-bit number: it wraps from 2 GiB on, and is 0 if a sanitizer
 * replaces the allocator.
 */
long qk_heapsize(void);

/** Writes the figures of the C library's mallinfo() to the log, if there is one. */
void qk_mallinfo(void);

/* ---- Configuration by call ----------------------------------------------------------------- */

/** Returns 1 if any switch of qk_mem_debug_config() is on, else 0. */
int qk_mem_debug_on(void);

#ifdef __cplusplus

/**
 * Sets which routines are watched and where the log is. Replaces the whole previous configuration.
 *
 * @param options  an option string, see (6). Null and a string without keywords change nothing.
 *                 CTRLBLKS    logs the report after every event, and at the end as SUMMARY does
 *                 DEBUG       logs every event, and what EXCEPTIONS logs. Handles created under it
 *                             record all their pieces and blocks
 *                 EXCEPTIONS  logs warnings and errors, except "invalid hid", which needs DEBUG
 *                 SUMMARY     logs the report at the end, see (10)
 *                 TRACE       makes reports and baselines available. Block-managed handles created
 *                             under it record their blocks. The other four include TRACE
 *                 Each of these five can take a list of the routines that it concerns, as in
 *                 DEBUG=qk_imalloc,qk_ifree or DEBUG='not qk_ifree': qk_mem_inew_handle,
 *                 qk_mem_idel_handle, qk_mem_iclear_handle, qk_imalloc, qk_icalloc, qk_irealloc,
 *                 qk_ifree, qk_istrdup, qk_iregister, qk_ideregister, qk_imarralloc, qk_iarrfree,
 *                 qk_mem_info, qk_mem_baseline. The report at the end, the availability of reports,
 *                 and the lines of start-up, end and bookkeeping don't depend on the list.
 *                 OFF         switches everything off and closes a log file. STDERR or STDOUT stays
 *                             the log
 *                 LOG=name    the log: a file, STDERR, STDOUT, or NONE for no log. A FIFO that
 *                             nobody reads can't be opened: tried for a second
 *                 APPEND      a log file is extended instead of overwritten
 *                 FLUSH       the log is not buffered
 *                 A string with none of the first five, such as "FLUSH" or "LOG=x", switches
 *                 everything off.
 * @param status   filled on failure, otherwise cleared. Null: the call returns 10047.
 * @return 0, or the code in `status`:
 *         10037            more than 256 characters; nothing changes
 *         10041 to 10044   an option string with a mistake; nothing changes
 *         10040, 10048     an unknown routine, or a misplaced "not"; the log, the switches before
 *                          the bad list (in the order above) and the routines before the bad word
 *                          are set, everything else is off
 *         11104            OFF together with one of the five; everything is off, the log stays open
 *
 * The log is opened only with CTRLBLKS, DEBUG, EXCEPTIONS or SUMMARY; LOG has no effect without one
 * of them. Without LOG an open log stays, and APPEND and FLUSH are ignored. If none is open, the
 * call opens "qkmem.log" in the current directory, unless OFF has closed a log file. LOG=NONE is
 * not remembered for the next call. Naming the file that is the log already overwrites it, unless
 * APPEND is set. A log that can't be opened is reported on standard output; the call then returns 0
 * and leaves everything off.
 *
 * What a handle records is decided at its creation. Once everything is off, frees on the data
 * handle are not recorded: memory that was recorded there stays in later reports.
 *
 * Doesn't start the library up, see (8), so that a program can configure before its first
 * allocation and the standing handles are created under that configuration. The first call applies
 * QK_MEM_DEBUG and QK_MEM_DUMP before its own options.
 *
 *   qk::Status status;
 *   if (qk_mem_debug_config("SUMMARY LOG=memory.log", &status) != 0) puts(status.arg1);
 */
int qk_mem_debug_config(const char* options, qk::Status* status);

/**
 * Writes the present configuration as an option string of qk_mem_debug_config().
 *
 * Don't pass the string back unchecked. A log name with blanks is not quoted and fails or is
 * misread. A string of more than 256 characters, which several lists can produce, fails with 10037.
 * APPEND isn't part of it, so LOG= overwrites the log. Neither is LOG=NONE, so "qkmem.log" can be
 * opened.
 *
 * @param text    buffer of QK_MEM_SETTINGS_SIZE bytes; can be null.
 * @param status  cleared. Null: the call returns 10047.
 * @return 0
 *
 * Applies QK_MEM_DEBUG and QK_MEM_DUMP if nothing has yet; doesn't start the library up.
 */
int qk_mem_debug_settings(char* text, qk::Status* status);

/**
 * Sets the sections of the report at the end, and of every qk_mem_dump() with `opts` 0.
 *
 * @param options  an option string, see (6): OPTIONS=list, where the list consists of SUMMARY,
 *                 HEAPSIZE, HANDLES, MGMT, BLOCKS, POINTERS, COMPARISON, GROWTH and TERSE,
 *                 separated by commas. "" changes nothing. The default is
 *                 SUMMARY,HANDLES,BLOCKS,POINTERS.
 * @param status   filled on failure, otherwise cleared. Null: the call returns 10047.
 * @return 0, or the code in `status`, and nothing changes: 10036 for null options, 10037 for more
 *         than 256 characters, 10041 to 10044 for a mistake in them.
 *
 * Doesn't start the library up. QK_MEM_DUMP replaces what was set before the start-up.
 */
int qk_mem_dump_config(const char* options, qk::Status* status);

/**
 * Sets options of the whole library.
 *
 * @param options  an option string, see (6):
 *                 HEAPSIZE  the log line of each event shows the heap's size and its change
 *                 DB=name   opens a trace file, "qkmem.tdf" by default, and overwrites it. Ignored
 *                           while no switch of qk_mem_debug_config() is on, and the second time
 *                 FLUSH     log and trace file, if open, are not buffered
 *                 "" and null mean the value of QK_MEM_OPTIONS, cut to 256 characters. Each call
 *                 sets HEAPSIZE off first.
 * @param status   filled on failure, NOT cleared on success. Null: the call returns 10047.
 * @return the code in `status`, even one from before the call: clear it first. 10037 for more than
 *         256 characters, 10041 to 10044 for a mistake in them. A trace file that can't be opened
 *         is reported on standard output and isn't a failure; FLUSH is then ignored.
 */
int qk_mem_options(const char* options, qk::Status* status);

#endif /* __cplusplus */

/*
 * The same four for C programs, and for all that want no more than the code.
 */

/**
 * Sets which routines are watched and where the log is, as qk_mem_debug_config() does.
 *
 * @param options  as in qk_mem_debug_config().
 * @return 0, or the code of qk_mem_debug_config(), which is also the thread's error code.
 *
 *   if (qk_mem_set_debug("SUMMARY LOG=memory.log") != 0) printf("%d\n", qk_mem_error());
 */
int qk_mem_set_debug(const char* options);

/**
 * Sets the sections of the report at the end, as qk_mem_dump_config() does.
 *
 * @param options  as in qk_mem_dump_config().
 * @return 0, or the code of qk_mem_dump_config(), which is also the thread's error code.
 */
int qk_mem_set_dump(const char* options);

/**
 * Sets options of the whole library, as qk_mem_options() does.
 *
 * @param options  as in qk_mem_options().
 * @return 0, or the code of qk_mem_options(), which is also the thread's error code.
 */
int qk_mem_set_options(const char* options);

/**
 * Writes the present configuration as an option string, as qk_mem_debug_settings() does.
 *
 * @param text  buffer of QK_MEM_SETTINGS_SIZE bytes.
 * @return 0, or 5014 if `text` is null, which is also the thread's error code.
 */
int qk_mem_get_debug(char* text);

#ifdef __cplusplus
} /* extern "C" */

namespace qk {

/**
 * Represents an object or array of the program that is registered on a handle. It remembers the
 * type and destroys the object: deleting the tracker destroys what is at `address`, unless that is
 * null. Derive from it to register a type, see qk::Tracker in qkmem.hpp.
 */
class MemTracker {
 public:
  MemTracker() = default;
  MemTracker(const MemTracker&) = delete;
  MemTracker& operator=(const MemTracker&) = delete;

  virtual ~MemTracker() = default;

  /** Returns the type of the object, or of the array's elements. */
  [[nodiscard]] virtual const std::type_info& tracked_type() const = 0;

  /** Returns whether `other` tracks the same type. */
  [[nodiscard]] virtual bool same_type(const MemTracker& other) const = 0;

  /** Returns the bytes that a tracker is accounted with: those of this class only. */
  [[nodiscard]] std::size_t size() const { return 16; }

  /** The object, or the first element of the array. */
  void* address = nullptr;
};

} /* namespace qk */
#endif

#undef QK_MEM_BYTES_IN

#pragma GCC visibility pop

/* ---- Macros that pass the caller's location ------------------------------------------------ */

/* A program that wants no macros of other people defines QKMEM_NO_MACROS, and calls the functions. */
#ifndef QKMEM_NO_MACROS

#define qk_mem_new_handle(options, tag) qk_mem_inew_handle((options), (tag), __FILE__, __LINE__)
#define qk_mem_del_handle(hid) qk_mem_idel_handle((hid), __FILE__, __LINE__)
#define qk_mem_clear_handle(hid) qk_mem_iclear_handle((hid), __FILE__, __LINE__)
#define qk_mem_size(hid) qk_mem_isize((hid), __FILE__, __LINE__)
#define qk_mem_malloc(hid, size) qk_mem_imalloc((hid), (size), QK_MEM_ALIGNMENT, __FILE__, __LINE__)
#define qk_mem_calloc(hid, num, size) \
  qk_mem_icalloc((hid), (num), (size), QK_MEM_ALIGNMENT, __FILE__, __LINE__)
#define qk_mem_realloc(hid, ptr, size) \
  qk_mem_irealloc((hid), (ptr), (size), QK_MEM_ALIGNMENT, __FILE__, __LINE__)
#define qk_mem_recalloc(hid, ptr, num, size, old_num) \
  qk_mem_irecalloc((hid), (ptr), (num), (size), (old_num), QK_MEM_ALIGNMENT, __FILE__, __LINE__)
#define qk_mem_strdup(hid, str) qk_mem_istrdup((hid), (str), __FILE__, __LINE__)
#define qk_mem_free(hid, ptr) qk_mem_ifree((hid), (ptr), __FILE__, __LINE__)

#define qk_mem_register(hid, type, ptr, size) \
  qk_mem_iregister((hid), (type), (ptr), NULL, (size), __FILE__, __LINE__)
#define qk_mem_deregister(hid, type, ptr) \
  qk_mem_ideregister((hid), (type), (ptr), __FILE__, __LINE__)
#define qk_mem_marralloc(hid, address, element_size, block_factor) \
  qk_mem_imarralloc((hid), (address), (element_size), (block_factor), __FILE__, __LINE__)
#define qk_mem_arrfree(hid, address) qk_mem_iarrfree((hid), (address), __FILE__, __LINE__)

#endif /* QKMEM_NO_MACROS */

#endif /* QKMEM_QKMEM_H_ */

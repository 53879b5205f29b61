/**
 * qkmem accounts memory and finds its misuse inside a running 64-bit Linux program.
 *
 * Memory is allocated on handles, numbered accounting pools, and every call names the place in the
 * source that makes it. For each live pointer of a handle the library keeps a record; it keeps
 * totals per handle and per tag; it warns of frees of unknown pointers and the like; it writes a
 * log, a trace file and reports. Environment variables switch that on in a program that is already
 * built:
 *
 *   QK_MEM_DEBUG    which routines are watched and where the log goes, see qk_mem_debug_config()
 *   QK_MEM_OPTIONS  heap sizes in the log, the trace file, see qk_mem_options()
 *   QK_MEM_DUMP     the sections of the report, see qk_mem_dump_config()
 *
 * They are read once, at the first call, and ignored in a process that runs with raised privileges.
 *
 * Conventions, valid for every function unless its own text says otherwise:
 *
 *  - The header is C11 and C++17. What needs a C++ type is declared in C++ only.
 *  - Functions whose name has an `i` behind the prefix take the caller's place as `file` and
 *    `line`. The macros at the end of this header pass `__FILE__` and `__LINE__`. `file` is kept by
 *    reference and must live as long as the program, as string literals do; null is shown as
 *    "(null)". Lines print `file` without its folders. A record keeps the low 16 bits of `line`.
 *  - Sizes are bytes. Handle numbers are 1 upward.
 *  - Nothing throws. Every failure leaves a code in the calling thread, read with qk_mem_error().
 *    A failure of the system's allocator leaves 5000 plus its errno, 5012 when memory ran out.
 *  - Any thread may call anything. Several threads may use ONE handle at the same time only if it
 *    was created MULTITHREADED; a handle must not be in use elsewhere while it is deleted.
 *  - The first call of any function but qk_mem_error(), qk_mem_tag_size(), qk_mem_debug_config(),
 *    qk_mem_debug_settings(), qk_mem_dump_config() and qk_heapsize() starts the library up.
 *  - Warnings, errors and trace lines go to the log as the switches of the routine say.
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

#pragma GCC visibility push(default)

/* Records of the library, which callers see through its functions only. */
struct qk_mem_handle;
struct qk_mem_debug;

#ifdef __cplusplus
namespace qk {
class MemTracker;
}

extern "C" {
#endif

/** The two handles that stand from start-up on. */
enum {
  /** Holds the library's own bookkeeping; reports show it apart. */
  QK_MEM_OVERHEAD_HANDLE = 1,
  /**
   * The handle for memory that needs no pool of its own; it can't be deleted. With no debugging
   * configured, calls on it are calls of the system's allocator and nothing else.
   */
  QK_MEM_DATA_HANDLE = 2
};

/** Codes that qk_mem_error() and status objects hold, beside 5000 plus errno. */
enum {
  QK_MEM_ERROR_HANDLE = 5566,           /**< no such handle, or one that can't be used so */
  QK_MEM_ERROR_NULL_OPTIONS = 10036,    /**< the option string is null */
  QK_MEM_ERROR_LONG_OPTIONS = 10037,    /**< the option string is longer than 256 characters */
  QK_MEM_ERROR_ROUTINE = 10040,         /**< a list names a routine that doesn't exist */
  QK_MEM_ERROR_NULL_STATUS = 10047,     /**< the status pointer is null */
  QK_MEM_ERROR_NOT_FIRST = 10048,       /**< "not" stands in a list, but not in front */
  QK_MEM_ERROR_OPTIONS = 11102,         /**< options, filter or query that can't be read */
  QK_MEM_ERROR_FILTER_TAG = 11103,      /**< the tag of a filter is longer than two characters */
  QK_MEM_ERROR_OFF_WITH_OTHERS = 11104, /**< OFF together with a switch that activates */
  QK_MEM_ERROR_TAG = 11110,             /**< tag longer than two characters, or the 33rd one */
  QK_MEM_ERROR_HEAP_FILTER = 11112      /**< a question about the heap together with a filter */
};

/** Sections of the report of qk_mem_dump(), to be added up. */
enum {
  QK_MEM_DUMP_SUMMARY = 0x001,    /**< totals per category and tag */
  QK_MEM_DUMP_HEAPSIZE = 0x002,   /**< the heap's size in one line, where there is no summary */
  QK_MEM_DUMP_HANDLES = 0x004,    /**< a row for each handle */
  QK_MEM_DUMP_MGMT = 0x008,       /**< a row for each piece of bookkeeping */
  QK_MEM_DUMP_BLOCKS = 0x010,     /**< a row for each block of block-managed handles */
  QK_MEM_DUMP_POINTERS = 0x020,   /**< a row for each live pointer */
  QK_MEM_DUMP_COMPARISON = 0x040, /**< baseline, now and growth in a table, and nothing else */
  QK_MEM_DUMP_GROWTH = 0x080,     /**< only what is new since the baseline */
  QK_MEM_DUMP_TERSE = 0x100       /**< with GROWTH: print nothing where nothing grew */
};

/** Other figures of the interface. */
enum {
  /** Alignment in bytes that the macros below ask for: enough for every fundamental type. */
  QK_MEM_ALIGNMENT = 16,
  /** Bytes that are enough for every text of qk_mem_debug_settings(). */
  QK_MEM_SETTINGS_SIZE = 4096
};

/* ---- Start-up and errors ------------------------------------------------------------------- */

/**
 * Starts the library up: reads the environment, registers the report at exit, opens the two
 * standing handles. Every other function that needs it does so itself, so calling this only chooses
 * the moment. A second call returns at once; a start-up that failed is not tried again.
 */
void qk_mem_init(void);

/**
 * Tells the calling thread's last error code: 0 if it never had one. Success doesn't reset it.
 * Doesn't start the library up.
 */
int qk_mem_error(void);

/* ---- Handles and tags ---------------------------------------------------------------------- */

/**
 * Creates a handle.
 *
 * @param options  keywords separated by blanks or commas, in either case, at most 256 characters;
 *                 null and "" mean a plain data handle.
 *                 DATA           a handle for the program's data (the default)
 *                 OVERHEAD       a handle for bookkeeping, which reports show apart; wins over DATA
 *                 AUTOFREE       deleted, with all that it holds, when the program ends
 *                 MULTITHREADED  several threads may use it at the same time
 *                 BLOCKMGMT      takes memory in blocks of BLOCKSIZE bytes and 32 more, hands out
 *                                pieces of them one behind the other, and gives them back all at
 *                                once, by qk_mem_iclear_handle() or deletion. Larger requests get a
 *                                block of their own. The handle is charged for its blocks, and its
 *                                pieces aren't recorded unless DEBUG or BLOCKFREE asks for it
 *                 BLOCKSIZE=n    bytes of a block, 2048 unless given; a negative n fails as memory
 *                                that ran out
 *                 BLOCKINITIAL=n blocks made at once, 1 unless given; 0 or less makes none
 *                 BLOCKFREE      pieces are recorded and can be freed and resized one by one. Room
 *                                comes back at the ends of what is live in a block, elsewhere only
 *                                when the handle is cleared
 * @param tag      one or two characters under which reports sum this and other handles, made upper
 *                 case; null or "" for none. A process can have 32 tags.
 * @return  the lowest free number, or 0. qk_mem_error() then holds 11102 for bad options, 11110 for
 *          a tag that is too long or too many, 5566 when the table of handles failed to grow
 *          earlier, or the allocator's code.
 *
 * The caller owns the handle until qk_mem_idel_handle(). Memory obtained on it belongs to it.
 */
int qk_mem_inew_handle(const char* options, const char* tag, const char* file, int line);

/**
 * Deletes a handle and releases all that is recorded on it: allocated and registered memory is
 * freed, registered objects and arrays are destroyed through their trackers, blocks go with all
 * their pieces. Memory that was recorded twice is released once. The number is then free for the
 * next handle.
 *
 * What the handle didn't record (the data handle's pointers while nothing is configured) stays.
 *
 * @return 0, or 5566 for the data handle and for a number without a handle.
 *
 * Threads: no other thread may use the handle meanwhile. Takes time proportional to the records.
 */
int qk_mem_idel_handle(int hid, const char* file, int line);

/**
 * Empties a block-managed handle at once: all pieces are gone, registered memory is freed,
 * registered objects and arrays are destroyed through their trackers. Its blocks stay with it,
 * empty, and so does its charge for them.
 *
 * @return 0, or 5566 for a number without a handle and for a handle that isn't block-managed.
 *
 * Takes time proportional to the blocks, and to the records where pieces are recorded.
 */
int qk_mem_iclear_handle(int hid, const char* file, int line);

/**
 * Tells how many bytes of data live on all handles that bear a tag. On block-managed handles these
 * are the bytes of their blocks.
 *
 * @param name  one or two characters, in either case.
 * @return the bytes; 0 for a null, empty, longer or unknown name. Doesn't start the library up.
 */
int64_t qk_mem_tag_size(const char* name);

/**
 * Tells how many bytes of data live on a handle; on a block-managed one the bytes of its blocks.
 *
 * @return the bytes, or (size_t)-1 with code 5566 for a number without a handle.
 */
size_t qk_mem_isize(int hid, const char* file, int line);

/**
 * Tells whether a handle has a record of an address: 1 or 0. Memory of the data handle has none
 * while nothing is configured, pieces of a block-managed handle need BLOCKFREE or DEBUG.
 */
int qk_mem_is_recorded(int hid, const void* ptr, const char* file, int line);

/**
 * Tells whether memory of a handle can be freed piece by piece: 1, or 0 on a block-managed handle
 * without BLOCKFREE and for a number without a handle.
 */
int qk_mem_frees_singly(int hid, const char* file, int line);

/* ---- Memory -------------------------------------------------------------------------------- */

/**
 * Allocates memory on a handle.
 *
 * @param hid    handle to allocate on.
 * @param size   bytes. 0 is warned about and handed on: the answer is the system allocator's.
 * @param align  in bytes, for block-managed handles: 1, 2, 4, 8 or 16. Other numbers are warned
 *               about and hold relative to the block only; 0 and less fail with code 5022.
 *               Ignored on other handles, whose memory is aligned as malloc's is.
 * @return memory with undefined contents that the caller owns until qk_mem_ifree() or the deletion
 *         of the handle; null with code 5566 for a bad `hid`, or with the allocator's code. Memory
 *         that could be had but not recorded is returned all the same, with an error line.
 */
void* qk_mem_imalloc(int hid, size_t size, int align, const char* file, int line);

/**
 * Allocates zeroed memory for `num` elements of `size` bytes on a handle. The record shows both.
 * A product that doesn't fit fails as memory that ran out. Otherwise as qk_mem_imalloc().
 */
void* qk_mem_icalloc(int hid, size_t num, size_t size, int alignment, const char* file, int line);

/**
 * Changes the size of memory on a handle, or allocates it when `ptr` is null.
 *
 * On an ordinary handle the contents are kept and the address may change. On the data handle with
 * nothing configured it is the system's realloc and nothing else. On a block-managed handle with
 * BLOCKFREE a piece that is large enough keeps its address; one that isn't is replaced, and its
 * CONTENTS ARE NOT CARRIED OVER. Without BLOCKFREE only a null `ptr` is served.
 *
 * @param hid        handle that `ptr` was allocated on.
 * @param ptr        null, or memory of that handle. Other memory is warned about, resized all the
 *                   same, and stays unrecorded.
 * @param size       new size. 0 is warned about and handed on; the GNU library then frees `ptr` and
 *                   answers null, its record goes, and an error line is written.
 * @param alignment  as in qk_mem_imalloc().
 * @return memory as from qk_mem_imalloc(), or null. After a null for a `size` other than 0, `ptr`
 *         is valid and recorded as before.
 */
void* qk_mem_irealloc(int hid, void* ptr, size_t size, int alignment, const char* file, int line);

/**
 * Resizes an array of `old_num` elements to `num` elements of `size` bytes each, and zeroes the
 * elements that were added. A product that doesn't fit fails as memory that ran out. Otherwise as
 * qk_mem_irealloc(), which makes the record (one element of num * size bytes) and the log lines.
 */
void* qk_mem_irecalloc(int hid, void* ptr, size_t num, size_t size, size_t old_num, int alignment,
                       const char* file, int line);

/**
 * Copies a string onto a handle, its terminator included.
 *
 * @param str  null is warned about and answered with null.
 * @return the copy, as from qk_mem_imalloc().
 */
char* qk_mem_istrdup(int hid, const char* str, const char* file, int line);

/**
 * Frees memory of a handle.
 *
 * Misuse is warned about and never fails: a null `ptr` does nothing else; a pointer that the handle
 * doesn't know is freed all the same, and so is one registered as an object (its destructor doesn't
 * run). On a number without a handle nothing is freed. On a block-managed handle a piece is given
 * back only under BLOCKFREE, and unknown pointers are left alone.
 */
void qk_mem_ifree(int hid, void* ptr, const char* file, int line);

/**
 * Hands out the next element of a growable array, which the caller holds by a pointer to its first
 * element. A null pointer there makes a new array; a full one grows by `block_factor` elements,
 * which can move it: `*address` always holds the present place. New elements are zeroed, old ones
 * kept.
 *
 * @param hid           handle of the array, the same in every call. A block-managed one needs
 *                      BLOCKFREE for the array to grow.
 * @param address       of the caller's pointer, which is null before the first call.
 * @param element_size  bytes of an element, the same in every call.
 * @param block_factor  elements that an array begins with and grows by.
 * @return the element's index: 0, then 1, 2, …; or -1 with code 5014 when `address` is null, -3
 *         with 5022 when `block_factor` is 0, -2 with 5022 when `element_size` is 0, and -2 when
 *         memory can't be had: the array is then as it was.
 *
 * Elements are aligned to 16 bytes as far as their size allows. A header of 16 bytes stands before
 * the first one.
 */
int64_t qk_mem_imarralloc(int hid, void** address, size_t element_size, size_t block_factor,
                          const char* file, int line);

/**
 * Frees a growable array and sets the caller's pointer to null. A pointer that is null already is
 * fine; a null `address` is warned about and leaves code 5014.
 */
void qk_mem_iarrfree(int hid, void** address, const char* file, int line);

/* ---- What was made elsewhere --------------------------------------------------------------- */

/** How something is registered. */
enum {
  QK_MEM_EXTERNAL = 0, /**< memory from anywhere, which goes back with free */
  QK_MEM_OBJECT = 1,   /**< an object made by new, through its tracker */
  QK_MEM_ARRAY = 2     /**< an array made by new[], through its tracker */
};

/**
 * Enters memory that was not obtained through this library into a handle's accounting. On ordinary
 * handles that record nothing (the data handle with nothing configured) it does nothing.
 *
 * @param type    QK_MEM_EXTERNAL, QK_MEM_OBJECT or QK_MEM_ARRAY.
 * @param ptr     the memory; or a qk::MemTracker with the object's or array's address. From here on
 *                the handle owns both: deletion and clear of the handle free the memory, and
 *                destroy the object by deleting the tracker.
 * @param unused  ignored; pass null.
 * @param size    bytes of all of it.
 *
 * Null addresses, sizes of 0 for objects, trackers of void and a second registration are warned
 * about; the last one is recorded all the same. No code is left. C++ programs have qkmem.hpp.
 */
void qk_mem_iregister(int hid, int type, void* ptr, const void* unused, size_t size,
                      const char* file, int line);

/**
 * Takes registered memory out of the accounting again. The memory, object or array stays with the
 * caller; the tracker that it was registered with is deleted, without the object.
 *
 * @param ptr  as in qk_mem_iregister(); the tracker may be another one with the same address, which
 *             stays the caller's.
 *
 * An unknown address, one that was registered as something else, and a tracker of another type are
 * warned about. No code is left but 5566 for a bad `hid`.
 */
void qk_mem_ideregister(int hid, int type, void* ptr, const char* file, int line);

/* ---- Bookkeeping ---------------------------------------------------------------------------- */

/* For modules that manage handles themselves and hold their records; programs don't need these. */

/**
 * Records memory of a handle's own bookkeeping on the handle, as overhead of kind 'H'. The deletion
 * of the handle removes the record.
 *
 * @param kind   ignored.
 * @param entry  the switches under which a failure is reported; the trace line follows the global
 *               ones.
 */
void qk_mem_handle_memory(struct qk_mem_handle* handle, void* ptr, size_t size, unsigned char kind,
                          const char* file, int line, struct qk_mem_debug* entry);

/**
 * Moves the accounting of the registry's handle array, a record of handle 1, from an array that was
 * replaced to the one that replaced it, and releases the old one. Either can be null. Without
 * handle 1 only the release happens. The caller holds the registry's lock.
 */
void qk_mem_handle_array(struct qk_mem_handle** old_array, struct qk_mem_handle** new_array,
                         const char* file, int line, struct qk_mem_debug* debug);

#ifdef __cplusplus
/**
 * Accounts for a tracker beside its object: kind 'W' or 'J' records it, 'E' or 'K' removes the
 * record, for which the tracker itself may be gone already. Other kinds do nothing. Lines are
 * written under the global switches, and a release is always shown as 'E'.
 */
void qk_mem_tracker(struct qk_mem_handle* handle, qk::MemTracker* tracker, unsigned char kind,
                    const char* file, int line, struct qk_mem_debug* entry);
#endif

/* ---- Reports and heap ---------------------------------------------------------------------- */

/**
 * Prints what the handles hold.
 *
 * @param fp      stream to print to; null prints nothing. It is neither flushed nor closed.
 * @param filter  which handles, pointers and tags; null and "" mean all. Keywords, which all must
 *                hold, separated by blanks (AND between them is allowed and changes nothing):
 *                HANDLE=n  TAG=xx or NONE  TYPE=DATA or OVERHEAD  AUTOFREE=TRUE or FALSE
 *                BLOCKMGMT=TRUE or FALSE  NEW_HANDLE=TRUE or FALSE  NEW_PTRS=TRUE or FALSE
 *                A filter that can't be read is named in place of the report, with code 11102, or
 *                11103 for a tag longer than two characters.
 * @param opts    sum of QK_MEM_DUMP_ constants; 0 means those of qk_mem_dump_config().
 *
 * Needs a debug configuration with at least TRACE; without it only a lone QK_MEM_DUMP_HEAPSIZE is
 * served. Allocates nothing. Creation and deletion of handles wait while it prints.
 */
void qk_mem_dump(FILE* fp, const char* filter, unsigned int opts);

/**
 * Sets a baseline: remembers what selected handles and tags hold now, for reports and queries to
 * compare with. Replaces the baseline that they had; what is not selected keeps its own.
 *
 * @param filter  as in qk_mem_dump().
 * @return 0, also for a filter that can't be read (nothing changes then, and the code is set); -1
 *         without a debug configuration of at least TRACE.
 */
int qk_mem_baseline(const char* filter);

/**
 * Answers one question about memory.
 *
 * @param query   a keyword, in either case; of several the first of this list. "" answers 0.
 *                Of the heap, without a filter: INITIAL_HEAP BASELINE_HEAP CURRENT_HEAP
 *                HEAP_CHG_SINCE_BASELINE HEAP_CHG_SINCE_INITIAL HEAP_PCT_SINCE_BASELINE
 *                HEAP_PCT_SINCE_INITIAL (0 where there is nothing to compare with)
 *                UNTRACKED (heap that was got since start-up and no handle accounts for).
 *                Of the selected handles: CURRENT_ALLOC CURRENT_PTRS BASELINE_ALLOC BASELINE_PTRS
 *                CHG_SINCE_BASELINE PCT_SINCE_BASELINE (unsigned: a decrease gives a huge number;
 *                0 without a baseline). Bytes, pointers or per cent.
 * @param filter  as in qk_mem_dump(), "" for none.
 * @param answer  where the answer goes, or null; untouched on failure.
 * @return 0; or -1 with code 11102 or 11103 for a query or filter that can't be read, 11112 for a
 *         filter with a question about the heap.
 *
 * Works without any debug configuration. Creation and deletion of handles wait meanwhile.
 */
int qk_mem_info(const char* query, const char* filter, long* answer);

/**
 * Tells the bytes of the main heap that the C library got from the system. The figure is the
 * allocator's own signed 32-bit statistic: it wraps from 2 GiB on, and is 0 where a sanitizer
 * replaces the allocator. Doesn't start the library up.
 */
long qk_heapsize(void);

/** Writes the system allocator's statistics to the log, if there is one. */
void qk_mallinfo(void);

/* ---- Configuration by call ----------------------------------------------------------------- */

/** Tells whether anything is switched on: 1 or 0. */
int qk_mem_debug_on(void);

#ifdef __cplusplus

/**
 * Sets which routines are watched, and where the log goes. Replaces the configuration before it.
 *
 * @param options  keywords separated by blanks or commas, at most 256 characters. A string without
 *                 keywords changes nothing.
 *                 CTRLBLKS    the report after every event
 *                 DEBUG       a line for every event, warnings and errors
 *                 EXCEPTIONS  warnings and errors
 *                 SUMMARY     the report when the program ends
 *                 TRACE       pointers are recorded, reports are available
 *                 Each of these five can take a list, as in DEBUG=qk_imalloc,qk_ifree or
 *                 DEBUG='not qk_ifree', of the routines qk_mem_inew_handle, qk_mem_idel_handle,
 *                 qk_mem_iclear_handle, qk_imalloc, qk_icalloc, qk_irealloc, qk_ifree, qk_istrdup,
 *                 qk_iregister, qk_ideregister, qk_imarralloc, qk_iarrfree, qk_mem_info,
 *                 qk_mem_baseline.
 *                 OFF         nothing is watched; a log file is closed
 *                 LOG=name    a file's name, STDERR, STDOUT or NONE; "qkmem.log" unless given
 *                 APPEND      the log file is extended, not written anew
 *                 FLUSH       the log is not buffered
 * @param status   filled on failure; null returns 10047 at once.
 * @return 0, or the code in `status`: 10037 (too long), 10040 and 10048 (lists), 11104 (OFF
 *         together with others), 10041 to 10044 (unknown keyword, value that is not allowed, that
 *         is missing, whose quote isn't closed). A log that can't be opened is told on standard
 *         output; the call then succeeds with no log.
 *
 * Doesn't start the library up: a program can configure before its first allocation, and the
 * standing handles are then made under that configuration.
 */
int qk_mem_debug_config(const char* options, qk::Status* status);

/**
 * Writes the present configuration as an option string of qk_mem_debug_config().
 *
 * @param text    buffer of QK_MEM_SETTINGS_SIZE bytes, or null.
 * @param status  cleared; null returns 10047.
 * @return 0
 */
int qk_mem_debug_settings(char* text, qk::Status* status);

/**
 * Sets the sections of the report at exit and of every qk_mem_dump() with `opts` 0.
 *
 * @param options  OPTIONS=list, a list of SUMMARY, HEAPSIZE, HANDLES, MGMT, BLOCKS, POINTERS,
 *                 COMPARISON, GROWTH and TERSE, separated by commas. Without OPTIONS nothing
 *                 changes. SUMMARY,HANDLES,BLOCKS,POINTERS holds until the first call.
 * @param status   filled on failure; null returns 10047.
 * @return 0, or the code in `status`: 10036 for null options, 10037 for more than 256 characters,
 *         10041 to 10044 as in qk_mem_debug_config().
 */
int qk_mem_dump_config(const char* options, qk::Status* status);

/**
 * Sets module-wide options.
 *
 * @param options  HEAPSIZE  heap size and its change behind every event's line in the log
 *                 DB=name   a trace file, "qkmem.tdf" unless named; only while debugging is
 *                           configured, and once per process
 *                 FLUSH     log and trace file are not buffered
 *                 "" (or null) takes the string of QK_MEM_OPTIONS. HEAPSIZE is off unless the
 *                 string asks for it again.
 * @param status   filled on failure and NOT cleared before; null returns 10047.
 * @return the code that `status` holds at the end, an old one included: 10037 for more than 256
 *         characters, 10041 to 10044 as in qk_mem_debug_config(). A trace file that can't be opened
 *         is told on standard output and is no failure.
 */
int qk_mem_options(const char* options, qk::Status* status);

#endif /* __cplusplus */

#ifdef __cplusplus
} /* extern "C" */

namespace qk {

/**
 * Stands for an object or array that the language made and that is registered on a handle: it
 * remembers the type and destroys what it tracks. Deleting the tracker destroys the object at
 * `address`, unless that is null. Derive from it to register a type.
 */
class MemTracker {
 public:
  MemTracker() = default;
  MemTracker(const MemTracker&) = delete;
  MemTracker& operator=(const MemTracker&) = delete;

  virtual ~MemTracker() = default;

  /** The type of the object, or of the array's elements. */
  [[nodiscard]] virtual const std::type_info& tracked_type() const = 0;

  /** Whether `other` tracks the same type. */
  [[nodiscard]] virtual bool same_type(const MemTracker& other) const = 0;

  /** Bytes a tracker is accounted with: this class, without what derived ones add. */
  [[nodiscard]] std::size_t size() const { return 16; }

  /** What is tracked. */
  void* address = nullptr;
};

} /* namespace qk */
#endif

#pragma GCC visibility pop

/* ---- The caller's place -------------------------------------------------------------------- */

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

#endif /* QKMEM_QKMEM_H_ */

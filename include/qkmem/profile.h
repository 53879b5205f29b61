/**
 * The profile of qkmem: memory by the places that allocate it. It tells which lines of the program
 * hold memory, which held it when most was in use, and which allocate blocks that are freed at
 * once.
 *
 * It stands beside the records, logs and reports of qkmem/qkmem.h and changes none of them. It
 * needs no switch of theirs, and also follows memory that has no record: that of the data handle,
 * and pieces of blocks. Its tables lie in mappings of their own, never in the program's heap.
 *
 * The environment variable QK_MEM_PROFILE switches it on in a program that is already built:
 *
 *   QK_MEM_PROFILE=SITES ./program
 *
 * The conventions of qkmem/qkmem.h hold here too.
 */
#ifndef QKMEM_PROFILE_H_
#define QKMEM_PROFILE_H_

#include <stdint.h>
#include <stdio.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Switches the profile on, or changes what it reports.
 *
 * @param options  keywords, separated as in other option strings, of any length:
 *                 SITES            account by handle, file and line; every other keyword implies it
 *                 STACKS[=depth]   tell the callers of one line apart, and show them: 16 frames of
 *                                  each allocation's call stack, or so many, at most 64
 *                 SKIP=patterns    functions and modules, separated by commas, whose frames are not
 *                                  shown: those of adapters, so that their callers are. A pattern
 *                                  with * or ? matches a whole name, any other a part of it
 *                 PEAK             report what each site held when the whole was largest
 *                 LOST             search for blocks that nothing in the program refers to any
 *                                  more, when it ends, and report the sites that lost them first;
 *                                  see qk_mem_lost(). New memory of malloc and realloc is filled,
 *                                  with 0xA5 in each byte, so that no old addresses are in it
 *                 TOP=n            sites in each part of the report, 20 unless given; 0 for all
 *                 SORT=order       BYTES held (unless given), BLOCKS held, PEAK: bytes held at the
 *                                  peak, MADE: bytes ever allocated, SHORT: blocks freed soon
 *                 REPORT=name      STDERR (unless given), STDOUT, LOG, or a file, in whose name %p
 *                                  is the process, %n the program, %h the host, %t the start, %i
 *                                  the number of the report and %% a %
 *                 FORMAT=form      TEXT (unless given), for people, with bold and dim parts on a
 *                                  terminal unless NO_COLOR is set; JSON, all figures, exact, times
 *                                  in nanoseconds; PPROF, for `go tool pprof` and servers that take
 *                                  its profiles, not compressed; OPENMETRICS, figures of the
 *                                  process, its tags and handles for collectors. A file of these
 *                                  that is written while the process runs is removed when it ends,
 *                                  so that nobody takes it for a running one
 *                 EVERY=seconds    write the report also while the program runs, at the first event
 *                                  after that time. A file is replaced at once
 *                 CONTROL=file     look at this file once a second. Whenever it has changed, its
 *                                  lines are done: on, off, report, report OPTIONS (see
 *                                  qk_mem_profile_report()), reset (count anew), snapshot NAME
 *                                  (see qk_mem_snapshot())
 *                 SAMPLE=bytes     book only a Poisson sample, one block in so many bytes in the
 *                                  mean: sums are unbiased estimates, shown with the most that
 *                                  their standard error can be, which is the square root of sum
 *                                  times interval. Events are those of the sample, so that blocks
 *                                  freed soon are not told. For production. The first interval
 *                                  stays; options without SAMPLE book all new allocations again
 *                 HISTORY=blocks   remember the blocks that were released last, for the words below:
 *                                  65536 unless given, at 32 bytes each; 0 for none. Each handle
 *                                  fills its own 255 at a time, so that thousands of handles
 *                                  remember more
 *                 MAX=bytes        of the profile's own memory, 256M unless given. What does not
 *                                  fit is reported as not recorded
 *                 RECORD[=name]    record each allocation and release to a file, whose name is as
 *                                  that of a report, and %n.%p.qkm unless given. docs/recording.md
 *                                  has its format. A second file, .tail longer, has what is not
 *                                  written yet, so that nothing is lost when the process is
 *                                  killed. The child of a fork records to a file of its own if
 *                                  the name has %p, otherwise not. The text that a call gets for
 *                                  `file` must not change while it is recorded. There is no
 *                                  SAMPLE beside it. Options without RECORD end the recording
 *                 RECORD_MAX=bytes of the recording on the disk, at least 1M. Then the oldest events
 *                                  go. A file system that can't punch holes ends the recording
 *                 IGNORE=file      leave known leaks out of the sites that hold memory: the file
 *                                  has one a line, as leak:PATTERN, which is looked for in file,
 *                                  line and module of a site and, with STACKS, in functions, files
 *                                  and modules of its frames, where * is any text, ^ the beginning
 *                                  and $ the end; or as tag:TAG, or handle:NUMBER. # begins a
 *                                  comment. The report says how much it leaves out, and at the end
 *                                  which lines match nothing. A line that is not understood is
 *                                  named, and a file that can't be read. It is read at once, and
 *                                  leaves all figures of JSON, PPROF and OPENMETRICS as they are;
 *                                  JSON marks the sites
 *                 LEAKS=FAIL[=code]   let the process end with 23, or with this code from 1 to
 *                                  255, if it would end with 0 and sites still hold memory at its
 *                                  end; AUTOFREE handles don't count. Its handlers and destructors
 *                                  run as ever, streams are flushed, and a line tells why. Nothing
 *                                  changes at other codes, signals, _exit() and quick_exit(), nor
 *                                  if the library is unloaded before. If the program loads it
 *                                  while it runs, LEAKS must come from QK_MEM_PROFILE
 *                 Numbers of bytes can end with K, M or G. Null and "" switch the profile off: new
 *                 allocations are not followed, earlier ones are until they are freed.
 * @return 0, or the code of the first mistake, which is also the thread's error code: 10041 to
 *         10044, 5022 for a value that is not understood, 5012 if there is no memory. A word that
 *         is not understood is named on standard error, with the nearest keyword, and the rest is
 *         used. For a file of IGNORE that can't be read, 5000 plus the error.
 *
 * A process can have several copies of the library: the program contains one, and a plug-in brings
 * another. Each has sites of its own and writes its own report, which says so. A file of the second
 * one has ".copy2" before the ending of its name, and so on. At a signal the first copy reports.
 *
 * A call that misuses memory, such as a double free, is told in words where the report goes, but on
 * standard error if that is a file or not a text: once for each line of the program, before the call
 * goes on. The report counts them. For that, the call's handle must keep records. Frees of null are
 * legal, and are only counted.
 *
 * Memory that was allocated before is reported in one line. The profile takes nothing from the
 * program's heap, except that STACKS loads an unwinder once, and that functions get their names
 * when a report is written. Starts the library up. Any thread.
 *
 *   qk_mem_profile_config("STACKS=8 PEAK REPORT=memory.txt");
 */
int qk_mem_profile_config(const char* options);

/**
 * Does what EVERY and CONTROL ask for, if its time has come. For programs that are idle: otherwise
 * their allocations do it. Any thread.
 */
void qk_mem_profile_tick(void);

/**
 * Puts a label on what the calling thread allocates until qk_mem_pop_site(). The profile then tells
 * the allocations of one line apart by their labels, and shows these. It is cheaper than a call
 * stack.
 *
 * @param label  copied, and cut to 59 characters. Null is "(null)". Labels nest: one that is pushed
 *               while another one is in force is shown inside it.
 *
 * Each label costs some 70 bytes for the life of the process, so a label should say what is done,
 * not for which of a million customers. Starts the library up, so that QK_MEM_PROFILE is known.
 * While the profile is off, labels are not kept. Any thread.
 *
 *   qk_mem_push_site("reading the request");
 *   parse("request.txt");
 *   qk_mem_pop_site();
 */
void qk_mem_push_site(const char* label);

/** Ends the calling thread's innermost label. Does nothing if it has none. Any thread. */
void qk_mem_pop_site(void);

/**
 * Keeps what each site holds now, and has ever made, under a name, so that
 * qk_mem_profile_report() can tell what has grown since. There can be any number of snapshots.
 *
 * @param name  copied: 1 to 200 bytes of any kind. An older snapshot of that name is replaced.
 * @return 0, or a code, which is also the thread's error code: 5014 for null; 5022 for a name that
 *         is empty or too long; 5061 if the profile was never on; 5012 if MAX leaves no room, which
 *         standard error is told too. The older snapshot stays then.
 *
 * It takes 32 to 64 bytes for each site, of the profile's own memory. The figures of all sites
 * belong to one moment if no other thread uses the library meanwhile. Starts the library up. Any
 * thread; not in a signal handler.
 */
int qk_mem_snapshot(const char* name);

/**
 * Forgets a snapshot. Its memory serves later ones.
 *
 * @param name  the name that it was taken under.
 * @return 0, or a code, which is also the thread's error code: 5014 for null, 5002 if there is no
 *         snapshot of that name.
 *
 * Any thread; not in a signal handler.
 */
int qk_mem_drop_snapshot(const char* name);

/**
 * Writes the profile's report to a stream, or what has grown since a snapshot.
 *
 * @param stream   neither flushed nor closed.
 * @param options  keywords, separated as in other option strings, of any length. What they don't
 *                 say is as qk_mem_profile_config() has it; null and "" change nothing.
 *                 PEAK, TOP=n, SORT=order, FORMAT=form, SKIP=patterns   as there
 *                 SINCE=name       report growth: what sites hold more or less than at this
 *                                  snapshot, the largest growth first
 *                 UNTIL=name       up to this snapshot, and not up to now. Without SINCE, growth
 *                                  since the profile was switched on
 *                 HANDLE=n         growth on this handle only
 *                 TAG=name         growth on handles of this tag only; NONE: on those without one
 *                 FILE=pattern     growth of files only whose names have this in them. A pattern
 *                                  with * or ? must match the whole name
 *                 A word that is not understood is named on standard error, with the nearest
 *                 keyword, and the rest is used.
 * @return 0, or the first code, which is also the thread's error code: 10041 to 10044 and 5022 for
 *         options, 5014 for a null stream, 5012 if there is no memory, 5000 plus the error of the
 *         stream. With these codes a line in the stream says why it gets no report: 5061 if the
 *         profile was never on, 5002 for a name that no snapshot has, 5022 for a period that ends
 *         before it begins, and for growth with FORMAT=OPENMETRICS, which has no form for it.
 *
 * Growth has a sign, and sites that hold as much as before are only counted. What was made is that
 * of the period; after a reset, what was made since then, and held at it. For pprof what has shrunk
 * is negative, as it is with its -base. SORT=BLOCKS and MADE sort growth too, all else means BYTES.
 *
 * Starts the library up. Any thread; not in a signal handler.
 *
 *   qk_mem_snapshot("warm");
 *   parse("request.txt");
 *   qk_mem_profile_report(stderr, "SINCE=warm TOP=5");
 */
int qk_mem_profile_report(FILE* stream, const char* options);

/**
 * Searches the program for blocks that nothing refers to, and writes the profile's report with the
 * sites that lost memory first. A block is kept if an address in it, not only its first one, stands
 * in a variable, on a stack, in a register, in other memory of the program, or in a block that is
 * kept. Otherwise it is lost, and what only lost blocks refer to is counted with them, by the site
 * of the one that it depends on. Of blocks that refer to each other the oldest is lost, and the
 * others with it.
 *
 * @param stream  gets the text, or JSON if FORMAT=JSON is in force. Neither flushed nor closed.
 * @return 0, or a code, which is also the thread's error code: 5014 for a null stream, 5061 if the
 *         profile was never on, 5012 if there is no memory, 5095 if there can be no search, 5000
 *         plus the error of the stream. The stream then says why, with 5095 after the report.
 *
 * With the option LOST the search finds more: the library then sees to it that new memory has no
 * old addresses in it. Memory that was only ever referred to as a difference, or in a file, seems
 * lost. What the program has freed is not looked at if the C library's own allocator manages it.
 *
 * The search is made in a copy of the process, and takes 0.2 to 0.5 seconds and 100 MiB for a million
 * blocks. Only the calling thread waits for it; others are stopped for the moment of copying, if the
 * system allows that, which can end their system calls with EINTR. With a sanitizer there is no
 * search. Starts the library up. Any thread; not in a signal handler.
 *
 *   if (qk_mem_lost(stderr) != 0) fprintf(stderr, "no search: %d\n", qk_mem_error());
 */
int qk_mem_lost(FILE* stream);

/** What has been added to the memory of some sites; negative for what is gone. */
struct qk_mem_change {
  int64_t bytes;
  int64_t blocks;
  int64_t handles; /**< how many handles hold more bytes, or as many in more blocks */
};

/**
 * Returns what has grown since a snapshot, for tests:
 *
 *   qk_mem_snapshot("before");
 *   parse("request.txt");
 *   assert(qk_mem_growth("before", "TAG=PA").bytes == 0);
 *
 * @param since   the name of a snapshot; null for the time when the profile was switched on.
 * @param filter  null and "" for all sites, or HANDLE=n, TAG=name, FILE=pattern, or several of
 *                them, as in qk_mem_profile_report().
 * @return the sums of the sites that all conditions select. On failure all three numbers are
 *         INT64_MAX, so that no test takes it for no growth; the code is the thread's error code:
 *         5061 if the profile was never on, 5002 if there is no such snapshot, 10041 to 10044 and
 *         5022 for the filter, 5012 if there is no memory. Standard error says what is wrong.
 *
 * It counts what all threads do. Takes time proportional to all sites. Starts the library up. Any
 * thread; not in a signal handler.
 */
struct qk_mem_change qk_mem_growth(const char* since, const char* filter);

#ifdef __cplusplus
} /* extern "C" */

namespace qk {

/** Labels what the calling thread allocates while it is in a scope, see qk_mem_push_site(). */
class Site {
 public:
  explicit Site(const char* label) { qk_mem_push_site(label); }
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;
  ~Site() { qk_mem_pop_site(); }
};

} /* namespace qk */
#endif

#pragma GCC visibility pop

#endif /* QKMEM_PROFILE_H_ */

#ifndef QKMEM_DIAG_TRACE_FILE_H_
#define QKMEM_DIAG_TRACE_FILE_H_

#include <cstdio>

#include "core/registry.h"
#include "core/switches.h"

extern "C" {

/**
 * Writes a record to the trace file.
 *
 * @param handle   number of the handle concerned; 0 for none.
 * @param type     letter of the event; deregistration writes its bare type number here.
 * @param address  the address concerned, or null.
 * @param num,size elements and bytes of one.
 * @param file,line the caller's place; only the last component of `file` is written.
 * @param change   signed change of tracked bytes.
 * @return 0, or -1 when no trace file is written (the running total then stays as it is).
 */
int qk_mem_write_db(int handle, unsigned char type, const void* address, unsigned long num,
                    unsigned long size, const char* file, int line, long change);

}  // extern "C"

namespace qk::mem {

/**
 * Starts to write the trace file to `stream`, beginning with the headings. Needs the registry's
 * lock.
 */
void start_trace_file(FILE* stream) QK_REQUIRES(Qk_mem_mtx);

/** Flushes the trace file. Needs the registry's lock. */
void flush_trace_file() QK_REQUIRES(Qk_mem_mtx);

/** Flushes the trace file, and writes each row at once from now on. Needs the registry's lock. */
void unbuffer_trace_file() QK_REQUIRES(Qk_mem_mtx);

/** Closes the trace file, if there is one. */
void close_trace_file();

}  // namespace qk::mem

#endif  // QKMEM_DIAG_TRACE_FILE_H_

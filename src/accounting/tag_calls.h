#ifndef QKMEM_ACCOUNTING_TAG_CALLS_H_
#define QKMEM_ACCOUNTING_TAG_CALLS_H_

#include "core/records.h"

extern "C" {

/**
 * Finds a tag, or registers it with sums of zero.
 *
 * @param name  one or two characters, already in upper case.
 * @return null if there are 32 tags already: reported, with the code 11110.
 */
qk_mem_tag* qk_mem_register_tag(const char* name);

}  // extern "C"

#endif  // QKMEM_ACCOUNTING_TAG_CALLS_H_

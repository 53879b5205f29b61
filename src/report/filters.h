#ifndef QKMEM_REPORT_FILTERS_H_
#define QKMEM_REPORT_FILTERS_H_

#include <cstdint>

#include "core/records.h"

/**
 * The conditions of a filter, all of which must hold. The four selections are 0 for no condition, 1
 * if the property must hold and -1 if it must not.
 */
struct qk_mem_filters {
  std::int32_t handle_id;      // 0: any
  char tag_name[3];            // upper case; "": any
  std::uint8_t untagged_only;  // only what has no tag
  char handle_type;            // 'D', 'O', or 0 for both
  std::int8_t blockmgmt_sel;
  std::int8_t autofree_sel;
  std::int8_t new_handle_sel;  // has no baseline
  std::int8_t new_ptrs_sel;    // handles: has pointers without a baseline
};

extern "C" {

/**
 * Parses a filter string, see qk_mem_dump(). Null and "" select everything.
 *
 * @return 0; or 11102 for a string that can't be parsed and 11103 for a tag that is too long, also
 *         set as the thread's error code.
 */
int qk_mem_init_filters(const char* filter, qk_mem_filters* filters);

/** Whether a handle is excluded: 1, else 0. */
int qk_mem_filter_handle(const qk_mem_handle* handle, const qk_mem_filters* filters);

/** Whether a pointer is excluded: 1, else 0. */
int qk_mem_filter_pointer(const qk_mem_ptr* record, const qk_mem_filters* filters);

/** Whether a tag is excluded: 1, else 0. */
int qk_mem_filter_tag(const qk_mem_tag* tag, const qk_mem_filters* filters);

}  // extern "C"

#endif  // QKMEM_REPORT_FILTERS_H_

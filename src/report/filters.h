#ifndef QKMEM_REPORT_FILTERS_H_
#define QKMEM_REPORT_FILTERS_H_

#include <cstdint>

#include "core/records.h"

/**
 * What a report is restricted to. All conditions hold together. The four selections are 0 for no
 * condition, 1 where the property must hold and -1 where it must not.
 */
struct qk_mem_filters {
  std::int32_t handle_id;      // 0: any
  char tag_name[3];            // upper case; "": any
  std::uint8_t untagged_only;  // only handles without a tag
  char handle_type;            // 'D', 'O', or 0 for both
  std::int8_t blockmgmt_sel;
  std::int8_t autofree_sel;
  std::int8_t new_handle_sel;  // not covered by a baseline
  std::int8_t new_ptrs_sel;    // of handles: having pointers that no baseline covered
};

extern "C" {

/**
 * Reads a filter string, see qk_mem_dump(). Null and "" select everything.
 *
 * @return 0; or 11102 for a string that can't be read and 11103 for a tag that is too long, also
 *         left as the thread's code.
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

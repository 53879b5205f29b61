#ifndef TESTS_KIT_ARRAY_CHECK_H_
#define TESTS_KIT_ARRAY_CHECK_H_

#include <string>

#include "core/records.h"

namespace kit {

/**
 * Checks what holds of every pointer array between two calls, and while a record is set aside: slot
 * 0 is its own record, `used` is the number of occupied slots, a small array has a bit for each free
 * slot and the print of each address that is not set aside, and in a larger one without an index no
 * slot below `free_from` is free except `spare`. The index of another one knows which slots are used
 * and finds the lowest one of each address.
 *
 * @return the first thing that is wrong; "" if nothing is.
 */
[[nodiscard]] std::string check_array(const qk_mem_ptr_array& array);

/** The same for all arrays of all handles. */
[[nodiscard]] std::string check_all_arrays();

}  // namespace kit

#endif  // TESTS_KIT_ARRAY_CHECK_H_

#ifndef SUPPORT_SYSTEM_H_
#define SUPPORT_SYSTEM_H_

/** Error numbers, their texts, and the host name. Safe in any thread. errno is preserved. */
extern "C" {

/**
 * Returns the error code of a system error number: 5000 plus the number, but 0 for 0 and 5000 for a
 * negative number.
 */
int qk_error_no(int system_error);

/**
 * Writes the English text of a system error number, such as "Cannot allocate memory", to the
 * caller's buffer, cut to `size` and terminated. Allocates nothing. Returns `buffer`, or "" if
 * `buffer` is null or `size` is not positive.
 */
const char* qk_error_msg_r(int errnum, char* buffer, int size);

/**
 * Writes the machine's host name to the caller's buffer, cut to `size` and terminated; "" if the
 * system call fails. Does nothing if `buffer` is null or `size` is not positive.
 */
void qk_hostname_r(char* buffer, int size);

}  // extern "C"

#endif  // SUPPORT_SYSTEM_H_

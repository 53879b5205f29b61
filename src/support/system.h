#ifndef SUPPORT_SYSTEM_H_
#define SUPPORT_SYSTEM_H_

/** What the system tells about itself. Threads: any. errno is kept. */
extern "C" {

/**
 * Turns a system error number into an error code: 5000 plus the number, 0 for 0, 5000 for a
 * negative number.
 */
int qk_error_no(int system_error);

/**
 * Writes the English text of a system error number, such as "Cannot allocate memory", to the
 * caller's buffer, cut to `size` and terminated. Allocates nothing. Returns `buffer`, or "" when
 * there is no room: `buffer` null or `size` not positive.
 */
const char* qk_error_msg_r(int errnum, char* buffer, int size);

/**
 * Writes the machine's host name to the caller's buffer, cut to `size` and terminated; "" if the
 * system doesn't tell. Nothing happens when `buffer` is null or `size` not positive.
 */
void qk_hostname_r(char* buffer, int size);

}  // extern "C"

#endif  // SUPPORT_SYSTEM_H_

#ifndef TESTS_KIT_FAILING_ALLOCATOR_H_
#define TESTS_KIT_FAILING_ALLOCATOR_H_

/**
 * Makes the system's allocator fail on demand. All calls of malloc, calloc, realloc, strdup and the
 * global operators new in the test program go through here, the library's as well as the test's.
 * Calls from inside the C and C++ libraries don't.
 */
namespace kit {

/** Makes the `nth` request from now on fail with ENOMEM, 1 being the next one. */
void fail_request(int nth);

/** Makes the `nth` request from now on and all later ones fail, until let_succeed(). */
void fail_requests_from(int nth);

/** Makes every request fail from now on, until let_succeed(). */
void fail_all_requests();

/**
 * Makes the next request call `action` before it is served or fails. Requests that `action` makes
 * come after that one. So the next request fails alone, with what other threads do meanwhile, after
 *
 *     fail_request(1);
 *     during_next_request(action);
 */
void during_next_request(void (*action)());

/** Cancels the failures. */
void let_succeed();

/** Whether a request has failed since the last fail_...(). */
[[nodiscard]] bool has_failed();

}  // namespace kit

#endif  // TESTS_KIT_FAILING_ALLOCATOR_H_

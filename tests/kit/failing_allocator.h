#ifndef TESTS_KIT_FAILING_ALLOCATOR_H_
#define TESTS_KIT_FAILING_ALLOCATOR_H_

/**
 * Failures of the system's allocator on demand. All calls of malloc, calloc, realloc and strdup and
 * of the global operators new in the test program go through here, the library's as well as the
 * test's; those from inside the C and C++ libraries do not.
 */
namespace kit {

/** Makes the `nth` request from now on fail with ENOMEM, 1 being the next one. */
void fail_request(int nth);

/** Makes the `nth` request from now on fail and all behind it, until let_succeed(). */
void fail_requests_from(int nth);

/** Makes every request fail from now on, until let_succeed(). */
void fail_all_requests();

/** Takes an order back. */
void let_succeed();

/** Whether the request that was to fail has come. */
[[nodiscard]] bool has_failed();

}  // namespace kit

#endif  // TESTS_KIT_FAILING_ALLOCATOR_H_

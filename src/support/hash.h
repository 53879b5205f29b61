#ifndef SUPPORT_HASH_H_
#define SUPPORT_HASH_H_

/**
 * Returns the bucket of a key: a number from 0 to `buckets` - 1, which is the same in every process
 * for the same arguments. A null key counts as "". Returns 0 if `buckets` is not positive. Threads:
 * any.
 */
extern "C" int qk_hash(const char* key, int buckets, int seed);

#endif  // SUPPORT_HASH_H_

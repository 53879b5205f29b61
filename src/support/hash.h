#ifndef SUPPORT_HASH_H_
#define SUPPORT_HASH_H_

/**
 * Chooses a bucket for a key: a number from 0 to `buckets` - 1, the same in every process for equal
 * keys, numbers of buckets and seeds. A null key counts as "". 0 when `buckets` is not positive.
 * Threads: any.
 */
extern "C" int qk_hash(const char* key, int buckets, int seed);

#endif  // SUPPORT_HASH_H_

#ifndef SUPPORT_THREAD_ANNOTATIONS_H_
#define SUPPORT_THREAD_ANNOTATIONS_H_

/**
 * What clang's -Wthread-safety checks at compile time: which lock guards a variable, which one a
 * function takes, gives back or relies on. Macros, since no other compiler knows the attributes.
 */
#ifdef __clang__
#define QK_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define QK_THREAD_ANNOTATION(attribute)
#endif

/** On a class: it is a lock, which messages call `name`. */
#define QK_CAPABILITY(name) QK_THREAD_ANNOTATION(capability(name))
/** On a class: it holds a lock from its constructor to its destructor. */
#define QK_SCOPED_CAPABILITY QK_THREAD_ANNOTATION(scoped_lockable)
/** On a variable: it is used under a lock only. */
#define QK_GUARDED_BY(lock) QK_THREAD_ANNOTATION(guarded_by(lock))
/** On a function: its callers hold a lock. */
#define QK_REQUIRES(...) QK_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/** On a function: it takes a lock, which its caller holds afterwards. */
#define QK_ACQUIRE(...) QK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/** On a function: it takes a lock if it returns `result`. */
#define QK_TRY_ACQUIRE(result) QK_THREAD_ANNOTATION(try_acquire_capability(result))
/** On a function: it gives a lock back. */
#define QK_RELEASE(...) QK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/** On a function: once it has returned, the lock is known to be held. */
#define QK_ASSERTS_HELD(...) QK_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
/** On a function: what it does with locks depends on its arguments, and nothing checks it. */
#define QK_UNCHECKED_LOCKING QK_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // SUPPORT_THREAD_ANNOTATIONS_H_

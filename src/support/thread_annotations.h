#ifndef SUPPORT_THREAD_ANNOTATIONS_H_
#define SUPPORT_THREAD_ANNOTATIONS_H_

/**
 * Annotations that clang checks at compile time with -Wthread-safety: the lock that guards a
 * variable, and the lock that a function takes, releases or relies on. Macros, because other
 * compilers don't know the attributes.
 */
#ifdef __clang__
#define QK_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define QK_THREAD_ANNOTATION(attribute)
#endif

/** On a class: it is a lock, called `name` in messages. */
#define QK_CAPABILITY(name) QK_THREAD_ANNOTATION(capability(name))
/** On a class: it holds a lock from its constructor to its destructor. */
#define QK_SCOPED_CAPABILITY QK_THREAD_ANNOTATION(scoped_lockable)
/** On a variable: it is only used while a lock is held. */
#define QK_GUARDED_BY(lock) QK_THREAD_ANNOTATION(guarded_by(lock))
/** On a function: the caller must hold a lock. */
#define QK_REQUIRES(...) QK_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/** On a function: it takes a lock, which the caller holds afterwards. */
#define QK_ACQUIRE(...) QK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/** On a function: it takes a lock if it returns `result`. */
#define QK_TRY_ACQUIRE(result) QK_THREAD_ANNOTATION(try_acquire_capability(result))
/** On a function: it releases a lock. */
#define QK_RELEASE(...) QK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/** On a function: the lock is held when it returns. */
#define QK_ASSERTS_HELD(...) QK_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
/** On a function: its locking depends on its arguments and is not checked. */
#define QK_UNCHECKED_LOCKING QK_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // SUPPORT_THREAD_ANNOTATIONS_H_

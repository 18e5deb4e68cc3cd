// Lock annotations for clang's thread-safety analysis (-Wthread-safety).
// Under clang they tell the compiler which lock guards which member, which
// functions take or need which lock, and in which order locks are taken, so
// that a forgotten lock or a reversed order is a compile error. Under other
// compilers they expand to nothing.
#pragma once

#if defined(__clang__)
// The attribute `x` under clang, where the analysis runs.
#define VYN_THREAD_ANNOTATION(x) __attribute__((x))
#else
// Nothing under compilers without the analysis.
#define VYN_THREAD_ANNOTATION(x)
#endif

// A type whose objects are locks.
#define VYN_CAPABILITY(name) VYN_THREAD_ANNOTATION(capability(name))
// A type whose objects hold a lock for their lifetime.
#define VYN_SCOPED_CAPABILITY VYN_THREAD_ANNOTATION(scoped_lockable)
// The member is read and written only with the lock held.
#define VYN_GUARDED_BY(lock) VYN_THREAD_ANNOTATION(guarded_by(lock))
// What the pointer member points to is guarded by the lock.
#define VYN_PT_GUARDED_BY(lock) VYN_THREAD_ANNOTATION(pt_guarded_by(lock))
// Lock order: this lock is taken only after (or before) the ones named.
#define VYN_ACQUIRED_AFTER(...) VYN_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define VYN_ACQUIRED_BEFORE(...) VYN_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
// The caller must hold the lock.
#define VYN_REQUIRES(...) VYN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
// The function takes the lock and returns holding it, or gives it back.
#define VYN_ACQUIRE(...) VYN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VYN_TRY_ACQUIRE(...) VYN_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VYN_RELEASE(...) VYN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
// The caller must not hold the lock: the function takes it itself, or waits
// for something that needs it.
#define VYN_EXCLUDES(...) VYN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// The function returns (a reference to) the lock named.
#define VYN_RETURN_CAPABILITY(lock) VYN_THREAD_ANNOTATION(lock_returned(lock))
// For the few functions whose locking the analysis cannot follow; each use
// says why in a comment.
#define VYN_NO_THREAD_SAFETY_ANALYSIS VYN_THREAD_ANNOTATION(no_thread_safety_analysis)

#pragma once

// Clang's thread-safety analysis: which mutex guards which field, and which functions must (or
// must not) hold it. Other compilers ignore the annotations; clang with -Wthread-safety checks
// them at every use.

#if defined(__clang__)
#define QUORVANE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUORVANE_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) QUORVANE_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY QUORVANE_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) QUORVANE_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) QUORVANE_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) QUORVANE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) QUORVANE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) QUORVANE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QUORVANE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) QUORVANE_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS QUORVANE_THREAD_ANNOTATION(no_thread_safety_analysis)

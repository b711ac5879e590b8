// What clang's thread-safety analysis needs to know; nothing for other compilers.
#pragma once

#ifdef __clang__
#define KVHTTP_ANNOTATE(annotation) __attribute__((annotation))
#else
#define KVHTTP_ANNOTATE(annotation)
#endif

#define KVHTTP_LOCK KVHTTP_ANNOTATE(capability("lock"))
#define KVHTTP_SCOPED_LOCK KVHTTP_ANNOTATE(scoped_lockable)
#define KVHTTP_GUARDED_BY(lock) KVHTTP_ANNOTATE(guarded_by(lock))
#define KVHTTP_ACQUIRES(...) KVHTTP_ANNOTATE(acquire_capability(__VA_ARGS__))
#define KVHTTP_RELEASES(...) KVHTTP_ANNOTATE(release_capability(__VA_ARGS__))
// For what may not take the lock: the thread that is being ended may hold it.
#define KVHTTP_UNCHECKED KVHTTP_ANNOTATE(no_thread_safety_analysis)

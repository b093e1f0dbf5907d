// Not part of the YovoLib API: hints for the race detector.
#ifndef YOVOLIB_YSANITIZER_P_H
#define YOVOLIB_YSANITIZER_P_H

// Qt's mutexes lock inside QtCore, which the race detector doesn't see: without these hints it
// takes data guarded by a QMutex for racy. They tell it where such a lock is taken and released,
// and cost nothing in other builds.
#if defined(YOVO_SANITIZE_THREAD) || defined(__SANITIZE_THREAD__)
#define YOVO_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define YOVO_TSAN 1
#endif
#endif

#ifdef YOVO_TSAN
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#define YOVO_TSAN_ACQUIRE(address) __tsan_acquire(address)
#define YOVO_TSAN_RELEASE(address) __tsan_release(address)
#else
#define YOVO_TSAN_ACQUIRE(address) ((void)0)
#define YOVO_TSAN_RELEASE(address) ((void)0)
#endif

#endif // YOVOLIB_YSANITIZER_P_H

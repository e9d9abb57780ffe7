#pragma once
// Marks the optimistic reads of a reader for ThreadSanitizer: copies taken
// under a slot's sequence lock or from the notification queue, which race
// with the writer by design and are thrown away unless a later check proves
// them whole. In any other build the guard is empty and compiles away.

#if defined(__SANITIZE_THREAD__)
#define TAMSEL_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAMSEL_TSAN 1
#endif
#endif

#ifdef TAMSEL_TSAN
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char* file, int line);
#endif

namespace Tamsel {

// While one lives, the sanitizer does not check this thread's memory accesses
// (its writes included). Keep its scope to the copy: the sequence and
// queue-head loads that validate the copy stay outside, so the sanitizer
// still sees the synchronisation.
class OptimisticReads {
 public:
#ifdef TAMSEL_TSAN
  OptimisticReads() { AnnotateIgnoreReadsBegin(__FILE__, __LINE__); }
  ~OptimisticReads() { AnnotateIgnoreReadsEnd(__FILE__, __LINE__); }
#else
  // User-provided, so that a guard nobody touches draws no unused warning.
  OptimisticReads() {}
#endif
  OptimisticReads(OptimisticReads const&) = delete;
  OptimisticReads& operator=(OptimisticReads const&) = delete;
};

}  // namespace Tamsel

#pragma once

// A mutex that clang's thread-safety analysis understands. A field says which mutex guards it, and
// the "clang" preset refuses code that touches it without.

#include <mutex>

#if defined(__clang__)
#define TESSIVANE_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TESSIVANE_THREAD_ATTRIBUTE(x)
#endif

/// On a field: touched only while that mutex is held.
#define GUARDED_BY(mutex) TESSIVANE_THREAD_ATTRIBUTE(guarded_by(mutex))
/// On a function: called only while that mutex is held.
#define REQUIRES_LOCK(mutex) TESSIVANE_THREAD_ATTRIBUTE(requires_capability(mutex))

namespace tessivane {

class TESSIVANE_THREAD_ATTRIBUTE(capability("mutex")) Mutex final {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() = default;

  void lock() TESSIVANE_THREAD_ATTRIBUTE(acquire_capability()) { mutex_.lock(); }
  void unlock() TESSIVANE_THREAD_ATTRIBUTE(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for as long as it lives.
class TESSIVANE_THREAD_ATTRIBUTE(scoped_lockable) MutexLock final {
 public:
  explicit MutexLock(Mutex& mutex) TESSIVANE_THREAD_ATTRIBUTE(acquire_capability(mutex))
      : mutex_(mutex) {
    mutex_.lock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() TESSIVANE_THREAD_ATTRIBUTE(release_capability()) { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

}  // namespace tessivane

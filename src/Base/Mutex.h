#pragma once

#include <mutex>

#include "Base/ThreadAnnotations.h"

namespace quorvane {

// A mutex that clang's thread-safety analysis knows as a capability, so that fields marked
// GUARDED_BY(it) are only touched while it is held.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a Mutex for its scope. To wait on a std::condition_variable_any, pass it the Mutex itself;
// a predicate that reads guarded fields is a lambda marked REQUIRES(the mutex).
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // Lets go before the scope ends; the guarded fields are out of reach until `lock`.
  void unlock() RELEASE() {
    mutex_.unlock();
    held_ = false;
  }
  // Takes the mutex again after `unlock`.
  void lock() ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

}  // namespace quorvane

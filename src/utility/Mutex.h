// MutexLock: a non-recursive mutex that remembers its holder. A failed lock or
// unlock throws std::system_error (from the standard mutex).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "utility/CurrentThread.h"

namespace velmar {
namespace utility {

class MutexLock {
 public:
  MutexLock() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() {
    mutex_.lock();
    holder_.store(CurrentThread::tid(), std::memory_order_relaxed);
  }
  void unlock() {
    holder_.store(0, std::memory_order_relaxed);
    mutex_.unlock();
  }
  /// True if the calling thread holds the lock. For assertions only.
  bool isLockedByThisThread() const {
    return holder_.load(std::memory_order_relaxed) == CurrentThread::tid();
  }

  std::mutex& native() { return mutex_; }
  // Used by Condition around a wait.
  void unassignHolder() { holder_.store(0, std::memory_order_relaxed); }
  void assignHolder() { holder_.store(CurrentThread::tid(), std::memory_order_relaxed); }

 private:
  std::mutex mutex_;
  std::atomic<uint64_t> holder_{0};  // written by the holder; relaxed is enough
};

class MutexLockGuard {
 public:
  explicit MutexLockGuard(MutexLock& mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLockGuard() { mutex_.unlock(); }
  MutexLockGuard(const MutexLockGuard&) = delete;
  MutexLockGuard& operator=(const MutexLockGuard&) = delete;

 private:
  MutexLock& mutex_;
};

}  // namespace utility
}  // namespace velmar

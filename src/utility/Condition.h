// Condition variable that works on a MutexLock. A wait releases the lock and
// takes it again, so the lock's holder is cleared for the wait and restored
// afterwards: it names the real holder at all times.
#pragma once

#include <condition_variable>

#include "utility/Mutex.h"

namespace velmar {
namespace utility {

class Condition {
 public:
  explicit Condition(MutexLock& mutex) : mutex_(mutex) {}
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  /// The caller holds the lock.
  void wait();
  /// Waits at most `seconds`; no wait at all for 0 or less. True if the time
  /// ran out (a wait of 0 or less counts as run out). The caller holds the lock.
  bool waitForSeconds(double seconds);
  void notify() { cond_.notify_one(); }
  void notifyAll() { cond_.notify_all(); }

 private:
  MutexLock& mutex_;
  std::condition_variable cond_;
};

}  // namespace utility
}  // namespace velmar

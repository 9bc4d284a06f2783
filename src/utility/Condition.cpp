#include "utility/Condition.h"

#include <chrono>
#include <mutex>

namespace velmar {
namespace utility {

namespace {

// The standard condition needs a unique_lock. This one adopts the lock the
// caller already holds and gives it back on destruction without unlocking, so
// the caller's MutexLock stays the owner on every path, exceptions included.
class AdoptedLock {
 public:
  explicit AdoptedLock(MutexLock& mutex) : mutex_(mutex), lock_(mutex.native(), std::adopt_lock) {
    mutex_.unassignHolder();
  }
  ~AdoptedLock() {
    lock_.release();
    mutex_.assignHolder();
  }
  std::unique_lock<std::mutex>& lock() { return lock_; }

 private:
  MutexLock& mutex_;
  std::unique_lock<std::mutex> lock_;
};

}  // namespace

void Condition::wait() {
  AdoptedLock adopted(mutex_);
  cond_.wait(adopted.lock());
}

bool Condition::waitForSeconds(double seconds) {
  if (!(seconds > 0.0)) return true;
  AdoptedLock adopted(mutex_);
  auto limit = std::chrono::duration<double>(seconds);
  return cond_.wait_for(adopted.lock(), limit) == std::cv_status::timeout;
}

}  // namespace utility
}  // namespace velmar

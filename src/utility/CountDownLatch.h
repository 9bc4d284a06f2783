// A gate that opens when it has been counted down to zero. Counted down more
// often than its count, it goes negative and stays open.
#pragma once

#include "utility/Condition.h"
#include "utility/Mutex.h"

namespace velmar {
namespace utility {

class CountDownLatch {
 public:
  explicit CountDownLatch(int count);
  CountDownLatch(const CountDownLatch&) = delete;
  CountDownLatch& operator=(const CountDownLatch&) = delete;

  /// Blocks while the count is above zero.
  void wait();
  void countDown();
  int getCount() const;

 private:
  mutable MutexLock mutex_;
  Condition condition_;
  int count_;
};

}  // namespace utility
}  // namespace velmar

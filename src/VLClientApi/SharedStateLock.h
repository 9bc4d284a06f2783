// SharedStateLock: mutex_ for a stretch of code that already holds its
// thread's callback lock (SessionCore::callbackMutex) and now reads or changes
// state that mutex_ guards.
//
// While callbacks are serialized the callback lock is mutex_ itself, held
// already, so nothing is taken here (mutex_ is not recursive). Otherwise
// mutex_ is taken for the scope, inside the callback lock: the order is
// always callback lock -> mutex_, never the other way round.
#pragma once

#include "VLClientApi/SessionCore.h"

namespace velmar {
namespace mdapi {

class SharedStateLock {
 public:
  explicit SharedStateLock(SessionCore& core)
      : mutex_(core.serializeCallbacks_ ? nullptr : &core.mutex_) {
    if (mutex_) mutex_->lock();
  }
  ~SharedStateLock() {
    if (mutex_) mutex_->unlock();
  }
  SharedStateLock(const SharedStateLock&) = delete;
  SharedStateLock& operator=(const SharedStateLock&) = delete;

 private:
  utility::MutexLock* mutex_;
};

}  // namespace mdapi
}  // namespace velmar

// SessionCore: the state that the three parts of a session share, and nothing
// else. MdApiImpl holds it (as a base, so the members keep their names on the
// session object) and hands each part a reference at construction.
//
// Threads and locks:
// - mutex_ is the session lock. Each part says in its header which of its
//   state it guards. It is held around nearly every callback, so callbacks
//   never overlap; it is not recursive, so code that runs inside a callback
//   never takes it again. The parts' own locks (OrderBooks::bookKeysMutex_,
//   FrontSession::connMutex_) are taken after it or alone, never before it,
//   and no callback runs under them.
// - spi_ is set by RegisterSpi before Init and read by every thread after it.
// - The gate flags are atomics because the receiver and the book thread read
//   them without mutex_. The front session writes all of them (mostly under
//   mutex_); besides, Release clears loggedIn_ and the requests
//   SubAllOrderBook/UnSubAllOrderBook set allOrderBook_, on the application's
//   thread. The feed and the books only read them.
#pragma once

#include <atomic>

#include "VelmarMdApi.h"
#include "utility/Mutex.h"

namespace velmar {
namespace mdapi {

struct SessionCore {
  /// The three threads that call the application.
  enum class Caller { kFront, kFeed, kBooks };

  utility::MutexLock mutex_;
  VelmarMdSpi* spi_ = nullptr;

  /// callbacks.serialize, copied by Init before any thread starts and never
  /// changed after. True: every callback runs under mutex_, so none overlap.
  /// False: each caller holds its own lock below around its callbacks, so a
  /// slow callback of one thread holds up no other; state that mutex_ guards
  /// is then read under mutex_ and handed to the callback as a copy.
  bool serializeCallbacks_ = true;
  utility::MutexLock frontCallbackMutex_;
  utility::MutexLock feedCallbackMutex_;
  utility::MutexLock booksCallbackMutex_;
  /// The lock `caller` holds around its callbacks.
  utility::MutexLock& callbackMutex(Caller caller) {
    if (serializeCallbacks_) return mutex_;
    switch (caller) {
      case Caller::kFront:
        return frontCallbackMutex_;
      case Caller::kFeed:
        return feedCallbackMutex_;
      default:
        return booksCallbackMutex_;
    }
  }

  /// The front connection is up. Front thread writes; the feed gate and the
  /// requests read.
  std::atomic<bool> connected_{false};
  /// A login answer was accepted and no logout or loss came since.
  std::atomic<bool> loggedIn_{false};
  /// The front has delivered its last record; the snapshot handlers wait for it.
  std::atomic<bool> snapshotsComplete_{false};
  /// Every instrument of Shanghai (1) / Shenzhen (2) passes the tick filter.
  std::atomic<bool> allTickExchange1_{false};
  std::atomic<bool> allTickExchange2_{false};
  /// Every Shenzhen message goes to the book queue, book or not.
  std::atomic<bool> allOrderBook_{false};
};

}  // namespace mdapi
}  // namespace velmar

#include "utility/Thread.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "utility/Condition.h"
#include "utility/CountDownLatch.h"
#include "utility/CurrentThread.h"
#include "utility/Mutex.h"

using velmar::utility::Condition;
using velmar::utility::CountDownLatch;
using velmar::utility::MutexLock;
using velmar::utility::MutexLockGuard;
using velmar::utility::Thread;
namespace CurrentThread = velmar::CurrentThread;

// The thread runs under its name, and keeps its own copy of what it needs:
// destroyed while running, it must not write its id into the dead object.
TEST(Thread, RunsUnderItsNameAndOutlivesItsObject) {
  CountDownLatch release(1), finished(1);
  std::string nameInside;
  uint64_t tidInside = 0;
  {
    Thread thread(
        [&] {
          release.wait();
          nameInside = CurrentThread::name();
          tidInside = CurrentThread::tid();
          finished.countDown();
        },
        "worker");
    thread.start();
  }
  release.countDown();
  finished.wait();
  EXPECT_EQ(nameInside, "worker");
  EXPECT_NE(tidInside, CurrentThread::tid());
}

// Both waits give the lock up while waiting and hand it back to the waiter.
TEST(Condition, WaitReleasesTheLockAndRestoresTheHolder) {
  for (bool timed : {false, true}) {
    MutexLock mutex;
    Condition cond(mutex);
    bool ready = false;
    std::thread notifier([&] {
      MutexLockGuard lock(mutex);  // only possible while the waiter waits
      ready = true;
      timed ? cond.notifyAll() : cond.notify();
    });
    {
      MutexLockGuard lock(mutex);
      while (!ready) {
        if (timed) {
          cond.waitForSeconds(30);
        } else {
          cond.wait();
        }
      }
      EXPECT_TRUE(mutex.isLockedByThisThread()) << timed;
      EXPECT_TRUE(cond.waitForSeconds(0));  // no time: no wait, reported as a time-out
      EXPECT_TRUE(cond.waitForSeconds(-1));
      EXPECT_TRUE(mutex.isLockedByThisThread());
    }
    notifier.join();
  }
}

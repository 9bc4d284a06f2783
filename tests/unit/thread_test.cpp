// Threads, the condition on MutexLock, the latch, and a loop on a thread of
// its own.
#include "utility/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "utility/Condition.h"
#include "utility/CountDownLatch.h"
#include "utility/CurrentThread.h"
#include "utility/Mutex.h"

using velmar::net::EventLoop;
using velmar::net::EventLoopThread;
using velmar::utility::Condition;
using velmar::utility::CountDownLatch;
using velmar::utility::MutexLock;
using velmar::utility::MutexLockGuard;
using velmar::utility::Thread;
namespace CurrentThread = velmar::CurrentThread;

TEST(Thread, NamesNumbersAndRunsUnderItsName) {
  int first = Thread::numCreated();
  Thread unnamed([] {});
  std::string nameInside;
  uint64_t tidInside = 0;
  Thread named(
      [&] {
        nameInside = CurrentThread::name();
        tidInside = CurrentThread::tid();
      },
      "worker");
  Thread unnamedToo([] {});
  EXPECT_EQ(unnamed.name(), "Thread" + std::to_string(first));
  EXPECT_EQ(unnamedToo.name(), "Thread" + std::to_string(first + 2));  // a name takes a number too
  EXPECT_EQ(Thread::numCreated(), first + 3);

  named.start();
  named.join();
  EXPECT_EQ(nameInside, "worker");
  EXPECT_NE(tidInside, CurrentThread::tid());
  EXPECT_EQ(named.tid(), tidInside);
  EXPECT_THROW(named.join(), std::system_error);
  EXPECT_THROW(unnamed.join(), std::system_error);  // never started
}

// The thread keeps its own copy of what it needs: it must not write its id
// into the destroyed object.
TEST(Thread, DestroyedWhileRunningIsDetachedAndRunsOn) {
  CountDownLatch release(1);
  CountDownLatch finished(1);
  {
    Thread thread([&] {
      release.wait();
      finished.countDown();
    });
    thread.start();
  }
  release.countDown();
  finished.wait();
}

TEST(CountDownLatch, StaysOpenOnceItReachedZero) {
  CountDownLatch latch(1);
  std::thread([&] { latch.countDown(); }).join();
  latch.countDown();
  latch.wait();
  EXPECT_EQ(latch.getCount(), -1);
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

// The init callback runs on the loop thread before startLoop returns; the
// loop's thread carries the given name.
TEST(EventLoopThread, RunsALoopOnItsOwnThread) {
  std::atomic<bool> callbackOnLoopThread{false};
  EventLoop* seenByCallback = nullptr;
  EventLoopThread thread(
      [&](EventLoop* loop) {
        seenByCallback = loop;
        callbackOnLoopThread = loop->isInLoopThread();
      },
      "MdApiThread");
  EventLoop* loop = thread.startLoop();
  EXPECT_EQ(seenByCallback, loop);
  EXPECT_TRUE(callbackOnLoopThread);
  EXPECT_FALSE(loop->isInLoopThread());
  std::string nameOnLoop;
  CountDownLatch ran(1);
  loop->runInLoop([&] {
    nameOnLoop = CurrentThread::name();
    ran.countDown();
  });
  ran.wait();
  EXPECT_EQ(nameOnLoop, "MdApiThread");
  thread.quit();
  thread.join();
  thread.quit();  // the loop is gone: no effect
}

TEST(EventLoopThread, EmptyCallbackIsSkippedAndDestructorStopsTheLoop) {
  EventLoopThread thread;
  CountDownLatch ran(1);
  thread.startLoop()->queueInLoop([&] { ran.countDown(); });
  ran.wait();
}  // quits and joins

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

TEST(Thread, NamesAndNumbering) {
  int first = Thread::numCreated();
  Thread unnamed([] {});
  Thread named([] {}, "worker");
  Thread unnamedToo([] {});
  EXPECT_EQ(unnamed.name(), "Thread" + std::to_string(first));
  EXPECT_EQ(named.name(), "worker");  // and it still took a number
  EXPECT_EQ(unnamedToo.name(), "Thread" + std::to_string(first + 2));
  EXPECT_EQ(Thread::numCreated(), first + 3);
  EXPECT_FALSE(unnamed.started());
}

TEST(Thread, RunsUnderItsNameAndStoresItsId) {
  std::string nameInside;
  uint64_t tidInside = 0;
  Thread thread(
      [&] {
        nameInside = CurrentThread::name();
        tidInside = CurrentThread::tid();
      },
      "namedThread");
  thread.start();
  EXPECT_TRUE(thread.started());
  thread.join();
  EXPECT_TRUE(thread.joined());
  EXPECT_EQ(nameInside, "namedThread");
  EXPECT_NE(tidInside, 0u);
  EXPECT_NE(tidInside, CurrentThread::tid());
  EXPECT_EQ(thread.tid(), tidInside);
}

TEST(Thread, JoinErrorsThrowSystemError) {
  Thread neverStarted([] {});
  EXPECT_THROW(neverStarted.join(), std::system_error);
  Thread thread([] {});
  thread.start();
  thread.join();
  EXPECT_THROW(thread.join(), std::system_error);
}

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
  EXPECT_EQ(finished.getCount(), 0);
}

TEST(CountDownLatch, OpensAtZeroAndStaysOpenBelow) {
  CountDownLatch latch(3);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { latch.countDown(); });
  latch.wait();
  for (auto& t : threads) t.join();
  EXPECT_EQ(latch.getCount(), 0);
  latch.countDown();
  EXPECT_EQ(latch.getCount(), -1);
  latch.wait();  // does not block
}

TEST(Condition, WaitReleasesTheLockAndRestoresTheHolder) {
  MutexLock mutex;
  Condition cond(mutex);
  bool ready = false;
  bool lockReleasedDuringWait = false;
  std::thread notifier([&] {
    MutexLockGuard lock(mutex);  // only possible while the waiter waits
    lockReleasedDuringWait = true;
    ready = true;
    cond.notify();
  });
  {
    MutexLockGuard lock(mutex);
    while (!ready) cond.wait();
    EXPECT_TRUE(mutex.isLockedByThisThread());
  }
  notifier.join();
  EXPECT_TRUE(lockReleasedDuringWait);
}

TEST(Condition, WaitForNoTimeDoesNotWait) {
  MutexLock mutex;
  Condition cond(mutex);
  MutexLockGuard lock(mutex);
  EXPECT_TRUE(cond.waitForSeconds(0));
  EXPECT_TRUE(cond.waitForSeconds(-1));
  EXPECT_TRUE(mutex.isLockedByThisThread());
}

TEST(Condition, WaitForSecondsWakesOnNotify) {
  MutexLock mutex;
  Condition cond(mutex);
  bool ready = false;
  std::thread notifier([&] {
    MutexLockGuard lock(mutex);
    ready = true;
    cond.notifyAll();
  });
  {
    MutexLockGuard lock(mutex);
    while (!ready) cond.waitForSeconds(30);
    EXPECT_TRUE(mutex.isLockedByThisThread());
  }
  notifier.join();
}

TEST(EventLoopThread, RunsALoopOnItsOwnThread) {
  std::atomic<bool> callbackOnLoopThread{false};
  std::atomic<bool> callbackRan{false};
  EventLoop* seenByCallback = nullptr;
  EventLoopThread thread(
      [&](EventLoop* loop) {
        seenByCallback = loop;
        callbackOnLoopThread = loop->isInLoopThread();
        callbackRan = true;
      },
      "MdApiThread");
  EventLoop* loop = thread.startLoop();
  ASSERT_NE(loop, nullptr);
  EXPECT_TRUE(callbackRan);  // before startLoop returned
  EXPECT_TRUE(callbackOnLoopThread);
  EXPECT_EQ(seenByCallback, loop);
  EXPECT_FALSE(loop->isInLoopThread());

  std::string nameOnLoop;
  bool onLoopThread = false;
  CountDownLatch ran(1);
  loop->runInLoop([&] {
    nameOnLoop = CurrentThread::name();
    onLoopThread = loop->isInLoopThread();
    ran.countDown();
  });
  ran.wait();
  EXPECT_EQ(nameOnLoop, "MdApiThread");
  EXPECT_TRUE(onLoopThread);

  CountDownLatch timerRan(1);
  loop->runAfter(0.001, [&] { timerRan.countDown(); });
  timerRan.wait();

  thread.quit();
  thread.join();
  thread.quit();  // the loop is gone: no effect
}

TEST(EventLoopThread, EmptyCallbackIsSkippedAndDestructorStopsTheLoop) {
  uint64_t loopTid = 0;
  {
    EventLoopThread thread;
    EventLoop* loop = thread.startLoop();
    CountDownLatch ran(1);
    loop->queueInLoop([&] {
      loopTid = CurrentThread::tid();
      ran.countDown();
    });
    ran.wait();
  }  // quits and joins
  EXPECT_NE(loopTid, 0u);
  EXPECT_NE(loopTid, CurrentThread::tid());
}

// The loop's passes: where functors handed in from the loop thread and from
// other threads run, quitting, and what is left when the loop goes.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/Channel.h"
#include "VLNet/EventLoop.h"
#include "support/LoopTestUtil.h"
#include "utility/CountDownLatch.h"
#include "utility/Platform.h"

using velmar::Timestamp;
using velmar::net::Channel;
using velmar::net::EventLoop;
using velmar::testing::runLoop;
using velmar::utility::CountDownLatch;
namespace platform = velmar::platform;

namespace {

struct SocketPair {
  SocketPair() { EXPECT_EQ(velmar::net::createLoopbackPair(fds), 0); }
  ~SocketPair() {
    platform::closeSocket(fds[0]);
    platform::closeSocket(fds[1]);
  }
  int reader() const { return fds[0]; }
  int writer() const { return fds[1]; }
  int fds[2] = {-1, -1};
};

}  // namespace

TEST(EventLoop, FunctorQueuedByAFunctorRunsOnTheNextPass) {
  EventLoop loop;
  int64_t first = -1, second = -1;
  loop.queueInLoop([&] {
    first = loop.iteration();
    loop.queueInLoop([&] {
      second = loop.iteration();
      loop.quit();
    });
  });
  runLoop(loop);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 2);
}

TEST(EventLoop, RunInLoopOnTheLoopThreadRunsAtOnce) {
  EventLoop loop;
  std::vector<std::string> order;
  loop.queueInLoop([&] {
    order.push_back("outer begins");
    loop.runInLoop([&] { order.push_back("inner"); });
    order.push_back("outer ends");
    loop.quit();
  });
  runLoop(loop);
  EXPECT_EQ(order, (std::vector<std::string>{"outer begins", "inner", "outer ends"}));
}

TEST(EventLoop, FunctorsRunInOrderOfArrival) {
  EventLoop loop;
  std::vector<int> order;
  for (int i = 0; i < 5; ++i) loop.queueInLoop([&order, i] { order.push_back(i); });
  loop.queueInLoop([&] { loop.quit(); });
  runLoop(loop);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(EventLoop, FunctorQueuedByAnEventCallbackRunsInTheSamePass) {
  EventLoop loop;
  SocketPair pair;
  Channel channel(&loop, pair.reader());
  int64_t readPass = -1, functorPass = -1;
  channel.setReadCallback([&](Timestamp) {
    char byte;
    EXPECT_EQ(platform::recvSocket(pair.reader(), &byte, 1), 1);
    readPass = loop.iteration();
    loop.queueInLoop([&] {
      functorPass = loop.iteration();
      loop.quit();
    });
  });
  channel.enableReading();
  ASSERT_EQ(platform::sendSocket(pair.writer(), "x", 1), 1);
  runLoop(loop);
  EXPECT_GE(readPass, 1);
  EXPECT_EQ(functorPass, readPass);
  channel.disableAll();
  channel.remove();
}

TEST(EventLoop, FunctorQueuedByATimerRunsOnTheNextPass) {
  EventLoop loop;
  int64_t timerPass = -1, functorPass = -1;
  loop.runAfter(0.0, [&] {
    timerPass = loop.iteration();
    loop.queueInLoop([&] {
      functorPass = loop.iteration();
      loop.quit();
    });
  });
  runLoop(loop);
  EXPECT_EQ(timerPass, 1);
  EXPECT_EQ(functorPass, 2);
}

TEST(EventLoop, QuitInsideAPassFinishesThePassAndLeavesLaterFunctorsUnrun) {
  auto sentinel = std::make_shared<int>(0);
  bool lateFunctorRan = false;
  int everyPassCalls = 0;
  bool timerRan = false;
  {
    EventLoop loop;
    Channel everyPass(&loop, -1);
    everyPass.setReadCallback([&](Timestamp) { ++everyPassCalls; });
    loop.addEveryPassChannel(&everyPass);
    loop.runAfter(0.0, [&] { timerRan = true; });
    loop.queueInLoop([&, sentinel] {
      loop.quit();
      loop.queueInLoop([&, sentinel] { lateFunctorRan = true; });
    });
    runLoop(loop);
    EXPECT_EQ(loop.iteration(), 1);
    EXPECT_TRUE(timerRan);  // timers run after the functors of the pass
    EXPECT_EQ(everyPassCalls, 1);
    EXPECT_EQ(sentinel.use_count(), 2);  // still held by the pending functor
  }
  EXPECT_FALSE(lateFunctorRan);
  EXPECT_EQ(sentinel.use_count(), 1);  // destroyed with the loop
}

TEST(EventLoop, QuitBeforeLoopIsForgotten) {
  EventLoop loop;
  loop.quit();
  int passes = 0;
  std::function<void()> again = [&] {
    if (++passes < 3) {
      loop.queueInLoop(again);
    } else {
      loop.quit();
    }
  };
  loop.queueInLoop(again);
  runLoop(loop);
  EXPECT_EQ(passes, 3);
  EXPECT_EQ(loop.iteration(), 3);
}

TEST(EventLoop, QuitFromAnotherThreadWakesTheLoop) {
  EventLoop loop;
  CountDownLatch looping(1);
  loop.queueInLoop([&] { looping.countDown(); });
  std::thread other([&] {
    looping.wait();
    EXPECT_FALSE(loop.isInLoopThread());
    loop.quit();
  });
  runLoop(loop);
  other.join();
}

TEST(EventLoop, FunctorsFromOtherThreadsRunOnTheLoopThreadInOrder) {
  EventLoop loop;
  constexpr int kThreads = 3;
  constexpr int kPerThread = 200;
  std::vector<std::vector<int>> seen(kThreads);
  int wrongThread = 0;
  CountDownLatch done(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        auto record = [&, t, i] {
          if (!loop.isInLoopThread()) ++wrongThread;
          seen[static_cast<size_t>(t)].push_back(i);
        };
        if (i % 2) {
          loop.runInLoop(record);
        } else {
          loop.queueInLoop(record);
        }
      }
      loop.queueInLoop([&] { done.countDown(); });
    });
  }
  // Quit once every thread's last functor has run.
  loop.runEvery(0.0005, [&] {
    if (done.getCount() == 0) loop.quit();
  });
  runLoop(loop);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrongThread, 0);
  std::vector<int> expected;
  for (int i = 0; i < kPerThread; ++i) expected.push_back(i);
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(seen[static_cast<size_t>(t)], expected);
}

TEST(EventLoop, IsInLoopThread) {
  EventLoop loop;
  EXPECT_TRUE(loop.isInLoopThread());
  bool elsewhere = true;
  std::thread([&] { elsewhere = loop.isInLoopThread(); }).join();
  EXPECT_FALSE(elsewhere);
}

TEST(EventLoop, ExceptionsFromFunctorsLeaveTheLoop) {
  {
    EventLoop loop;
    loop.queueInLoop([] { throw std::runtime_error("from a functor"); });
    EXPECT_THROW(loop.loop(), std::runtime_error);
  }
  {
    EventLoop loop;
    loop.queueInLoop(EventLoop::Functor());
    EXPECT_THROW(loop.loop(), std::bad_function_call);
  }
}

TEST(LoopbackPair, EndsAreConnectedToEachOther) {
  SocketPair pair;
  ASSERT_GE(pair.reader(), 0);
  ASSERT_GE(pair.writer(), 0);
  sockaddr_in peerOfReader, writerAddr;
  ASSERT_EQ(platform::peerAddress(pair.reader(), &peerOfReader), 0);
  ASSERT_EQ(platform::localAddress(pair.writer(), &writerAddr), 0);
  EXPECT_EQ(peerOfReader.sin_port, writerAddr.sin_port);
  EXPECT_EQ(ntohl(peerOfReader.sin_addr.s_addr), INADDR_LOOPBACK);
  char buf[8] = {0};
  ASSERT_EQ(platform::sendSocket(pair.writer(), "12345678", 8), 8);
  ASSERT_EQ(platform::recvSocket(pair.reader(), buf, 8), 8);
  EXPECT_EQ(std::memcmp(buf, "12345678", 8), 0);
}

// Pairs made on several threads at the same moment never cross: what goes into
// a pair's write end comes out of its own read end.
TEST(LoopbackPair, PairsMadeConcurrentlyAreEachConnectedToThemselves) {
  constexpr int kThreads = 4;
  constexpr int kPairs = 20;
  int crossed = 0;
  velmar::utility::MutexLock mutex;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPairs; ++i) {
        int fds[2];
        if (velmar::net::createLoopbackPair(fds) != 0) {
          velmar::utility::MutexLockGuard lock(mutex);
          ++crossed;
          continue;
        }
        int token = t * 1000 + i, got = -1;
        bool ok = platform::sendSocket(fds[1], &token, sizeof token) == sizeof token &&
                  platform::recvSocket(fds[0], &got, sizeof got) == sizeof got && got == token;
        platform::closeSocket(fds[0]);
        platform::closeSocket(fds[1]);
        if (!ok) {
          velmar::utility::MutexLockGuard lock(mutex);
          ++crossed;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(crossed, 0);
}

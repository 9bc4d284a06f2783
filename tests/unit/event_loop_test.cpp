// The loop's passes: where functors handed in from the loop thread and from
// other threads run, quitting, and what is left when the loop goes.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
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

// A functor queued from the functor step or from a timer runs on the next
// pass; runInLoop on the loop thread runs at once.
TEST(EventLoop, FunctorQueuedOnTheLoopThreadRunsOnTheNextPass) {
  for (bool fromTimer : {false, true}) {
    SCOPED_TRACE(fromTimer ? "from a timer" : "from a functor");
    EventLoop loop;
    loop.quit();  // before loop(): forgotten, or the loop would end after one pass
    int64_t first = -1, second = -1;
    auto queueNext = [&] {
      first = loop.iteration();
      bool inner = false;
      loop.runInLoop([&] { inner = true; });  // on the loop thread: at once
      EXPECT_TRUE(inner);
      loop.queueInLoop([&] {
        second = loop.iteration();
        loop.quit();
      });
    };
    fromTimer ? (void)loop.runAfter(0.0, queueNext) : loop.queueInLoop(queueNext);
    runLoop(loop);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
  }
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

// Handed over by runInLoop and queueInLoop alike, in each thread's order.
TEST(EventLoop, FunctorsFromOtherThreadsRunOnTheLoopThreadInOrder) {
  EventLoop loop;
  constexpr int kThreads = 3, kPerThread = 200;
  std::vector<std::vector<int>> seen(kThreads);
  int wrongThread = 0;
  CountDownLatch done(kThreads);
  std::vector<std::thread> threads;
  for (auto& fromOne : seen) {
    threads.emplace_back([&, out = &fromOne] {
      for (int i = 0; i < kPerThread; ++i) {
        auto record = [&, out, i] {
          if (!loop.isInLoopThread()) ++wrongThread;
          out->push_back(i);
        };
        i % 2 ? loop.runInLoop(record) : loop.queueInLoop(record);
      }
      loop.queueInLoop([&] { done.countDown(); });
    });
  }
  loop.runEvery(0.0005, [&] {
    if (done.getCount() == 0) loop.quit();
  });
  runLoop(loop);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrongThread, 0);
  std::vector<int> expected;
  for (int i = 0; i < kPerThread; ++i) expected.push_back(i);
  EXPECT_EQ(seen, std::vector<std::vector<int>>(kThreads, expected));
}

// The wake-up pairs of loops made on several threads at once never cross:
// what goes into a pair's write end comes out of its own read end.
TEST(LoopbackPair, PairsMadeConcurrentlyAreEachConnectedToThemselves) {
  constexpr int kThreads = 4, kPairs = 20;
  std::vector<int> crossed(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPairs; ++i) {
        int fds[2] = {-1, -1}, token = t * 1000 + i, got = -1;
        if (velmar::net::createLoopbackPair(fds) != 0 ||
            platform::sendSocket(fds[1], &token, sizeof token) != sizeof token ||
            platform::recvSocket(fds[0], &got, sizeof got) != sizeof got || got != token) {
          ++crossed[static_cast<size_t>(t)];
        }
        if (fds[0] >= 0) platform::closeSocket(fds[0]);
        if (fds[1] >= 0) platform::closeSocket(fds[1]);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(crossed, std::vector<int>(kThreads, 0));
}

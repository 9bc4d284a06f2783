// Timers: expiry order, repetition, and cancellation before, during and after
// expiry, driven by the loop's passes alone (nothing is sent on any socket).
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/EventLoop.h"
#include "VLNet/TimerQueue.h"
#include "support/LoopTestUtil.h"
#include "utility/CountDownLatch.h"

using velmar::Timestamp;
using velmar::net::EventLoop;
using velmar::net::TimerId;
using velmar::net::TimerQueue;
using velmar::testing::runLoop;
using velmar::utility::CountDownLatch;

namespace {

// Quits the loop after at least `passes` more passes: a repeating timer
// fires at most once a pass.
void quitAfterPasses(EventLoop& loop, int passes) {
  auto left = std::make_shared<int>(passes);
  loop.runEvery(0.000001, [&loop, left] {
    if (--*left == 0) loop.quit();
  });
}

}  // namespace

TEST(Timer, RunAfterZeroRunsOnTheFirstPass) {
  EventLoop loop;
  int64_t pass = -1;
  loop.runAfter(0.0, [&] {
    pass = loop.iteration();
    loop.quit();
  });
  runLoop(loop);
  EXPECT_EQ(pass, 1);
}

TEST(Timer, TimersRunInOrderOfExpiry) {
  EventLoop loop;
  std::vector<std::string> order;
  loop.runAfter(0.003, [&] {
    order.push_back("3 ms");
    loop.quit();
  });
  loop.runAfter(0.001, [&] { order.push_back("1 ms"); });
  loop.runAfter(0.002, [&] { order.push_back("2 ms"); });
  runLoop(loop);
  EXPECT_EQ(order, (std::vector<std::string>{"1 ms", "2 ms", "3 ms"}));
}

TEST(Timer, TimersAlreadyDueRunInTheSamePassInTimeOrder) {
  EventLoop loop;
  std::vector<std::pair<std::string, int64_t>> runs;
  loop.runAfter(-1.0, [&] { runs.emplace_back("later", loop.iteration()); });
  loop.runAfter(-2.0, [&] { runs.emplace_back("earlier", loop.iteration()); });
  loop.runAfter(0.0, [&] { loop.quit(); });
  runLoop(loop);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].first, "earlier");
  EXPECT_EQ(runs[1].first, "later");
  EXPECT_EQ(runs[0].second, runs[1].second);
}

TEST(Timer, TimersWithTheSameTimeExpireInTheSamePass) {
  EventLoop loop;
  TimerQueue queue(&loop);  // a second queue on the loop, to choose the exact time
  Timestamp when = Timestamp::now();
  std::vector<int64_t> passes;
  queue.addTimer([&] { passes.push_back(loop.iteration()); }, when, 0.0);
  queue.addTimer([&] { passes.push_back(loop.iteration()); }, when, 0.0);
  EXPECT_EQ(queue.size(), 2u);
  loop.runAfter(0.0, [&] { loop.quit(); });
  runLoop(loop);
  ASSERT_EQ(passes.size(), 2u);
  EXPECT_EQ(passes[0], passes[1]);
  EXPECT_EQ(queue.size(), 0u);
}

TEST(Timer, NonPositiveIntervalMakesAOneShotTimer) {
  EventLoop loop;
  int zero = 0, negative = 0;
  loop.runEvery(0.0, [&] { ++zero; });
  loop.runEvery(-0.5, [&] { ++negative; });
  quitAfterPasses(loop, 20);
  runLoop(loop);
  EXPECT_EQ(zero, 1);
  EXPECT_EQ(negative, 1);
}

TEST(Timer, RepeatingTimerFiresAtMostOncePerPassUntilItCancelsItself) {
  EventLoop loop;
  std::vector<int64_t> passes;
  TimerId id;
  id = loop.runEvery(0.000001, [&] {
    passes.push_back(loop.iteration());
    if (passes.size() == 5) {
      loop.cancel(id);  // from its own callback
      quitAfterPasses(loop, 20);
    }
  });
  runLoop(loop);
  ASSERT_EQ(passes.size(), 5u);
  for (size_t i = 1; i < passes.size(); ++i) EXPECT_GT(passes[i], passes[i - 1]);
}

TEST(Timer, CancelBeforeExpiry) {
  EventLoop loop;
  bool ran = false;
  TimerId id = loop.runAfter(0.001, [&] { ran = true; });
  loop.cancel(id);
  loop.runAfter(0.005, [&] { loop.quit(); });
  runLoop(loop);
  EXPECT_FALSE(ran);
}

TEST(Timer, CancelAfterExpiryAndTwiceHasNoEffect) {
  EventLoop loop;
  int runs = 0;
  TimerId fired = loop.runAfter(0.0, [&] { ++runs; });
  TimerId repeating = loop.runEvery(0.000001, [] {});
  loop.runAfter(0.002, [&] {
    loop.cancel(fired);  // fired and deleted already
    loop.cancel(repeating);
    loop.cancel(repeating);
    loop.cancel(TimerId());
    quitAfterPasses(loop, 5);
  });
  runLoop(loop);
  EXPECT_EQ(runs, 1);
}

// A callback that cancels another timer expired in the same pass cannot stop
// that timer's run in this pass, but a repeating one is not put back.
TEST(Timer, CancellingAnotherTimerExpiredInTheSamePass) {
  EventLoop loop;
  TimerQueue queue(&loop);
  Timestamp when = Timestamp::now();
  int repeatingRuns = 0, cancellerRuns = 0;
  TimerId repeating = queue.addTimer([&] { ++repeatingRuns; }, when, 0.000001);
  queue.addTimer(
      [&] {
        ++cancellerRuns;
        queue.cancel(repeating);
      },
      when, 0.0);
  quitAfterPasses(loop, 20);
  runLoop(loop);
  EXPECT_EQ(cancellerRuns, 1);
  EXPECT_EQ(repeatingRuns, 1);
  EXPECT_EQ(queue.size(), 0u);
}

TEST(Timer, AddAndCancelOnTheLoopThreadTakeEffectAtOnce) {
  EventLoop loop;
  TimerQueue queue(&loop);
  TimerId a = queue.addTimer([] {}, Timestamp::now(), 1.0);
  TimerId b = queue.addTimer([] {}, Timestamp::now(), 0.0);
  EXPECT_EQ(queue.size(), 2u);
  EXPECT_GT(b.sequence(), a.sequence());
  queue.cancel(a);
  EXPECT_EQ(queue.size(), 1u);
  queue.cancel(a);
  EXPECT_EQ(queue.size(), 1u);
  queue.cancel(b);
  EXPECT_EQ(queue.size(), 0u);
}

TEST(Timer, AddAndCancelFromAnotherThread) {
  EventLoop loop;
  TimerQueue queue(&loop);
  bool ranOnLoopThread = false;
  bool cancelledRan = false;
  size_t sizeAtEnd = 99;
  CountDownLatch looping(1);
  loop.queueInLoop([&] { looping.countDown(); });
  std::thread other([&] {
    looping.wait();
    TimerId longOne = queue.addTimer([&] { cancelledRan = true; },
                                     velmar::addTime(Timestamp::now(), 3600.0), 3600.0);
    queue.cancel(longOne);
    loop.runAfter(0.0, [&] {
      ranOnLoopThread = loop.isInLoopThread();
      sizeAtEnd = queue.size();
      loop.quit();
    });
  });
  runLoop(loop);
  other.join();
  EXPECT_TRUE(ranOnLoopThread);
  EXPECT_FALSE(cancelledRan);
  EXPECT_EQ(sizeAtEnd, 0u);
}

TEST(Timer, ExceptionFromATimerCallbackLeavesTheLoop) {
  EventLoop loop;
  int runs = 0;
  loop.runEvery(0.000001, [&] {
    ++runs;
    throw std::runtime_error("from a timer");
  });
  EXPECT_THROW(loop.loop(), std::runtime_error);
  EXPECT_EQ(runs, 1);
}

TEST(Timer, TimerHandedInFromAnotherThreadDiesWithALoopThatNeverRan) {
  int runs = 0;
  {
    EventLoop loop;
    std::thread([&] { loop.runAfter(0.0, [&] { ++runs; }); }).join();
  }
  EXPECT_EQ(runs, 0);  // and nothing leaks (checked by the sanitizer build)
}

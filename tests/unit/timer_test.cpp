// Timers: expiry order, repetition, and cancellation before, during and after
// expiry, driven by the loop's passes alone (nothing is sent on any socket).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VLNet/EventLoop.h"
#include "VLNet/TimerQueue.h"
#include "support/LoopTestUtil.h"

using velmar::Timestamp;
using velmar::net::EventLoop;
using velmar::net::TimerId;
using velmar::net::TimerQueue;
using velmar::testing::runLoop;

namespace {

// Runs `then` (by default: quits the loop) after at least `passes` more
// passes: a repeating timer fires at most once a pass.
void afterPasses(EventLoop& loop, int passes, std::function<void()> then = nullptr) {
  auto left = std::make_shared<int>(passes);
  loop.runEvery(0.000001, [&loop, left, then] {
    if (--*left != 0) return;
    then ? then() : loop.quit();
  });
}

}  // namespace

// Everything already due runs in one pass, earliest first; timers due at the
// very same time both count as due.
TEST(Timer, DueTimersRunInTheSamePassInTimeOrder) {
  EventLoop loop;
  TimerQueue queue(&loop);  // a second queue on the loop, to choose the exact time
  Timestamp now = Timestamp::now();
  std::vector<std::string> order;
  auto record = [&](const char* name) { return [&, name] { order.push_back(name); }; };
  queue.addTimer(record("later"), velmar::addTime(now, -1.0), 0.0);
  queue.addTimer(record("earlier"), velmar::addTime(now, -2.0), 0.0);
  queue.addTimer(record("same"), now, 0.0);
  queue.addTimer(record("same"), now, 0.0);
  loop.runAfter(0.0, [&] { loop.quit(); });  // the loop ends after this pass
  runLoop(loop);
  EXPECT_EQ(loop.iteration(), 1);
  EXPECT_EQ(order, (std::vector<std::string>{"earlier", "later", "same", "same"}));
  EXPECT_EQ(queue.size(), 0u);
}

// A non-positive interval makes a one-shot timer; a repeating one fires at
// most once a pass, until it cancels itself from its own callback.
TEST(Timer, RepeatingTimerFiresOncePerPassUntilItCancelsItself) {
  EventLoop loop;
  int zero = 0, negative = 0;
  loop.runEvery(0.0, [&] { ++zero; });
  loop.runEvery(-0.5, [&] { ++negative; });
  std::vector<int64_t> passes;
  TimerId id;
  id = loop.runEvery(0.000001, [&] {
    passes.push_back(loop.iteration());
    if (passes.size() == 5) {
      loop.cancel(id);
      afterPasses(loop, 20);
    }
  });
  runLoop(loop);
  EXPECT_EQ(zero, 1);
  EXPECT_EQ(negative, 1);
  ASSERT_EQ(passes.size(), 5u);
  for (size_t i = 1; i < passes.size(); ++i) EXPECT_GT(passes[i], passes[i - 1]);
}

// Cancelling on the loop thread takes effect at once. A timer cancelled by
// another expired in the same pass still runs in that pass but is not put
// back; a timer that has run, a second cancel and an empty id change nothing.
TEST(Timer, CancelBeforeDuringAndAfterExpiry) {
  EventLoop loop;
  TimerQueue queue(&loop);
  Timestamp now = Timestamp::now();
  int repeatingRuns = 0, cancellerRuns = 0;
  bool cancelledRan = false;
  TimerId pending = queue.addTimer([&] { cancelledRan = true; }, velmar::addTime(now, 0.001), 0);
  TimerId repeating = queue.addTimer([&] { ++repeatingRuns; }, now, 0.000001);
  TimerId canceller = queue.addTimer(
      [&] {
        ++cancellerRuns;
        queue.cancel(repeating);
      },
      now, 0.0);
  queue.cancel(pending);
  EXPECT_EQ(queue.size(), 2u);
  afterPasses(loop, 10, [&] {
    queue.cancel(canceller);
    queue.cancel(repeating);
    queue.cancel(TimerId());
    EXPECT_EQ(queue.size(), 0u);
    loop.quit();
  });
  runLoop(loop);
  EXPECT_FALSE(cancelledRan);
  EXPECT_EQ(cancellerRuns, 1);
  EXPECT_EQ(repeatingRuns, 1);
}

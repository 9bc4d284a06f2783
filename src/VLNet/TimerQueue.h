// The timers of one EventLoop. Nothing is armed and no descriptor fires: the
// loop calls the queue's expiry handler once on every pass (the poll waits at
// most 1 ms), so a timer runs at the end of the first pass after its time.
//
// Its channel has no socket. It is not in the poller; the loop calls it as an
// every-pass channel, with revents set to read, which runs handleRead. (A
// socket pair on which nobody ever sends would only cost two sockets and a
// connection per loop, and add a way for the loop's construction to fail.)
#pragma once

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "VLNet/Callbacks.h"
#include "VLNet/Channel.h"
#include "VLNet/TimerId.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace net {

class EventLoop;
class Timer;

class TimerQueue {
 public:
  /// On the loop thread.
  explicit TimerQueue(EventLoop* loop);
  ~TimerQueue();
  TimerQueue(const TimerQueue&) = delete;
  TimerQueue& operator=(const TimerQueue&) = delete;

  /// Any thread. Allocates the timer on the caller's thread and hands it to
  /// the loop; on the loop thread it is in the queue when this returns.
  TimerId addTimer(TimerCallback cb, Timestamp when, double interval);
  /// Any thread; on the loop thread it takes effect at once. An old, unknown
  /// or default id has no effect.
  void cancel(TimerId timerId);

  /// Number of timers waiting, for inspection on the loop thread.
  size_t size() const { return timers_.size(); }

 private:
  using Entry = std::pair<Timestamp, Timer*>;
  using TimerList = std::set<Entry>;  // by time, then address; owns the timers
  using ActiveTimer = std::pair<Timer*, int64_t>;
  using ActiveTimerSet = std::set<ActiveTimer>;

  void addTimerInLoop(Timer* timer);
  void cancelInLoop(TimerId timerId);
  void handleRead();
  std::vector<Entry> getExpired(Timestamp now);
  void insert(Timer* timer);

  EventLoop* loop_;
  Channel timerChannel_;
  TimerList timers_;
  ActiveTimerSet timersById_;  // the same timers by identity
  bool runningExpired_;
  ActiveTimerSet cancelledWhileRunning_;  // expired this pass, cancelled from a callback
};

}  // namespace net
}  // namespace velmar

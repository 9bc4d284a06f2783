#include "VLNet/TimerQueue.h"

#include <cstdint>
#include <memory>

#include "VLNet/EventLoop.h"
#include "VLNet/Timer.h"

namespace velmar {
namespace net {

std::atomic<int64_t> Timer::s_numCreated_{0};

namespace {

// A timer on its way to the loop thread. If the loop ends before the hand-over
// runs, the pending functor is destroyed unrun and takes the timer with it.
struct TimerInTransit {
  explicit TimerInTransit(Timer* t) : timer(t) {}
  ~TimerInTransit() { delete timer; }
  Timer* timer;
};

}  // namespace

TimerQueue::TimerQueue(EventLoop* loop)
    : loop_(loop), timerChannel_(loop, -1), runningExpired_(false) {
  timerChannel_.setReadCallback([this](Timestamp) { handleRead(); });
  loop_->addEveryPassChannel(&timerChannel_);
}

TimerQueue::~TimerQueue() {
  for (const Entry& entry : timers_) delete entry.second;
}

TimerId TimerQueue::addTimer(TimerCallback cb, Timestamp when, double interval) {
  Timer* timer = new Timer(std::move(cb), when, interval);
  // Read before the hand-over: from then on only the loop thread touches it.
  TimerId id(timer, timer->sequence());
  if (loop_->isInLoopThread()) {
    addTimerInLoop(timer);
  } else {
    auto transit = std::make_shared<TimerInTransit>(timer);
    loop_->runInLoop([this, transit] {
      Timer* t = transit->timer;
      transit->timer = nullptr;
      addTimerInLoop(t);
    });
  }
  return id;
}

void TimerQueue::cancel(TimerId timerId) {
  if (loop_->isInLoopThread()) {
    cancelInLoop(timerId);
  } else {
    loop_->runInLoop([this, timerId] { cancelInLoop(timerId); });
  }
}

void TimerQueue::addTimerInLoop(Timer* timer) {
  loop_->assertInLoopThread();
  insert(timer);
}

void TimerQueue::cancelInLoop(TimerId timerId) {
  loop_->assertInLoopThread();
  ActiveTimer key(timerId.timer_, timerId.sequenceNumber_);
  auto found = timersById_.find(key);
  if (found != timersById_.end()) {
    // Found by identity, so the address is a live timer of ours.
    Timer* timer = found->first;
    timers_.erase(Entry(timer->expiration(), timer));
    timersById_.erase(found);
    delete timer;
  } else if (runningExpired_) {
    // Expired in this very pass (also a timer cancelling itself): it has run
    // or will run in this pass, but is not put back.
    cancelledWhileRunning_.insert(key);
  }
}

void TimerQueue::insert(Timer* timer) {
  loop_->assertInLoopThread();
  timers_.insert(Entry(timer->expiration(), timer));
  timersById_.insert(ActiveTimer(timer, timer->sequence()));
}

std::vector<TimerQueue::Entry> TimerQueue::getExpired(Timestamp now) {
  std::vector<Entry> expired;
  // Everything before the first entry not less than (now, highest address)
  // expires at or before now.
  Entry sentry(now, reinterpret_cast<Timer*>(UINTPTR_MAX));
  auto end = timers_.lower_bound(sentry);
  if (end == timers_.begin()) return expired;
  expired.assign(timers_.begin(), end);
  timers_.erase(timers_.begin(), end);
  for (const Entry& entry : expired) {
    timersById_.erase(ActiveTimer(entry.second, entry.second->sequence()));
  }
  return expired;
}

// Runs on every pass of the loop, whether or not a timer has expired.
void TimerQueue::handleRead() {
  loop_->assertInLoopThread();
  Timestamp now = Timestamp::now();
  std::vector<Entry> expired = getExpired(now);
  if (expired.empty()) return;

  // If a callback throws, the exception leaves the loop; the timers of this
  // pass are freed and never run again.
  struct ExpiredGuard {
    TimerQueue* queue;
    std::vector<Entry>* expired;
    ~ExpiredGuard() {
      if (!expired) return;
      queue->runningExpired_ = false;
      for (const Entry& entry : *expired) delete entry.second;
    }
  } guard{this, &expired};

  runningExpired_ = true;
  cancelledWhileRunning_.clear();
  for (const Entry& entry : expired) entry.second->run();
  runningExpired_ = false;
  guard.expired = nullptr;

  // A repeating timer is rescheduled from the time of this pass, not from its
  // previous expiry: it drifts by the lateness of the pass and never fires
  // twice to catch up.
  for (const Entry& entry : expired) {
    Timer* timer = entry.second;
    if (timer->repeat() && cancelledWhileRunning_.find(ActiveTimer(timer, timer->sequence())) ==
                               cancelledWhileRunning_.end()) {
      timer->restart(now);
      insert(timer);
    } else {
      delete timer;
    }
  }
}

}  // namespace net
}  // namespace velmar

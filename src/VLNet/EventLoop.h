// The reactor: one loop per thread, run by the thread that constructed it.
// Each pass polls the sockets for at most 1 ms, handles the ready channels,
// runs the functors handed in from anywhere, and then calls the every-pass
// channels, among them the timer queue's expiry handler. Other threads reach
// the loop through runInLoop/queueInLoop, which wake it through a connected
// loopback socket pair of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "VLNet/Callbacks.h"
#include "VLNet/TimerId.h"
#include "utility/Mutex.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace net {

class Channel;
class Poller;
class TimerQueue;

/// Makes a connected pair of blocking loopback TCP sockets: fds[0] is the read
/// end (the accepted socket), fds[1] the write end (the connecting socket).
/// The listener takes a port the system chooses on 127.0.0.1, and the accepted
/// peer is checked to be our own connecting socket, so two pairs made at the
/// same moment, in one process or in two, never cross. Returns 0, or -1 with
/// the socket error in platform::lastSocketError() and nothing left open.
int createLoopbackPair(int fds[2]);

class EventLoop {
 public:
  using Functor = net::Functor;

  /// On the thread that will run the loop. A loop that cannot make its wake-up
  /// pair could never be reached from another thread: that ends the process
  /// with a FATAL line rather than leaving a loop that looks alive.
  EventLoop();
  /// On the loop's thread. Functors still pending are destroyed unrun.
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Runs passes until quit() is seen at the end of one. Loop thread only.
  void loop();
  /// Any thread. The loop stops at the end of the current pass; a quit()
  /// before loop() is forgotten.
  void quit();

  /// Any thread: runs cb at once on the loop thread, else queues it.
  void runInLoop(Functor cb);
  /// Any thread: cb runs on the loop thread in this pass's functor step if
  /// queued before it (from an event callback), otherwise in the next pass.
  void queueInLoop(Functor cb);

  /// One-shot timer, `delay` seconds from now. Any thread.
  TimerId runAfter(double delay, TimerCallback cb);
  /// Repeating timer, first `interval` seconds from now; an interval of 0 or
  /// less makes it one-shot. Any thread.
  TimerId runEvery(double interval, TimerCallback cb);
  /// Any thread; on the loop thread it takes effect at once.
  void cancel(TimerId timerId);

  /// Makes the current or next poll return.
  void wakeup();
  void updateChannel(Channel* channel);
  void removeChannel(Channel* channel);
  bool hasChannel(Channel* channel);
  /// The channel is called on every pass, after the functors, with revents
  /// set to read. Meant for construction time; there is no way to take one out.
  void addEveryPassChannel(Channel* channel);

  bool isInLoopThread() const;
  void assertInLoopThread() const {
    if (!isInLoopThread()) abortNotInLoopThread();
  }

  /// Number of polls made so far. Loop thread.
  int64_t iteration() const { return iteration_; }
  /// The time returned by the last poll (taken before its wait). Loop thread.
  Timestamp pollReturnTime() const { return lastPollTime_; }
  bool eventHandling() const { return handlingEvents_.load(); }
  uint64_t threadId() const { return threadId_; }
  /// The loop's poller, for inspection on the loop thread.
  Poller* poller() const { return poller_.get(); }

 private:
  void abortNotInLoopThread() const;
  void handleRead();  // drains one wake-up
  void doPendingFunctors();

  std::atomic<bool> looping_;
  std::atomic<bool> quit_;
  std::atomic<bool> handlingEvents_;
  std::atomic<bool> runningFunctors_;
  int64_t iteration_;
  const uint64_t threadId_;
  Timestamp lastPollTime_;
  int wakeupPair_[2];  // read end, write end
  std::unique_ptr<Poller> poller_;
  std::vector<Channel*> everyPassChannels_;
  std::unique_ptr<TimerQueue> timerQueue_;
  std::unique_ptr<Channel> wakeupChannel_;
  std::vector<Channel*> readyChannels_;
  Channel* currentChannel_;
  utility::MutexLock mutex_;
  std::vector<Functor> pendingFunctors_;  // guarded by mutex_
};

}  // namespace net
}  // namespace velmar

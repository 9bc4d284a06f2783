// A thread that builds an EventLoop on its own stack, hands the loop's address
// to the starter and runs it. The loop lives as long as the thread runs.
#pragma once

#include <functional>
#include <string>

#include "utility/Condition.h"
#include "utility/Mutex.h"
#include "utility/Thread.h"

namespace velmar {
namespace net {

class EventLoop;

class EventLoopThread {
 public:
  /// Called on the new thread with the new loop, before startLoop returns.
  using ThreadInitCallback = std::function<void(EventLoop*)>;

  explicit EventLoopThread(const ThreadInitCallback& cb = ThreadInitCallback(),
                           const std::string& name = std::string());
  /// Quits a loop still running and joins the thread, so that the thread
  /// never outlives the object it writes to.
  ~EventLoopThread();
  EventLoopThread(const EventLoopThread&) = delete;
  EventLoopThread& operator=(const EventLoopThread&) = delete;

  /// Starts the thread and returns its loop once every part of the loop
  /// exists. From then on the cross-thread operations of the loop may be used.
  /// A thread that cannot be created throws std::system_error.
  EventLoop* startLoop();
  /// Any thread. Quits the loop; no effect once the loop has ended.
  void quit();
  /// Not on the loop thread. Waits for the thread to end.
  void join();

  const std::string& name() const { return thread_.name(); }

 private:
  void threadFunc();

  EventLoop* loop_;  // guarded by mutex_
  utility::Thread thread_;
  utility::MutexLock mutex_;
  utility::Condition cond_;
  ThreadInitCallback callback_;
};

}  // namespace net
}  // namespace velmar

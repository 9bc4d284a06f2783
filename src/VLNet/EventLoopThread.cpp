#include "VLNet/EventLoopThread.h"

#include "VLNet/EventLoop.h"
#include "utility/CurrentThread.h"

namespace velmar {
namespace net {

EventLoopThread::EventLoopThread(const ThreadInitCallback& cb, const std::string& name)
    : loop_(nullptr),
      thread_([this] { threadFunc(); }, name),
      mutex_(),
      cond_(mutex_),
      callback_(cb) {}

EventLoopThread::~EventLoopThread() {
  quit();
  if (thread_.started() && !thread_.joined() && thread_.tid() != CurrentThread::tid()) {
    thread_.join();
  }
}

EventLoop* EventLoopThread::startLoop() {
  thread_.start();
  utility::MutexLockGuard lock(mutex_);
  while (loop_ == nullptr) cond_.wait();
  return loop_;
}

// Under the lock, so that a quit() racing with the end of the loop either
// reaches the loop while it still exists or finds it gone.
void EventLoopThread::quit() {
  utility::MutexLockGuard lock(mutex_);
  if (loop_) loop_->quit();
}

void EventLoopThread::join() {
  thread_.join();
}

void EventLoopThread::threadFunc() {
  EventLoop loop;
  if (callback_) callback_(&loop);
  {
    utility::MutexLockGuard lock(mutex_);
    loop_ = &loop;
    cond_.notify();
  }
  loop.loop();
  utility::MutexLockGuard lock(mutex_);
  loop_ = nullptr;
}

}  // namespace net
}  // namespace velmar

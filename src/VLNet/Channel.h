// Channel binds one socket to one EventLoop: the events wanted, the events
// that came, and the callbacks that run for them. It does not own the socket.
// Everything here runs on the loop's thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "utility/Platform.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace net {

class EventLoop;

class Channel {
 public:
  using EventCallback = std::function<void()>;
  using ReadEventCallback = std::function<void(Timestamp)>;

  // Interest masks: read interest is POLLRDNORM alone, write is POLLOUT.
  static constexpr int kNoneEvent = 0;
  static constexpr int kReadEvent = platform::kPollRdNorm;
  static constexpr int kWriteEvent = platform::kPollOut;

  Channel(EventLoop* loop, int fd);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  /// Runs the callbacks for revents(); the time is the poll time of the pass.
  /// A tied channel whose owner is gone handles nothing.
  void handleEvent(Timestamp receiveTime);

  void setReadCallback(ReadEventCallback cb) { readCallback_ = std::move(cb); }
  void setWriteCallback(EventCallback cb) { writeCallback_ = std::move(cb); }
  void setCloseCallback(EventCallback cb) { closeCallback_ = std::move(cb); }
  void setErrorCallback(EventCallback cb) { errorCallback_ = std::move(cb); }

  /// Keeps the owner alive while handleEvent runs: the owner may drop its last
  /// other reference from inside one of the callbacks.
  void tie(const std::shared_ptr<void>& owner);

  int fd() const { return fd_; }
  int events() const { return events_; }
  int revents() const { return revents_; }
  void setRevents(int revents) { revents_ = revents; }
  int index() const { return index_; }
  void setIndex(int index) { index_ = index; }
  bool isNoneEvent() const { return events_ == kNoneEvent; }
  bool isWriting() const { return (events_ & kWriteEvent) != 0; }
  bool isReading() const { return (events_ & kReadEvent) != 0; }
  bool isHandlingEvents() const { return handlingEvents_; }
  EventLoop* ownerLoop() const { return loop_; }

  void enableReading() {
    events_ |= kReadEvent;
    update();
  }
  void enableWriting() {
    events_ |= kWriteEvent;
    update();
  }
  void disableWriting() {
    events_ &= ~kWriteEvent;
    update();
  }
  void disableAll() {
    events_ = kNoneEvent;
    update();
  }
  /// Takes the channel out of the loop's poller. Owners call disableAll first.
  void remove();

  /// "<fd>: " followed by "IN PRI OUT HUP RDHUP ERR NVAL " for the bits set.
  static std::string eventsToString(int fd, int events);

 private:
  void update();
  void handleEventWithGuard(Timestamp receiveTime);

  EventLoop* loop_;
  const int fd_;
  int events_;
  int revents_;
  int index_;  // position in the poller's array, -1 until first added
  bool warnOnHangUp_;
  std::weak_ptr<void> tie_;
  bool tied_;
  bool handlingEvents_;
  bool addedToLoop_;
  ReadEventCallback readCallback_;
  EventCallback writeCallback_;
  EventCallback closeCallback_;
  EventCallback errorCallback_;
};

}  // namespace net
}  // namespace velmar

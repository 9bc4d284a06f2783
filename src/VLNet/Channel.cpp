#include "VLNet/Channel.h"

#include <cassert>
#include <cstdio>

#include "VLNet/EventLoop.h"
#include "utility/Logging.h"

namespace velmar {
namespace net {

Channel::Channel(EventLoop* loop, int fd)
    : loop_(loop),
      fd_(fd),
      events_(kNoneEvent),
      revents_(0),
      index_(-1),
      warnOnHangUp_(true),
      tied_(false),
      handlingEvents_(false),
      addedToLoop_(false) {}

Channel::~Channel() {
  // Owners remove a channel before destroying it, and never from inside its
  // own handleEvent (they defer with queueInLoop).
  assert(!handlingEvents_);
  assert(!addedToLoop_);
}

void Channel::tie(const std::shared_ptr<void>& owner) {
  tie_ = owner;
  tied_ = true;
}

void Channel::update() {
  addedToLoop_ = true;
  loop_->updateChannel(this);
}

void Channel::remove() {
  addedToLoop_ = false;
  loop_->removeChannel(this);
}

void Channel::handleEvent(Timestamp receiveTime) {
  if (tied_) {
    std::shared_ptr<void> guard = tie_.lock();
    if (guard) handleEventWithGuard(receiveTime);
  } else {
    handleEventWithGuard(receiveTime);
  }
}

// The order of the tests matters: a hang-up with readable data left is not a
// close yet (the read callback drains it and sees the end itself), an error
// comes before the read, and the read before the write.
void Channel::handleEventWithGuard(Timestamp receiveTime) {
  // Cleared on every way out: an exception from a callback leaves the loop,
  // and the channel must still be destructible afterwards.
  struct HandlingFlag {
    explicit HandlingFlag(bool& flag) : flag_(flag) { flag_ = true; }
    ~HandlingFlag() { flag_ = false; }
    bool& flag_;
  } handling(handlingEvents_);
  LOG_TRACE << eventsToString(fd_, revents_);
  if ((revents_ & platform::kPollHup) && !(revents_ & platform::kPollIn)) {
    if (warnOnHangUp_) {
      LOG_WARN << "fd = " << fd_ << " Channel::handle_event() POLLHUP";
    }
    if (closeCallback_) closeCallback_();
  }
  if (revents_ & platform::kPollNval) {
    LOG_WARN << "fd = " << fd_ << " Channel::handle_event() POLLNVAL";
  }
  if (revents_ & (platform::kPollErr | platform::kPollNval)) {
    printf("revent:%d\n", revents_);
    fflush(stdout);
    if (errorCallback_) errorCallback_();
  }
  if (revents_ & (platform::kPollIn | platform::kPollPri | platform::kPollRdHup)) {
    if (readCallback_) readCallback_(receiveTime);
  }
  if (revents_ & platform::kPollOut) {
    if (writeCallback_) writeCallback_();
  }
}

std::string Channel::eventsToString(int fd, int events) {
  std::string text = std::to_string(fd);
  text += ": ";
  if (events & platform::kPollIn) text += "IN ";
  if (events & platform::kPollPri) text += "PRI ";
  if (events & platform::kPollOut) text += "OUT ";
  if (events & platform::kPollHup) text += "HUP ";
  if (events & platform::kPollRdHup) text += "RDHUP ";
  if (events & platform::kPollErr) text += "ERR ";
  if (events & platform::kPollNval) text += "NVAL ";
  return text;
}

}  // namespace net
}  // namespace velmar

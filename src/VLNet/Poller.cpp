#include "VLNet/Poller.h"

#include "VLNet/Channel.h"
#include "VLNet/EventLoop.h"
#include "VLNet/WSAPollPoller.h"

namespace velmar {
namespace net {

Poller::Poller(EventLoop* loop) : loop_(loop) {}

Poller::~Poller() = default;

void Poller::assertInLoopThread() const {
  loop_->assertInLoopThread();
}

void Poller::removeChannel(Channel* channel) {
  assertInLoopThread();
  channels_.erase(channel->fd());
}

bool Poller::hasChannel(Channel* channel) const {
  assertInLoopThread();
  auto it = channels_.find(channel->fd());
  return it != channels_.end() && it->second == channel;
}

std::unique_ptr<Poller> Poller::makeDefaultPoller(EventLoop* loop) {
  return std::unique_ptr<Poller>(new WSAPollPoller(loop));
}

}  // namespace net
}  // namespace velmar

#include "VLNet/WSAPollPoller.h"

#include <cerrno>
#include <utility>

#include "VLNet/Channel.h"
#include "utility/Logging.h"

namespace velmar {
namespace net {

WSAPollPoller::WSAPollPoller(EventLoop* loop)
    : Poller(loop), pollFunction_(platform::pollSockets) {}

WSAPollPoller::~WSAPollPoller() = default;

Timestamp WSAPollPoller::poll(int timeoutMs, ChannelList* readyChannels) {
  // Taken before the wait: read callbacks get the time the pass began.
  Timestamp now = Timestamp::now();
  if (pollfds_.empty()) return now;
  int numEvents = pollFunction_(pollfds_.data(), pollfds_.size(), timeoutMs);
  int savedError = platform::lastSocketError();
  if (numEvents > 0) {
    LOG_TRACE << numEvents << " events happended";
    fillReadyChannels(numEvents, readyChannels);
  } else if (numEvents == 0) {
    LOG_TRACE << " nothing happended";
  } else if (savedError != platform::kErrInterruptedPlain) {
    errno = savedError;
    LOG_SYSERR << "PollPoller::poll()";
  }
  return now;
}

void WSAPollPoller::fillReadyChannels(int count, ChannelList* readyChannels) const {
  for (auto it = pollfds_.begin(); it != pollfds_.end() && count > 0; ++it) {
    // Not every WSAPoll passes over a negative handle silently: some mark the
    // entry POLLNVAL (without counting it in the result). It is an ignored
    // channel either way, and nothing is reported for it.
    int fd = platform::pollHandle(*it);
    if (fd < 0) continue;
    int revents = static_cast<int16_t>(it->revents);
    if (revents > 0) {
      --count;
      auto found = channels_.find(fd);
      Channel* channel = found->second;
      channel->setRevents(revents);
      readyChannels->push_back(channel);
    }
  }
}

void WSAPollPoller::updateChannel(Channel* channel) {
  assertInLoopThread();
  LOG_TRACE << "fd = " << channel->fd() << " events = " << channel->events();
  const int fd = channel->fd();
  if (channel->index() < 0) {
    platform::PollFd entry;
    platform::setPollHandle(entry, fd);
    entry.events = static_cast<short>(channel->events() & 0xffff);
    entry.revents = 0;
    pollfds_.push_back(entry);
    channel->setIndex(static_cast<int>(pollfds_.size()) - 1);
    channels_[fd] = channel;
  } else {
    platform::PollFd& entry = pollfds_[static_cast<size_t>(channel->index())];
    entry.events = static_cast<short>(channel->events() & 0xffff);
    entry.revents = 0;
    // The handle is negative exactly while the channel wants nothing, so a
    // channel that is given interest again is polled again.
    platform::setPollHandle(entry, channel->isNoneEvent() ? ~fd : fd);
  }
}

void WSAPollPoller::removeChannel(Channel* channel) {
  assertInLoopThread();
  LOG_TRACE << "fd = " << channel->fd();
  auto found = channels_.find(channel->fd());
  if (found == channels_.end() || found->second != channel) return;  // not added here
  const size_t index = static_cast<size_t>(channel->index());
  channels_.erase(found);
  if (index != pollfds_.size() - 1) {
    int lastFd = platform::pollHandle(pollfds_.back());
    std::swap(pollfds_[index], pollfds_.back());
    if (lastFd < 0) lastFd = ~lastFd;
    channels_[lastFd]->setIndex(static_cast<int>(index));
  }
  pollfds_.pop_back();
  // Back to "never added", so that a channel given interest again after its
  // removal gets a fresh entry instead of writing into another one's.
  channel->setIndex(-1);
}

}  // namespace net
}  // namespace velmar

// The readiness interface of an EventLoop. One poller belongs to one loop and
// is used from that loop's thread only; it keeps a map from socket to Channel
// for every channel added and not yet removed, whether or not the channel
// wants events at the moment.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "utility/Timestamp.h"

namespace velmar {
namespace net {

class Channel;
class EventLoop;

class Poller {
 public:
  using ChannelList = std::vector<Channel*>;

  explicit Poller(EventLoop* loop);
  virtual ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// Waits at most timeoutMs for readiness and appends the ready channels,
  /// their revents set. Returns the time taken before the wait.
  virtual Timestamp poll(int timeoutMs, ChannelList* readyChannels) = 0;
  /// Adds the channel (first time) or changes its interest.
  virtual void updateChannel(Channel* channel) = 0;
  virtual void removeChannel(Channel* channel);
  /// True if the channel's socket is mapped to this very channel.
  bool hasChannel(Channel* channel) const;

  /// The platform's poller; the caller owns it.
  static std::unique_ptr<Poller> makeDefaultPoller(EventLoop* loop);

 protected:
  void assertInLoopThread() const;

  using ChannelMap = std::map<int, Channel*>;
  ChannelMap channels_;

 private:
  EventLoop* loop_;
};

}  // namespace net
}  // namespace velmar

// Poller over the platform's poll (WSAPoll on Windows, poll elsewhere). The
// array handed to the system holds one entry per mapped channel, in no
// particular order; a channel's index() is the position of its entry.
//
// A channel with no interest keeps its entry, with the bitwise complement of
// its socket as the handle: the value is negative, and poll and WSAPoll pass
// over entries with a negative handle (some WSAPoll implementations mark such
// an entry POLLNVAL without counting it, and return WSAENOTSOCK if every entry
// is negative; the walk over the results skips them, and a loop's array
// always holds its wake-up socket). Removal swaps the entry with the last one,
// so it is constant time in the array.
#pragma once

#include <vector>

#include "VLNet/Poller.h"
#include "utility/Platform.h"

namespace velmar {
namespace net {

class WSAPollPoller : public Poller {
 public:
  using PollFdList = std::vector<platform::PollFd>;
  using PollFunction = int (*)(platform::PollFd* fds, size_t count, int timeoutMs);

  explicit WSAPollPoller(EventLoop* loop);
  ~WSAPollPoller() override;

  Timestamp poll(int timeoutMs, ChannelList* readyChannels) override;
  void updateChannel(Channel* channel) override;
  void removeChannel(Channel* channel) override;

  /// The array as the system sees it, for inspection.
  const PollFdList& pollfds() const { return pollfds_; }
  /// Replaces the system call, so that its failures can be produced at will.
  void setPollFunction(PollFunction fn) { pollFunction_ = fn; }

 private:
  void fillReadyChannels(int count, ChannelList* readyChannels) const;

  PollFdList pollfds_;
  PollFunction pollFunction_;
};

}  // namespace net
}  // namespace velmar

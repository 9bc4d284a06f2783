// Poller bookkeeping: the array handed to the system and the channel map stay
// in step through additions, ignoring and removals anywhere in the array.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "VLNet/Channel.h"
#include "VLNet/EventLoop.h"
#include "VLNet/WSAPollPoller.h"
#include "support/LogCapture.h"
#include "utility/Platform.h"

using velmar::Timestamp;
using velmar::net::Channel;
using velmar::net::EventLoop;
using velmar::net::Poller;
using velmar::net::WSAPollPoller;
namespace platform = velmar::platform;

namespace {

// A loop with a few loopback pairs; the channels sit on the read ends and go
// through the loop's own poller, next to the loop's wake-up channel.
class PollerTest : public ::testing::Test {
 protected:
  static constexpr int kPairs = 4;

  void SetUp() override {
    poller_ = dynamic_cast<WSAPollPoller*>(loop_.poller());
    ASSERT_NE(poller_, nullptr);
    for (int i = 0; i < kPairs; ++i) {
      int fds[2];
      ASSERT_EQ(velmar::net::createLoopbackPair(fds), 0);
      readers_.push_back(fds[0]);
      writers_.push_back(fds[1]);
      channels_.emplace_back(new Channel(&loop_, fds[0]));
    }
  }

  void TearDown() override {
    for (auto& channel : channels_) {
      if (loop_.hasChannel(channel.get())) {
        channel->disableAll();
        channel->remove();
      }
    }
    channels_.clear();
    for (int fd : readers_) platform::closeSocket(fd);
    for (int fd : writers_) platform::closeSocket(fd);
  }

  // Every mapped channel's index names its entry; the handle is the socket,
  // or its complement exactly while the channel wants nothing; and the array
  // has one entry per mapped channel (the loop's wake-up channel included), so
  // no two share an entry.
  void checkInvariants(const char* step) {
    SCOPED_TRACE(step);
    const auto& fds = poller_->pollfds();
    size_t mapped = 1;  // the wake-up channel
    for (auto& channel : channels_) {
      if (!loop_.hasChannel(channel.get())) continue;
      ++mapped;
      ASSERT_GE(channel->index(), 0);
      ASSERT_LT(static_cast<size_t>(channel->index()), fds.size());
      const platform::PollFd& entry = fds[static_cast<size_t>(channel->index())];
      int expectedHandle = channel->isNoneEvent() ? ~channel->fd() : channel->fd();
      EXPECT_EQ(platform::pollHandle(entry), expectedHandle);
      EXPECT_EQ(entry.events, static_cast<short>(channel->events()));
    }
    EXPECT_EQ(fds.size(), mapped);
  }

  void send(int i) { ASSERT_EQ(platform::sendSocket(writers_[static_cast<size_t>(i)], "x", 1), 1); }

  // Polls until at least `wanted` channels are ready (data sent on loopback
  // may take a moment), with a generous bound.
  std::vector<Channel*> pollReady(size_t wanted) {
    Poller::ChannelList ready;
    for (int attempt = 0; attempt < 5000 && ready.size() < wanted; ++attempt) {
      ready.clear();
      poller_->poll(1, &ready);
    }
    return ready;
  }

  EventLoop loop_;
  WSAPollPoller* poller_ = nullptr;
  std::vector<int> readers_, writers_;
  std::vector<std::unique_ptr<Channel>> channels_;
};

int g_pollCalls = 0;
int g_pollError = 0;

int failingPoll(platform::PollFd*, size_t, int) {
  ++g_pollCalls;
  platform::setLastSocketError(g_pollError);
  return -1;
}

bool contains(const std::vector<Channel*>& list, Channel* channel) {
  return std::find(list.begin(), list.end(), channel) != list.end();
}

}  // namespace

TEST_F(PollerTest, AddIgnoreAndRemoveFirstMiddleAndLast) {
  checkInvariants("fresh loop");
  for (auto& channel : channels_) channel->enableReading();
  checkInvariants("all added");
  Channel stranger(&loop_, readers_[0]);  // same socket, never added: removes nothing
  EXPECT_FALSE(loop_.hasChannel(&stranger));
  stranger.remove();
  checkInvariants("stranger removed");
  Channel* last = channels_[3].get();
  EXPECT_EQ(last->index(), 4);

  // The last entry is ignored, then a middle one is removed: the ignored last
  // entry moves into the freed position and stays ignored.
  last->disableAll();
  checkInvariants("last ignored");
  int freed = channels_[1]->index();
  channels_[1]->disableAll();
  channels_[1]->remove();
  EXPECT_FALSE(loop_.hasChannel(channels_[1].get()));
  EXPECT_EQ(last->index(), freed);
  checkInvariants("middle removed");

  ASSERT_EQ(static_cast<size_t>(channels_[2]->index()), poller_->pollfds().size() - 1);  // last
  channels_[2]->disableAll();
  channels_[2]->remove();
  checkInvariants("last removed");

  // The first of ours (entry 1, behind the wake-up channel).
  EXPECT_EQ(channels_[0]->index(), 1);
  channels_[0]->disableAll();
  channels_[0]->remove();
  EXPECT_EQ(last->index(), 1);
  checkInvariants("first removed");
  last->remove();
  checkInvariants("only one removed");
  EXPECT_EQ(poller_->pollfds().size(), 1u);

  // A removed channel given interest again gets an entry of its own.
  EXPECT_EQ(channels_[0]->index(), -1);
  channels_[0]->enableReading();
  checkInvariants("added again");
  send(0);
  EXPECT_EQ(pollReady(1), std::vector<Channel*>{channels_[0].get()});
}

TEST_F(PollerTest, ReportsReadyChannelsOnlyAndNeverAnIgnoredOne) {
  for (auto& channel : channels_) channel->enableReading();
  channels_[1]->disableAll();
  send(1);
  send(2);
  std::vector<Channel*> ready = pollReady(1);
  Poller::ChannelList more;  // one more chance for the ignored socket to show up
  poller_->poll(1, &more);
  EXPECT_FALSE(contains(more, channels_[1].get()));
  ASSERT_EQ(ready, std::vector<Channel*>{channels_[2].get()});
  EXPECT_TRUE(ready[0]->revents() & Channel::kReadEvent);
  EXPECT_TRUE(loop_.hasChannel(channels_[1].get()));

  channels_[1]->enableReading();
  checkInvariants("enabled again");
  send(0);
  ready = pollReady(3);
  EXPECT_EQ(ready.size(), 3u);
  EXPECT_FALSE(contains(ready, channels_[3].get()));
}

TEST(Poller, FailedPollIsLoggedUnlessInterruptedAndAnEmptyOneNotMade) {
  EventLoop loop;
  // Nothing to wait for: WSAPoll refuses an empty array, so no call is made.
  WSAPollPoller empty(&loop);
  empty.setPollFunction(failingPoll);
  g_pollCalls = 0;
  Poller::ChannelList ready;
  empty.poll(1000, &ready);
  EXPECT_EQ(g_pollCalls, 0);

  WSAPollPoller* poller = dynamic_cast<WSAPollPoller*>(loop.poller());
  ASSERT_NE(poller, nullptr);
  poller->setPollFunction(failingPoll);
  velmar::testing::LogCapture log(velmar::utility::Logger::INFO);

  g_pollError = platform::kErrInterruptedPlain;
  poller->poll(1, &ready);
  EXPECT_TRUE(ready.empty());
  EXPECT_EQ(log.text(), "");

  g_pollError = platform::kErrInvalid;
  poller->poll(1, &ready);
  poller->poll(1, &ready);
  EXPECT_TRUE(ready.empty());
  std::string text = log.text();
  ASSERT_NE(text.find("ERR    "), std::string::npos) << text;
  EXPECT_NE(text.find("PollPoller::poll()"), std::string::npos) << text;
  EXPECT_NE(text.find("(errno=" + std::to_string(platform::kErrInvalid) + ")"), std::string::npos)
      << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;  // one line per pass
}

// Channel dispatch: which callbacks run, and in which order, for each
// combination of returned events the dispatch tells apart.
#include "VLNet/Channel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "VLNet/EventLoop.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

using velmar::Timestamp;
using velmar::net::Channel;
using velmar::net::EventLoop;
namespace platform = velmar::platform;

namespace {

constexpr int kFd = 4242;  // never registered: handleEvent is called by hand

// Everything the dispatch does goes to the standard output in order: the
// WARN lines, the "revent:" line, and the callbacks' own marks.
std::vector<std::string> dispatch(Channel& channel, int revents) {
  channel.setRevents(revents);
  ::testing::internal::CaptureStdout();
  channel.handleEvent(Timestamp(123));
  std::string out = ::testing::internal::GetCapturedStdout();
  std::vector<std::string> seen;
  std::istringstream lines(out);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find("Channel::handle_event() POLLHUP") != std::string::npos) {
      seen.push_back("warn-hup");
    } else if (line.find("Channel::handle_event() POLLNVAL") != std::string::npos) {
      seen.push_back("warn-nval");
    } else if (line.find("TRACE") == std::string::npos) {
      seen.push_back(line);
    }
  }
  return seen;
}

void markingCallbacks(Channel& channel) {
  channel.setReadCallback([](Timestamp t) {
    EXPECT_EQ(t, Timestamp(123));
    printf("read\n");
  });
  channel.setWriteCallback([] { printf("write\n"); });
  channel.setCloseCallback([] { printf("close\n"); });
  channel.setErrorCallback([] { printf("error\n"); });
}

std::string revent(int revents) {
  return "revent:" + std::to_string(revents);
}

struct DispatchCase {
  const char* name;
  int revents;
  std::vector<std::string> expected;
};

}  // namespace

TEST(Channel, DispatchOrderForEachEventCombination) {
  using namespace platform;
  const int hup = kPollHup, err = kPollErr, nval = kPollNval, out = kPollOut;
  const int rdnorm = kPollRdNorm;
  const std::vector<DispatchCase> cases = {
      {"nothing", 0, {}},
      {"hang-up alone closes", hup, {"warn-hup", "close"}},
      {"hang-up with data left reads, no close", hup | rdnorm, {"read"}},
      {"hang-up with any readable bit reads", hup | kPollIn, {"read"}},
      {"hang-up and error", hup | err, {"warn-hup", "close", revent(hup | err), "error"}},
      {"invalid handle", nval, {"warn-nval", revent(nval), "error"}},
      {"error alone", err, {revent(err), "error"}},
      {"normal data", rdnorm, {"read"}},
      {"every readable bit", kPollIn, {"read"}},
      {"priority data", kPollPri, {"read"}},
      {"read hang-up", kPollRdHup, {"read"}},
      {"writable", out, {"write"}},
      {"readable and writable: read first", rdnorm | out, {"read", "write"}},
      {"error before read before write",
       err | rdnorm | out,
       {revent(err | rdnorm | out), "error", "read", "write"}},
      {"everything wrong at once",
       hup | err | nval | out,
       {"warn-hup", "close", "warn-nval", revent(hup | err | nval | out), "error", "write"}},
  };
  EventLoop loop;
  Channel channel(&loop, kFd);
  markingCallbacks(channel);
  for (const DispatchCase& c : cases) {
    EXPECT_EQ(dispatch(channel, c.revents), c.expected) << c.name;
    EXPECT_FALSE(channel.isHandlingEvents()) << c.name;
  }
  // Without callbacks only the warnings and the error line remain.
  Channel bare(&loop, kFd);
  int all = hup | err | nval | kPollIn | kPollPri | kPollRdHup | out;
  EXPECT_EQ(dispatch(bare, all), (std::vector<std::string>{"warn-nval", revent(all)}));
}

// A tied channel handles nothing once its owner is gone, and keeps a live
// owner alive until the whole dispatch is over, even when a callback drops the
// last other reference.
TEST(Channel, TieGuardsTheOwnerForTheWholeDispatch) {
  EventLoop loop;
  Channel gone(&loop, kFd);
  markingCallbacks(gone);
  auto owner = std::make_shared<int>(1);
  gone.tie(owner);
  EXPECT_EQ(dispatch(gone, platform::kPollRdNorm), (std::vector<std::string>{"read"}));
  owner.reset();
  EXPECT_TRUE(
      dispatch(gone, platform::kPollHup | platform::kPollErr | platform::kPollRdNorm).empty());

  Channel channel(&loop, kFd);
  std::vector<std::string> trace;
  std::shared_ptr<int> dropped(new int(0), [&](int* p) {
    trace.push_back(channel.isHandlingEvents() ? "destroyed while handling"
                                               : "destroyed after handling");
    delete p;
  });
  channel.tie(dropped);
  channel.setReadCallback([&](Timestamp) {
    dropped.reset();
    trace.push_back("read done");
  });
  channel.setWriteCallback([&] { trace.push_back("write"); });
  channel.setRevents(platform::kPollRdNorm | platform::kPollOut);
  channel.handleEvent(Timestamp(1));
  EXPECT_EQ(trace, (std::vector<std::string>{"read done", "write", "destroyed after handling"}));
}

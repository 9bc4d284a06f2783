// The client and its connector against real listeners on 127.0.0.1: refused
// attempts and their growing delays, stops, a connection to itself,
// connection names, and reconnection after a loss.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/Connector.h"
#include "VLNet/EventLoop.h"
#include "VLNet/SocketsOps.h"
#include "VLNet/TcpClient.h"
#include "VLNet/TcpConnection.h"
#include "support/LogCapture.h"
#include "support/LoopTestUtil.h"
#include "support/TcpTestSockets.h"
#include "utility/Platform.h"

using velmar::net::Connector;
using velmar::net::ConnectorPtr;
using velmar::net::EventLoop;
using velmar::net::InetAddress;
using velmar::net::TcpClient;
using velmar::net::TcpConnectionPtr;
using velmar::test::TestListener;
using velmar::testing::LogCapture;
using velmar::testing::runLoop;
using velmar::utility::Logger;
namespace platform = velmar::platform;
namespace sockets = velmar::net::sockets;

namespace {

// Accepts `count` connections one after another and closes each at once.
std::thread acceptAndClose(TestListener& listener, int count) {
  return std::thread([&listener, count] {
    for (int i = 0; i < count; ++i) {
      int fd = listener.accept();
      if (fd < 0) return;
      platform::closeSocket(fd);
    }
  });
}

std::string describe(const TcpConnectionPtr& conn) {
  return (conn->connected() ? "up " : "down ") + conn->name() + " " + conn->stateToString();
}

// Quits the loop once the log shows "do not connect", looking every 10 ms.
void quitWhenGivenUp(EventLoop& loop) {
  loop.runEvery(0.01, [&loop] {
    if (LogCapture::contains("do not connect")) loop.quit();
  });
}

}  // namespace

// Each refusal is reported with the delay before the next attempt, doubling,
// until the listener opens. What is sent before the accept arrives, and the
// connection goes down with a client that holds the last reference to it.
TEST(TcpClient, RetriesWithGrowingDelaysUntilTheListenerOpens) {
  TestListener listener(false);  // bound, not listening: connects are refused
  ASSERT_TRUE(listener.ok());
  LogCapture capture(Logger::INFO);
  EventLoop loop;
  std::vector<int> delays;
  std::vector<std::string> events;
  {
    TcpClient client(&loop, listener.address(), "MdClient");
    client.setConnectFailCallback([&](int delayMs) {
      delays.push_back(delayMs);
      if (delays.size() == 2) listener.listen();
    });
    client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
      events.push_back(describe(conn));
      if (conn->connected()) {
        conn->send("hello", 5);  // nobody has accepted yet
        loop.quit();
      }
    });
    client.connect();
    runLoop(loop, 10.0);
    EXPECT_NE(nullptr, client.connection());
    EXPECT_EQ(Connector::kConnected, client.connector()->state());
  }
  int fd = listener.accept();
  ASSERT_GE(fd, 0);
  std::string received;
  EXPECT_TRUE(velmar::test::recvUntilClosed(fd, &received));
  EXPECT_EQ("hello", received);
  platform::closeSocket(fd);

  EXPECT_EQ((std::vector<int>{500, 1000}), delays);
  const std::string target = listener.address().toIpPort();
  const std::string name = "MdClient:" + target + "#1";
  EXPECT_EQ(
      (std::vector<std::string>{"up " + name + " kConnected", "down " + name + " kDisconnected"}),
      events);
  EXPECT_TRUE(LogCapture::contains("TcpClient::TcpClient[MdClient] - connector 0x"));
  EXPECT_TRUE(LogCapture::contains("TcpClient::connect[MdClient] - connecting to " + target));
  for (const char* delay : {"500", "1000"}) {
    EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " + target + " in " +
                                     delay + " milliseconds. "));
  }
}

// With retry on, a lost connection is followed by a new one, numbered on; a
// stop while connected prevents the next. With retry off nobody comes back.
TEST(TcpClient, LostConnectionIsReplacedOnlyWithRetry) {
  for (bool retry : {true, false}) {
    SCOPED_TRACE(retry ? "retry" : "no retry");
    TestListener listener;
    ASSERT_TRUE(listener.ok());
    LogCapture capture(Logger::INFO);
    EventLoop loop;
    const size_t connections = retry ? 2 : 1;
    std::vector<std::string> events;
    std::thread server = acceptAndClose(listener, static_cast<int>(connections));
    TcpClient client(&loop, listener.address(), "MdClient");
    if (retry) client.enableRetry();
    client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
      events.push_back(describe(conn));
      if (retry && events.size() == 3) client.stop();  // the second connection is up
      if (events.size() == 2 * connections) {
        // After the removal: the connector stays where it was.
        loop.queueInLoop([&] {
          EXPECT_EQ(nullptr, client.connection());
          EXPECT_EQ(Connector::kConnected, client.connector()->state());
          loop.quit();
        });
      }
    });
    client.connect();
    runLoop(loop, 10.0);
    server.join();

    std::vector<std::string> expected;
    for (size_t i = 1; i <= connections; ++i) {
      const std::string name =
          "MdClient:" + listener.address().toIpPort() + "#" + std::to_string(i);
      expected.push_back("up " + name + " kConnected");
      expected.push_back("down " + name + " kDisconnected");
    }
    EXPECT_EQ(expected, events);
    const std::string reconnecting =
        "TcpClient::connect[MdClient] - Reconnecting to " + listener.address().toIpPort();
    const std::string log = LogCapture::text();
    size_t reconnects = 0;
    for (size_t at = log.find(reconnecting); at != std::string::npos;
         at = log.find(reconnecting, at + 1))
      ++reconnects;
    EXPECT_EQ(connections - 1, reconnects);
    EXPECT_EQ(-1, listener.accept(0));
  }
}

// An attempt to a listener with a full backlog stays in flight (its SYN is
// dropped) until stopped: reported once more, closed, and no retry scheduled.
// A socket bound to the server's own port meets itself: a failed attempt,
// stopped once its retry is scheduled, whose timer then finds it stopped.
TEST(Connector, AttemptStoppedInFlightOrConnectedToItselfReportsOnceAndEnds) {
  for (bool toItself : {false, true}) {
    SCOPED_TRACE(toItself ? "connection to itself" : "stop while connecting");
    // Here a connect in progress is waited for before the loop goes on.
    if (!toItself && platform::kConnectWaitsInSelect) continue;
    TestListener listener(true, 0);
    ASSERT_TRUE(listener.ok());
    int filler = platform::createSocket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(0, platform::connectSocket(filler, listener.address().sockAddr()));
    const InetAddress self("127.0.0.1", velmar::test::freeLoopbackPort());
    ASSERT_NE(0, self.port());
    const InetAddress server = toItself ? self : listener.address();

    LogCapture capture(Logger::DEBUG);
    EventLoop loop;
    std::vector<int> delays;
    int connections = 0;
    ConnectorPtr connector =
        std::make_shared<Connector>(&loop, server, toItself ? self : InetAddress());
    connector->setNewConnectionCallback([&](int fd) {
      ++connections;
      sockets::close(fd);
    });
    connector->setRetryCallback([&](int delayMs) {
      delays.push_back(delayMs);
      if (toItself) loop.queueInLoop([&] { connector->stop(); });
    });
    connector->start();
    if (!toItself) {
      ASSERT_EQ(Connector::kConnecting, connector->state());  // start() ran at once
      loop.runAfter(0.05, [&] {
        EXPECT_EQ(Connector::kConnecting, connector->state());
        connector->stop();
      });
    }
    quitWhenGivenUp(loop);
    runLoop(loop, 10.0);
    platform::closeSocket(filler);

    EXPECT_EQ(std::vector<int>{500}, delays);
    EXPECT_EQ(0, connections);
    EXPECT_EQ(Connector::kDisconnected, connector->state());
    EXPECT_EQ(toItself, LogCapture::contains("Connector::handleWrite - Self connect"));
    EXPECT_EQ(toItself, LogCapture::contains("Connector::retry - Retry connecting to " +
                                             server.toIpPort() + " in 500 milliseconds. "));
  }
}

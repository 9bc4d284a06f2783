// The client against real listeners on 127.0.0.1: connection names, the
// failed attempts it reports with their delays, reconnection after a loss
// with retry on, and none with retry off or after stop.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/Connector.h"
#include "VLNet/EventLoop.h"
#include "VLNet/TcpClient.h"
#include "VLNet/TcpConnection.h"
#include "support/LogCapture.h"
#include "support/LoopTestUtil.h"
#include "support/TcpTestSockets.h"
#include "utility/Platform.h"

using velmar::net::Connector;
using velmar::net::EventLoop;
using velmar::net::TcpClient;
using velmar::net::TcpConnection;
using velmar::net::TcpConnectionPtr;
using velmar::test::TestListener;
using velmar::testing::LogCapture;
using velmar::testing::runLoop;
using velmar::utility::Logger;
namespace platform = velmar::platform;

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

}  // namespace

TEST(TcpClient, RefusedAttemptsReportGrowingDelaysUntilStopped) {
  TestListener closedPort(false);
  ASSERT_TRUE(closedPort.ok());
  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  std::vector<int> delays;
  int connectionCalls = 0;
  {
    TcpClient client(&loop, closedPort.address(), "MdClient");
    client.enableRetry();
    client.setConnectionCallback([&](const TcpConnectionPtr&) { ++connectionCalls; });
    client.setConnectFailCallback([&](int delayMs) {
      delays.push_back(delayMs);
      if (delays.size() == 3) {
        client.stop();  // before the connector looks at its flag again
        loop.queueInLoop([&] { loop.quit(); });
      }
    });
    client.connect();
    runLoop(loop, 10.0);
  }

  EXPECT_EQ((std::vector<int>{500, 1000, 2000}), delays);
  EXPECT_EQ(0, connectionCalls);
  const std::string target = closedPort.address().toIpPort();
  EXPECT_TRUE(LogCapture::contains("TcpClient::TcpClient[MdClient] - connector 0x"));
  EXPECT_TRUE(LogCapture::contains("TcpClient::connect[MdClient] - connecting to " + target));
  EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " + target +
                                   " in 500 milliseconds. "));
  EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " + target +
                                   " in 1000 milliseconds. "));
  EXPECT_FALSE(LogCapture::contains(" in 2000 milliseconds."));
  EXPECT_TRUE(LogCapture::contains("do not connect"));
}

TEST(TcpClient, ListenerThatOpensLateIsReachedByTheRetry) {
  TestListener listener(false);
  ASSERT_TRUE(listener.ok());
  EventLoop loop;
  std::vector<int> delays;
  std::vector<std::string> events;
  {
    TcpClient client(&loop, listener.address(), "MdClient");
    client.setConnectFailCallback([&](int delayMs) {
      delays.push_back(delayMs);
      listener.listen();
    });
    client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
      events.push_back(describe(conn));
      if (conn->connected()) loop.quit();
    });
    client.connect();
    runLoop(loop, 10.0);
    EXPECT_NE(nullptr, client.connection());
    EXPECT_EQ(Connector::kConnected, client.connector()->state());
  }  // the client held the last reference: the connection goes down with it
  EXPECT_EQ(std::vector<int>{500}, delays);
  const std::string name = "MdClient:" + listener.address().toIpPort() + "#1";
  EXPECT_EQ(
      (std::vector<std::string>{"up " + name + " kConnected", "down " + name + " kDisconnected"}),
      events);
}

TEST(TcpClient, RetryReconnectsAfterALossAndNumbersTheConnections) {
  TestListener listener;
  ASSERT_TRUE(listener.ok());
  LogCapture capture(Logger::INFO);
  EventLoop loop;
  std::vector<std::string> events;
  std::thread server = acceptAndClose(listener, 2);
  TcpClient client(&loop, listener.address(), "MdClient");
  client.enableRetry();
  client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
    events.push_back(describe(conn));
    if (events.size() == 3) client.stop();  // the second connection is up
    if (events.size() == 4) {
      // After the removal: no reconnect, the connector stays where it was.
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

  const std::string prefix = "MdClient:" + listener.address().toIpPort() + "#";
  EXPECT_EQ((std::vector<std::string>{
                "up " + prefix + "1 kConnected", "down " + prefix + "1 kDisconnected",
                "up " + prefix + "2 kConnected", "down " + prefix + "2 kDisconnected"}),
            events);
  const std::string reconnecting =
      "TcpClient::connect[MdClient] - Reconnecting to " + listener.address().toIpPort();
  const std::string log = LogCapture::text();
  size_t first = log.find(reconnecting);
  EXPECT_NE(std::string::npos, first);
  EXPECT_EQ(std::string::npos, log.find(reconnecting, first + 1));  // once only
}

TEST(TcpClient, WithoutRetryALostConnectionLeavesTheClientIdle) {
  TestListener listener;
  ASSERT_TRUE(listener.ok());
  LogCapture capture(Logger::INFO);
  EventLoop loop;
  std::vector<std::string> events;
  std::thread server = acceptAndClose(listener, 1);
  TcpClient client(&loop, listener.address(), "Plain");
  client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
    events.push_back(describe(conn));
    if (!conn->connected()) {
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

  const std::string name = "Plain:" + listener.address().toIpPort() + "#1";
  EXPECT_EQ(
      (std::vector<std::string>{"up " + name + " kConnected", "down " + name + " kDisconnected"}),
      events);
  EXPECT_FALSE(LogCapture::contains("Reconnecting"));
  EXPECT_EQ(-1, listener.accept(0));  // nobody came back
}

// The client and its connector against real listeners on 127.0.0.1: refused
// attempts and their growing delays, reconnection after a loss, connection
// names, and a connection to itself.
#include <gtest/gtest.h>

#include <memory>
#include <string>
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

std::string describe(const TcpConnectionPtr& conn) {
  return (conn->connected() ? "up " : "down ") + conn->name() + " " + conn->stateToString();
}

}  // namespace

// Each refusal is reported with the delay before the next attempt, doubling,
// until the listener opens. What is sent before the accept arrives; a lost
// connection is replaced by the next number; and the last one goes down with
// the client that holds the last reference to it.
TEST(TcpClient, RetriesUntilTheListenerOpensAndReconnectsAfterALoss) {
  TestListener listener(false);  // bound, not listening: connects are refused
  ASSERT_TRUE(listener.ok());
  LogCapture capture(Logger::INFO);
  EventLoop loop;
  std::vector<int> delays;
  std::vector<std::string> events;
  {
    TcpClient client(&loop, listener.address(), "MdClient");
    client.enableRetry();
    client.setConnectFailCallback([&](int delayMs) {
      delays.push_back(delayMs);
      if (delays.size() == 2) listener.listen();
    });
    client.setConnectionCallback([&](const TcpConnectionPtr& conn) {
      events.push_back(describe(conn));
      if (events.size() == 1) conn->send("hello", 5);  // nobody has accepted yet
      if (conn->connected()) loop.quit();
    });
    client.connect();
    runLoop(loop, 10.0);
    int fd = listener.accept();
    ASSERT_GE(fd, 0);
    std::string received;
    EXPECT_TRUE(velmar::test::recvTotal(fd, &received, 5));
    EXPECT_EQ("hello", received);
    platform::closeSocket(fd);  // lost: the client connects anew
    runLoop(loop, 10.0);
    EXPECT_NE(nullptr, client.connection());
    EXPECT_EQ(Connector::kConnected, client.connector()->state());
  }
  int fd = listener.accept();
  ASSERT_GE(fd, 0);
  std::string rest;
  EXPECT_TRUE(velmar::test::recvUntilClosed(fd, &rest));
  EXPECT_EQ("", rest);
  platform::closeSocket(fd);

  EXPECT_EQ((std::vector<int>{500, 1000}), delays);
  const std::string target = listener.address().toIpPort();
  const std::string name = "MdClient:" + target + "#";
  EXPECT_EQ(
      (std::vector<std::string>{"up " + name + "1 kConnected", "down " + name + "1 kDisconnected",
                                "up " + name + "2 kConnected", "down " + name + "2 kDisconnected"}),
      events);
  EXPECT_TRUE(LogCapture::contains("TcpClient::TcpClient[MdClient] - connector 0x"));
  EXPECT_TRUE(LogCapture::contains("TcpClient::connect[MdClient] - connecting to " + target));
  EXPECT_TRUE(LogCapture::contains("TcpClient::connect[MdClient] - Reconnecting to " + target));
  for (const char* delay : {"500", "1000"}) {
    EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " + target + " in " +
                                     delay + " milliseconds. "));
  }
}

// A socket bound to the server's own port meets itself: a failed attempt,
// stopped once its retry is scheduled, whose timer then finds it stopped.
TEST(Connector, ConnectionToItselfIsRefusedOnceAndTheStoppedRetryEnds) {
  const InetAddress self = TestListener(false).address();  // a port just released
  ASSERT_NE(0, self.port());
  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  std::vector<int> delays;
  int connections = 0;
  ConnectorPtr connector = std::make_shared<Connector>(&loop, self, self);
  connector->setNewConnectionCallback([&](int fd) {
    ++connections;
    sockets::close(fd);
  });
  connector->setRetryCallback([&](int delayMs) {
    delays.push_back(delayMs);
    loop.queueInLoop([&] { connector->stop(); });
  });
  connector->start();
  loop.runEvery(0.01, [&loop] {
    if (LogCapture::contains("do not connect")) loop.quit();
  });
  runLoop(loop, 10.0);

  EXPECT_EQ(std::vector<int>{500}, delays);
  EXPECT_EQ(0, connections);
  EXPECT_EQ(Connector::kDisconnected, connector->state());
  EXPECT_TRUE(LogCapture::contains("Connector::handleWrite - Self connect"));
  EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " + self.toIpPort() +
                                   " in 500 milliseconds. "));
}

// Release during a pending connect: stop() while the attempt is in flight
// ends it with one retry report and no connection. A full backlog keeps the
// attempt pending. (Where a connect in progress is waited for in place, there
// is no such moment.)
TEST(Connector, StoppedWhileConnectingReportsOnceAndEnds) {
  if (platform::kConnectWaitsInSelect) GTEST_SKIP();
  TestListener listener(true, 0);
  ASSERT_TRUE(listener.ok());
  int filler = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(0, platform::connectSocket(filler, listener.address().sockAddr()));
  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  std::vector<int> delays;
  int connections = 0;
  ConnectorPtr connector = std::make_shared<Connector>(&loop, listener.address(), InetAddress());
  connector->setNewConnectionCallback([&](int fd) {
    ++connections;
    sockets::close(fd);
  });
  connector->setRetryCallback([&](int delayMs) { delays.push_back(delayMs); });
  connector->start();
  ASSERT_EQ(Connector::kConnecting, connector->state());  // start() ran at once
  loop.runAfter(0.05, [&] {
    EXPECT_EQ(Connector::kConnecting, connector->state());
    connector->stop();
  });
  loop.runEvery(0.01, [&loop] {
    if (LogCapture::contains("do not connect")) loop.quit();
  });
  runLoop(loop, 10.0);
  platform::closeSocket(filler);

  EXPECT_EQ(std::vector<int>{500}, delays);
  EXPECT_EQ(0, connections);
  EXPECT_EQ(Connector::kDisconnected, connector->state());
}

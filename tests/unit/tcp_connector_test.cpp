// The connector on real loopback sockets: a retry timer that finds the
// connector stopped, a stop while a connect is in flight, and a connection to
// itself, which counts as a failed attempt. (Refusals and the growing delays
// are tested through the client, which reports them.)
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "VLNet/Connector.h"
#include "VLNet/EventLoop.h"
#include "VLNet/SocketsOps.h"
#include "support/LogCapture.h"
#include "support/LoopTestUtil.h"
#include "support/TcpTestSockets.h"
#include "utility/Platform.h"

using velmar::net::Connector;
using velmar::net::ConnectorPtr;
using velmar::net::EventLoop;
using velmar::net::InetAddress;
using velmar::test::TestListener;
using velmar::testing::LogCapture;
using velmar::testing::runLoop;
using velmar::utility::Logger;
namespace platform = velmar::platform;
namespace sockets = velmar::net::sockets;

namespace {

// Quits the loop once the log shows `text`, looking every 10 ms.
void quitWhenLogged(EventLoop& loop, const char* text) {
  loop.runEvery(0.01, [&loop, text] {
    if (LogCapture::contains(text)) loop.quit();
  });
}

}  // namespace

TEST(Connector, RetryTimerThatFindsTheConnectorStoppedDoesNotConnect) {
  TestListener closedPort(false);
  ASSERT_TRUE(closedPort.ok());
  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  ConnectorPtr connector = std::make_shared<Connector>(&loop, closedPort.address());
  std::vector<int> delays;
  int connections = 0;
  connector->setNewConnectionCallback([&](int fd) {
    ++connections;
    sockets::close(fd);
  });
  connector->setRetryCallback([&](int delayMs) {
    delays.push_back(delayMs);
    // Stopped once the retry has been scheduled: the timer still fires.
    loop.queueInLoop([&] { connector->stop(); });
  });
  connector->start();
  quitWhenLogged(loop, "do not connect");
  runLoop(loop, 10.0);

  EXPECT_EQ(std::vector<int>{500}, delays);
  EXPECT_EQ(0, connections);
  EXPECT_EQ(Connector::kDisconnected, connector->state());
  EXPECT_TRUE(LogCapture::contains("Connector::retry - Retry connecting to " +
                                   closedPort.address().toIpPort() + " in 500 milliseconds. "));
  EXPECT_EQ(1000, connector->retryDelayMs());
}

TEST(Connector, StopWhileConnectingClosesAndReportsOnceMore) {
  if (platform::kConnectWaitsInSelect) {
    GTEST_SKIP() << "here a connect in progress is waited for before the loop goes on";
  }
  // A listener with a full backlog leaves a new connect unanswered: its SYN is
  // dropped, and the attempt stays in flight until we stop it.
  TestListener listener(true, 0);
  ASSERT_TRUE(listener.ok());
  platform::startupSockets();
  int filler = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(0, platform::connectSocket(filler, listener.address().sockAddr()));

  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  ConnectorPtr connector = std::make_shared<Connector>(&loop, listener.address());
  std::vector<int> delays;
  int connections = 0;
  connector->setNewConnectionCallback([&](int fd) {
    ++connections;
    sockets::close(fd);
  });
  connector->setRetryCallback([&](int delayMs) { delays.push_back(delayMs); });
  connector->start();
  // start() ran at once on the loop thread: the connect is in flight.
  ASSERT_EQ(Connector::kConnecting, connector->state());
  loop.runAfter(0.05, [&] {
    EXPECT_EQ(Connector::kConnecting, connector->state());
    connector->stop();
  });
  quitWhenLogged(loop, "do not connect");
  runLoop(loop, 10.0);

  EXPECT_EQ(std::vector<int>{500}, delays);
  EXPECT_EQ(0, connections);
  EXPECT_EQ(Connector::kDisconnected, connector->state());
  EXPECT_FALSE(LogCapture::contains("Retry connecting to"));
  platform::closeSocket(filler);
}

TEST(Connector, ConnectionToItselfIsAFailedAttempt) {
  uint16_t port = velmar::test::freeLoopbackPort();
  ASSERT_NE(0, port);
  InetAddress self("127.0.0.1", port);
  LogCapture capture(Logger::DEBUG);
  EventLoop loop;
  ConnectorPtr connector = std::make_shared<Connector>(&loop, self, self);
  std::vector<int> delays;
  int connections = 0;
  connector->setNewConnectionCallback([&](int fd) {
    ++connections;
    sockets::close(fd);
    loop.quit();
  });
  connector->setRetryCallback([&](int delayMs) {
    delays.push_back(delayMs);
    // No second attempt: it would bind the same port again.
    connector->stop();
    loop.queueInLoop([&] { loop.quit(); });
  });
  connector->start();
  runLoop(loop, 10.0);

  EXPECT_EQ(0, connections);
  ASSERT_EQ(std::vector<int>{500}, delays);
  EXPECT_TRUE(LogCapture::contains("Connector::handleWrite - Self connect")) << LogCapture::text();
  EXPECT_TRUE(LogCapture::contains("do not connect"));
}

// One connection over a real loopback socket pair: the connection owns the
// client end, the test reads and writes the other end with blocking calls.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VLNet/EventLoop.h"
#include "VLNet/SocketsOps.h"
#include "VLNet/TcpConnection.h"
#include "support/LogCapture.h"
#include "support/LoopTestUtil.h"
#include "support/TcpTestSockets.h"
#include "utility/Platform.h"

using velmar::net::Buffer;
using velmar::net::EventLoop;
using velmar::net::InetAddress;
using velmar::net::TcpConnection;
using velmar::net::TcpConnectionPtr;
using velmar::test::LoopbackPair;
using velmar::testing::LogCapture;
using velmar::testing::runLoop;
using velmar::utility::Logger;
namespace platform = velmar::platform;
namespace sockets = velmar::net::sockets;
namespace test = velmar::test;

namespace {

// A connection on the pair's client end, which it now owns, with the close
// handling a client gives it: the channel leaves the loop after the handler.
TcpConnectionPtr makeConnection(EventLoop* loop, int fd, const std::string& name = "conn") {
  platform::setNonBlocking(fd);
  InetAddress local(sockets::getLocalAddr(fd));
  InetAddress peer(sockets::getPeerAddr(fd));
  TcpConnectionPtr conn = std::make_shared<TcpConnection>(loop, name, fd, local, peer);
  conn->setConnectionCallback(velmar::net::defaultConnectionCallback);
  conn->setMessageCallback(velmar::net::defaultMessageCallback);
  conn->setCloseCallback(
      [loop](const TcpConnectionPtr& c) { loop->queueInLoop([c] { c->connectDestroyed(); }); });
  return conn;
}

std::string patternBytes(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131) ^ (i >> 9));
  return bytes;
}

}  // namespace

// The backlog for a slow reader drains in order; shutdown waits for its last byte.
TEST(TcpConnection, BacklogDrainsAndShutdownFollowsTheLastByte) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  // Small socket buffers, so that the kernel takes little and the rest queues.
  test::setIntOption(pair.client(), SOL_SOCKET, SO_SNDBUF, 128 * 1024);
  test::setIntOption(pair.server(), SOL_SOCKET, SO_RCVBUF, 64 * 1024);
  EventLoop loop;
  TcpConnectionPtr conn = makeConnection(&loop, pair.releaseClient());
  conn->setConnectionCallback([&](const TcpConnectionPtr& c) {
    if (!c->connected()) loop.quit();
  });
  conn->connectEstablished();

  const std::string payload = patternBytes(2 * 1024 * 1024);
  for (size_t offset = 0; offset < payload.size(); offset += 65536) {
    conn->send(payload.data() + offset, 65536);
  }
  // The peer reads nothing yet: most of it waits in the output buffer.
  EXPECT_GT(conn->outputBuffer()->readableBytes(), payload.size() / 2);
  conn->shutdown();
  EXPECT_EQ(TcpConnection::kDisconnecting, conn->state());
  conn->shutdown();
  EXPECT_EQ(TcpConnection::kDisconnecting, conn->state());

  std::string received;
  bool ended = false;
  std::thread reader([&] {
    ended = test::recvUntilClosed(pair.server(), &received);
    platform::shutdownSocket(pair.server(), platform::kShutWrite);  // our side closes now
  });
  runLoop(loop);
  reader.join();

  EXPECT_TRUE(ended);
  EXPECT_EQ(payload.size(), received.size());
  EXPECT_TRUE(received == payload) << "the bytes arrived changed or out of order";
  EXPECT_EQ(0u, conn->outputBuffer()->readableBytes());
  EXPECT_EQ(TcpConnection::kDisconnected, conn->state());
}

// However the peer goes, what it sent is delivered first, then the connection
// goes down once and the close callback comes last. A send that meets a reset
// drops its bytes; one handed over from another thread before a close is
// given up with a warning, and a send after the close is dropped silently.
TEST(TcpConnection, PeerThatGoesDeliversItsDataThenTakesTheConnectionDown) {
  enum Send { kNoSend, kSendOnLoop, kSendHandedOver };
  struct Case {
    const char* name;
    size_t dataBytes;
    bool reset;
    Send send;
  } cases[] = {
      {"close with data unread", 10000, false, kNoSend},
      {"close before a handed-over send", 0, false, kSendHandedOver},
      {"reset met by the loop", 0, true, kNoSend},
      {"reset met by a send", 0, true, kSendOnLoop},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LoopbackPair pair;
    ASSERT_TRUE(pair.ok());
    const std::string data = patternBytes(c.dataBytes);
    ASSERT_TRUE(test::sendAll(pair.server(), data.data(), data.size()));
    int fd = pair.releaseClient();
    if (c.reset) {
      test::closeWithReset(pair.releaseServer());
    } else {
      pair.closeServer();
    }
    ASSERT_TRUE(test::waitFor(fd, POLLIN));

    LogCapture capture(Logger::INFO);
    EventLoop loop;
    TcpConnectionPtr conn = makeConnection(&loop, fd, "peer");
    std::string got;
    std::vector<std::string> events;
    conn->setMessageCallback([&](const TcpConnectionPtr&, Buffer* buffer, velmar::Timestamp) {
      got.append(buffer->peek(), buffer->readableBytes());
      buffer->retrieveAll();
    });
    conn->setConnectionCallback([&](const TcpConnectionPtr& self) {
      events.push_back(self->connected()
                           ? "up"
                           : "down " + std::to_string(got.size()) + " " + self->stateToString());
      if (!self->connected()) loop.quit();
    });
    conn->setCloseCallback([&](const TcpConnectionPtr& self) {
      events.push_back("close");
      loop.queueInLoop([self] { self->connectDestroyed(); });
    });
    conn->connectEstablished();
    // Not polled yet: still connected as far as the connection knows.
    if (c.send == kSendOnLoop) {
      conn->send(patternBytes(1000).data(), 1000);
      EXPECT_EQ(0u, conn->outputBuffer()->readableBytes());
      EXPECT_TRUE(LogCapture::contains("TcpConnection::sendInLoop")) << LogCapture::text();
    } else if (c.send == kSendHandedOver) {
      // Copied and handed to the loop, whose next pass sees the close first.
      std::thread([&] { conn->send("late", 4); }).join();
    }
    runLoop(loop);

    EXPECT_TRUE(got == data);
    EXPECT_EQ(events,
              (std::vector<std::string>{
                  "up", "down " + std::to_string(data.size()) + " kDisconnected", "close"}));
    if (c.reset && c.send == kNoSend) {
      EXPECT_TRUE(LogCapture::contains("TcpConnection::handleError [peer] - SO_ERROR = ") ||
                  LogCapture::contains("TcpConnection::handleRead"))
          << LogCapture::text();
    }
    if (c.send == kSendHandedOver) {
      EXPECT_TRUE(LogCapture::contains(" WARN ")) << LogCapture::text();
      EXPECT_TRUE(LogCapture::contains("disconnected, give up writing")) << LogCapture::text();
      LogCapture::clear();
      conn->send("later", 5);
      EXPECT_EQ("", LogCapture::text());
    }
  }
}

// Keep-alive settings, and the life of a connection in the log.
TEST(TcpConnection, KeepsAliveAndLogsItsLifeWithTheDefaultCallbacks) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  LogCapture capture(Logger::TRACE);
  EventLoop loop;
  int fd = pair.releaseClient();
  TcpConnectionPtr conn = makeConnection(&loop, fd, "named");
  const std::string local = conn->localAddress().toIpPort();
  const std::string peer = conn->peerAddress().toIpPort();
  EXPECT_TRUE(
      LogCapture::contains("velmar::net::TcpConnection::TcpConnection "
                           "TcpConnection::ctor[named] at 0x"))
      << LogCapture::text();
  EXPECT_TRUE(LogCapture::contains(" fd=" + std::to_string(fd)));

  int keepAlive = 0;
  int length = sizeof keepAlive;
  platform::getSocketOption(fd, SOL_SOCKET, SO_KEEPALIVE, &keepAlive, &length);
  EXPECT_NE(0, keepAlive);
  for (auto option :
       {std::make_pair(platform::kTcpKeepIdle, 30), std::make_pair(platform::kTcpKeepInterval, 2),
        std::make_pair(platform::kTcpKeepCount, 10)}) {
    int value = 0;
    length = sizeof value;
    if (platform::getSocketOption(fd, IPPROTO_TCP, option.first, &value, &length) == 0) {
      EXPECT_EQ(option.second, value) << "option " << option.first;
    }
  }

  conn->connectEstablished();
  EXPECT_TRUE(LogCapture::contains(local + " -> " + peer + " is UP")) << LogCapture::text();

  conn->connectDestroyed();
  EXPECT_TRUE(LogCapture::contains(local + " -> " + peer + " is DOWN")) << LogCapture::text();
  conn.reset();
  EXPECT_TRUE(LogCapture::contains("TcpConnection::dtor[named] at 0x")) << LogCapture::text();
  EXPECT_TRUE(LogCapture::contains(" fd=" + std::to_string(fd) + " state=kDisconnected"));
}

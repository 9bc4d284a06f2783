// Addresses and the socket wrappers under the TCP client: address text both
// ways, the pending-error query, the connect-error rule, self-connection and
// the wait for a connect in progress, on real loopback sockets.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "VLNet/InetAddress.h"
#include "VLNet/SocketsOps.h"
#include "support/LogCapture.h"
#include "support/LoopbackPair.h"
#include "support/TcpTestSockets.h"
#include "utility/Platform.h"

using velmar::net::InetAddress;
using velmar::test::LoopbackPair;
using velmar::test::TestListener;
using velmar::testing::LogCapture;
namespace platform = velmar::platform;
namespace sockets = velmar::net::sockets;

namespace {

// A non-blocking socket that closes itself.
struct OwnedSocket {
  OwnedSocket() : fd(sockets::createNonblockingOrDie(AF_INET)) {}
  ~OwnedSocket() { sockets::close(fd); }
  int fd;
};

}  // namespace

TEST(InetAddress, TextOfAddressAndPort) {
  InetAddress loopback("127.0.0.1", 6905);
  EXPECT_EQ("127.0.0.1:6905", loopback.toIpPort());
  EXPECT_EQ(6905, loopback.port());
  EXPECT_EQ(AF_INET, loopback.family());

  InetAddress any(8080);
  EXPECT_EQ("0.0.0.0:8080", any.toIpPort());
  EXPECT_EQ("0.0.0.0:0", InetAddress().toIpPort());
  EXPECT_EQ("255.255.255.255:65535", InetAddress("255.255.255.255", 65535).toIpPort());
}

TEST(InetAddress, BadTextLeavesAnyAddressWithThePortAndLogs) {
  for (const char* text : {"", "localhost", "1.2.3", "127.0.0.256", "127.0.0.1:80"}) {
    LogCapture capture;
    InetAddress address(text, 4321);
    EXPECT_EQ("0.0.0.0:4321", address.toIpPort()) << "'" << text << "'";
    EXPECT_TRUE(LogCapture::contains(" ERR ")) << LogCapture::text();
    EXPECT_TRUE(LogCapture::contains("sockets::fromIpPort")) << LogCapture::text();
  }
}

TEST(Sockets, NoPendingErrorReadsZeroWhateverTheThreadsLastError) {
  OwnedSocket fresh;
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  // A would-block left behind by an earlier call must not read as an error of
  // a socket that has none.
  for (int last : {0, platform::kErrWouldBlock, platform::kErrConnRefused}) {
    platform::setLastSocketError(last);
    EXPECT_EQ(0, sockets::getSocketError(fresh.fd)) << last;
    platform::setLastSocketError(last);
    EXPECT_EQ(0, sockets::getSocketError(pair.client())) << last;
  }
}

TEST(Sockets, ConnectErrorTellsInProgressFromFailure) {
  OwnedSocket fresh;
  EXPECT_EQ(platform::kErrWouldBlock, sockets::connectError(fresh.fd, platform::kErrWouldBlock));
  EXPECT_EQ(platform::kErrInProgress, sockets::connectError(fresh.fd, platform::kErrInProgress));
  EXPECT_EQ(platform::kErrConnRefused, sockets::connectError(fresh.fd, platform::kErrConnRefused));
}

TEST(Sockets, RefusedConnectIsReportedAsTheSocketsError) {
  TestListener closedPort(false);  // bound, not listening: connects are refused
  ASSERT_TRUE(closedPort.ok());
  OwnedSocket s;
  int ret = sockets::connect(s.fd, closedPort.address().sockAddr());
  int err = ret == 0 ? 0 : sockets::connectError(s.fd, platform::lastSocketError());
  if (err != platform::kErrConnRefused) {
    // In progress: the refusal comes as the outcome of the wait.
    ASSERT_TRUE(err == platform::kErrWouldBlock || err == platform::kErrInProgress) << err;
    platform::ConnectWait wait = platform::waitForConnect(s.fd, 10000);
    EXPECT_GT(wait.result, 0);
    EXPECT_TRUE(wait.failed);
    EXPECT_FALSE(wait.writable);
    EXPECT_EQ(platform::kErrConnRefused, sockets::getSocketError(s.fd));
  }
  EXPECT_EQ(0, sockets::getSocketError(s.fd));  // reading it cleared it
}

TEST(Sockets, ConnectInProgressToAListenerTurnsWritable) {
  TestListener listener;
  ASSERT_TRUE(listener.ok());
  OwnedSocket s;
  int ret = sockets::connect(s.fd, listener.address().sockAddr());
  if (ret != 0) {
    int err = sockets::connectError(s.fd, platform::lastSocketError());
    ASSERT_TRUE(err == platform::kErrWouldBlock || err == platform::kErrInProgress) << err;
  }
  platform::ConnectWait wait = platform::waitForConnect(s.fd, 10000);
  EXPECT_EQ(1, wait.result);
  EXPECT_TRUE(wait.writable);
  EXPECT_FALSE(wait.failed);
  EXPECT_EQ(0, sockets::getSocketError(s.fd));
  EXPECT_FALSE(sockets::isSelfConnect(s.fd));
  InetAddress peer(sockets::getPeerAddr(s.fd));
  EXPECT_EQ(listener.address().toIpPort(), peer.toIpPort());
}

TEST(Sockets, SocketConnectedToItselfIsSelfConnect) {
  // A socket bound to a loopback port and connected to that same port meets
  // itself (simultaneous open), as the connector can when its local port
  // happens to equal the server's.
  platform::startupSockets();
  int fd = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(0, platform::bindSocket(fd, addr));
  ASSERT_EQ(0, platform::localAddress(fd, &addr));
  if (platform::connectSocket(fd, addr) != 0) {
    platform::closeSocket(fd);
    GTEST_SKIP() << "this system does not connect a socket to itself";
  }
  EXPECT_TRUE(sockets::isSelfConnect(fd));
  platform::closeSocket(fd);

  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  EXPECT_FALSE(sockets::isSelfConnect(pair.client()));
  EXPECT_FALSE(sockets::isSelfConnect(pair.server()));
}

TEST(Sockets, PeerOfAnUnconnectedSocketIsZeroAndLogged) {
  OwnedSocket s;
  LogCapture capture;
  struct sockaddr_in peer = sockets::getPeerAddr(s.fd);
  EXPECT_EQ(0, peer.sin_family);
  EXPECT_EQ(0u, peer.sin_addr.s_addr);
  EXPECT_EQ(0, peer.sin_port);
  EXPECT_TRUE(LogCapture::contains("sockets::getPeerAddr")) << LogCapture::text();
}

// Addresses and the socket wrappers under the TCP client: address text both
// ways, the pending-error query, the connect-error rule and the wait for a
// connect in progress, on real loopback sockets.
#include <gtest/gtest.h>

#include <string>

#include "VLNet/InetAddress.h"
#include "VLNet/SocketsOps.h"
#include "support/LogCapture.h"
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
  EXPECT_EQ("127.0.0.1:6905", InetAddress("127.0.0.1", 6905).toIpPort());
  EXPECT_EQ(6905, InetAddress("127.0.0.1", 6905).port());
  EXPECT_EQ("0.0.0.0:8080", InetAddress(8080).toIpPort());
  EXPECT_EQ("255.255.255.255:65535", InetAddress("255.255.255.255", 65535).toIpPort());
  for (const char* text : {"", "localhost", "1.2.3", "127.0.0.256", "1.2.3.4.5"}) {
    LogCapture capture;
    EXPECT_EQ("0.0.0.0:4321", InetAddress(text, 4321).toIpPort()) << "'" << text << "'";
    EXPECT_TRUE(LogCapture::contains(" ERR ")) << LogCapture::text();
    EXPECT_TRUE(LogCapture::contains("sockets::fromIpPort")) << LogCapture::text();
  }
}

// A would-block left behind by an earlier call must not read as an error of a
// socket that has none; a connect error other than would-block is the call's.
TEST(Sockets, PendingAndConnectErrorsComeFromTheSocketNotTheThread) {
  OwnedSocket fresh;
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  for (int last : {0, platform::kErrWouldBlock, platform::kErrConnRefused}) {
    platform::setLastSocketError(last);
    EXPECT_EQ(0, sockets::getSocketError(fresh.fd)) << last;
    platform::setLastSocketError(last);
    EXPECT_EQ(0, sockets::getSocketError(pair.client())) << last;
    EXPECT_EQ(last, sockets::connectError(fresh.fd, last));
  }
  EXPECT_EQ(platform::kErrInProgress, sockets::connectError(fresh.fd, platform::kErrInProgress));
}

// Refused at once, or (where the connect is in progress) as the outcome of the
// wait; a listener turns the socket writable with no error.
TEST(Sockets, ConnectInProgressEndsRefusedOrWritable) {
  for (bool listening : {false, true}) {
    SCOPED_TRACE(listening ? "listener" : "closed port");
    TestListener listener(listening);  // bound, not listening: connects are refused
    ASSERT_TRUE(listener.ok());
    OwnedSocket s;
    int ret = sockets::connect(s.fd, listener.address().sockAddr());
    int err = ret == 0 ? 0 : sockets::connectError(s.fd, platform::lastSocketError());
    if (!listening && err == platform::kErrConnRefused) continue;
    ASSERT_TRUE(err == platform::kErrWouldBlock || err == platform::kErrInProgress) << err;
    platform::ConnectWait wait = platform::waitForConnect(s.fd, 10000);
    EXPECT_GT(wait.result, 0);
    EXPECT_EQ(listening, wait.writable);
    EXPECT_EQ(!listening, wait.failed);
    EXPECT_EQ(listening ? 0 : platform::kErrConnRefused, sockets::getSocketError(s.fd));
    if (!listening) continue;
    EXPECT_FALSE(sockets::isSelfConnect(s.fd));
    EXPECT_EQ(listener.address().toIpPort(), InetAddress(sockets::getPeerAddr(s.fd)).toIpPort());
  }
}

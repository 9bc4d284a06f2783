#include "VLNet/Socket.h"

#include "VLNet/SocketsOps.h"

namespace velmar {
namespace net {

Socket::~Socket() { sockets::close(sockfd_); }

void Socket::shutdownWrite() { sockets::shutdownWrite(sockfd_); }

void Socket::setKeepAlive(bool on) {
  // Results ignored: a platform without one of the options keeps its default.
  int value = on ? 1 : 0;
  platform::setSocketOption(sockfd_, SOL_SOCKET, SO_KEEPALIVE, &value, sizeof value);
  int count = 10, idle = 30, interval = 2;
  platform::setSocketOption(sockfd_, IPPROTO_TCP, platform::kTcpKeepCount, &count, sizeof count);
  platform::setSocketOption(sockfd_, IPPROTO_TCP, platform::kTcpKeepIdle, &idle, sizeof idle);
  platform::setSocketOption(sockfd_, IPPROTO_TCP, platform::kTcpKeepInterval, &interval, sizeof interval);
}

}  // namespace net
}  // namespace velmar

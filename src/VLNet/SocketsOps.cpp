#include "VLNet/SocketsOps.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "utility/Logging.h"

namespace velmar {
namespace net {
namespace sockets {

int createNonblockingOrDie(uint16_t family) {
  platform::startupSockets();
  int fd = platform::createSocket(family, SOCK_STREAM, IPPROTO_TCP);
  if (fd < 0) {
    errno = platform::lastSocketError();
    LOG_SYSFATAL << "sockets::createNonblockingOrDie";
  }
  if (platform::setNonBlocking(fd) < 0) {
    errno = platform::lastSocketError();
    fprintf(stderr, "fcntl(%d, F_GETFL)", fd);
    LOG_SYSFATAL << "sockets::setNonBlockAndCloseOnExec";
  }
  return fd;
}

void bindOrDie(int fd, const struct sockaddr_in& addr) {
  if (platform::bindSocket(fd, addr) < 0) {
    int err = platform::lastSocketError();
    errno = err;
    LOG_SYSFATAL << "sockets::bindOrDie " << err;
  }
}

int connect(int fd, const struct sockaddr_in& addr) { return platform::connectSocket(fd, addr); }

int read(int fd, void* buf, size_t count) {
  return platform::recvSocket(fd, buf, count);
}

int write(int fd, const void* buf, size_t count) {
  return platform::sendSocket(fd, buf, count);
}

void close(int fd) { platform::closeSocket(fd); }

void shutdownWrite(int fd) {
  if (platform::shutdownSocket(fd, platform::kShutWrite) < 0) {
    errno = platform::lastSocketError();
    LOG_SYSERR << "sockets::shutdownWrite";
  }
}

void fromIpPort(const char* ip, uint16_t port, struct sockaddr_in* addr) {
  addr->sin_family = AF_INET;
  addr->sin_port = htons(port);
  if (::inet_pton(AF_INET, ip, &addr->sin_addr) < 1) {
    errno = platform::lastSocketError();
    LOG_SYSERR << "sockets::fromIpPort";
  }
}

void toIpPort(char* buf, size_t size, const struct sockaddr_in& addr) {
  if (addr.sin_family == AF_INET) {
    ::inet_ntop(AF_INET, const_cast<struct in_addr*>(&addr.sin_addr), buf,
                static_cast<socklen_t>(size));
  }
  size_t end = std::strlen(buf);
  snprintf(buf + end, size - end, ":%u", static_cast<unsigned>(ntohs(addr.sin_port)));
}

struct sockaddr_in getLocalAddr(int fd) {
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  if (platform::localAddress(fd, &addr) < 0) {
    errno = platform::lastSocketError();
    LOG_SYSERR << "sockets::getLocalAddr";
    std::memset(&addr, 0, sizeof addr);
  }
  return addr;
}

struct sockaddr_in getPeerAddr(int fd) {
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  if (platform::peerAddress(fd, &addr) < 0) {
    errno = platform::lastSocketError();
    LOG_SYSERR << "sockets::getPeerAddr";
    std::memset(&addr, 0, sizeof addr);
  }
  return addr;
}

bool isSelfConnect(int fd) {
  struct sockaddr_in local = getLocalAddr(fd);
  struct sockaddr_in peer = getPeerAddr(fd);
  return local.sin_family == AF_INET && local.sin_port == peer.sin_port &&
         local.sin_addr.s_addr == peer.sin_addr.s_addr;
}

namespace {

// SO_ERROR, or -1 if the socket cannot be asked.
int pendingError(int fd) {
  int value = 0;
  int length = sizeof value;
  if (platform::getSocketOption(fd, SOL_SOCKET, SO_ERROR, &value, &length) < 0) return -1;
  return value;
}

}  // namespace

int getSocketError(int fd) {
  if (fd < 0) return platform::lastSocketError();
  int last = platform::lastSocketError();
  int pending = pendingError(fd);
  return pending < 0 ? last : pending;
}

int connectError(int fd, int callError) {
  if (callError != platform::kErrWouldBlock || fd < 0) return callError;
  int pending = pendingError(fd);
  return pending > 0 ? pending : callError;
}

}  // namespace sockets
}  // namespace net
}  // namespace velmar

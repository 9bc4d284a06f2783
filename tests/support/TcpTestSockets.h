// Blocking socket helpers for the reactor and TCP client tests: a listener and
// a connected pair on 127.0.0.1 with ports the system chooses, and
// whole-buffer send and receive. Waits are bounded, so a broken client makes a
// test fail instead of hanging the suite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "VLNet/EventLoop.h"
#include "VLNet/InetAddress.h"
#include "utility/Platform.h"

namespace velmar {
namespace test {

/// Waits until the socket has one of `events`; false on time-out.
inline bool waitFor(int fd, short events, int timeoutMs = 10000) {
  platform::PollFd entry;
  platform::setPollHandle(entry, fd);
  entry.events = events;
  entry.revents = 0;
  return platform::pollSockets(&entry, 1, timeoutMs) == 1;
}

inline bool sendAll(int fd, const void* data, size_t len) {
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    int n = platform::sendSocket(fd, p, len);
    if (n <= 0) return false;
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

/// Appends everything up to the peer's end of stream to *out. False on an
/// error or when nothing comes for the time-out.
inline bool recvUntilClosed(int fd, std::string* out, int timeoutMs = 10000) {
  char buf[65536];
  for (;;) {
    if (!waitFor(fd, POLLIN, timeoutMs)) return false;
    int n = platform::recvSocket(fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) return false;
    out->append(buf, static_cast<size_t>(n));
  }
}

/// Appends until *out holds `total` bytes. False on error, close or time-out.
inline bool recvTotal(int fd, std::string* out, size_t total, int timeoutMs = 10000) {
  char buf[65536];
  while (out->size() < total) {
    if (!waitFor(fd, POLLIN, timeoutMs)) return false;
    int n = platform::recvSocket(fd, buf, sizeof buf);
    if (n <= 0) return false;
    out->append(buf, static_cast<size_t>(n));
  }
  return true;
}

inline void setIntOption(int fd, int level, int option, int value) {
  platform::setSocketOption(fd, level, option, &value, sizeof value);
}

/// Closes with a reset instead of the orderly end: linger on, time 0.
inline void closeWithReset(int fd) {
  struct linger lingerOption;
  std::memset(&lingerOption, 0, sizeof lingerOption);
  lingerOption.l_onoff = 1;
  lingerOption.l_linger = 0;
  platform::setSocketOption(fd, SOL_SOCKET, SO_LINGER, &lingerOption, sizeof lingerOption);
  platform::closeSocket(fd);
}

/// A TCP socket bound to 127.0.0.1 and a port the system chooses. Until
/// listen() is called, connects to it are refused: the port stays ours, so
/// nothing else can answer there meanwhile.
class TestListener {
 public:
  explicit TestListener(bool listening = true, int backlog = 16) {
    platform::startupSockets();
    fd_ = platform::createSocket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in addr;
    std::memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd_ >= 0 && platform::bindSocket(fd_, addr) == 0 &&
        platform::localAddress(fd_, &addr) == 0) {
      port_ = ntohs(addr.sin_port);
    }
    if (listening) listen(backlog);
  }
  ~TestListener() {
    if (fd_ >= 0) platform::closeSocket(fd_);
  }
  TestListener(const TestListener&) = delete;
  TestListener& operator=(const TestListener&) = delete;

  bool ok() const { return fd_ >= 0 && port_ != 0; }
  int fd() const { return fd_; }
  uint16_t port() const { return port_; }
  net::InetAddress address() const { return net::InetAddress("127.0.0.1", port_); }

  bool listen(int backlog = 16) { return platform::listenSocket(fd_, backlog) == 0; }

  /// The next connection as a blocking socket, or -1 when none comes in time.
  int accept(int timeoutMs = 10000) {
    if (!waitFor(fd_, POLLIN, timeoutMs)) return -1;
    return platform::acceptSocket(fd_, nullptr);
  }

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

/// A connected TCP pair, made as a loop makes its wake-up pair: client() is
/// the connecting end, server() the accepted one.
class LoopbackPair {
 public:
  LoopbackPair() {
    int fds[2];
    if (net::createLoopbackPair(fds) == 0) server_ = fds[0], client_ = fds[1];
  }
  ~LoopbackPair() {
    closeClient();
    closeServer();
  }
  LoopbackPair(const LoopbackPair&) = delete;
  LoopbackPair& operator=(const LoopbackPair&) = delete;

  bool ok() const { return client_ >= 0 && server_ >= 0; }
  int client() const { return client_; }
  int server() const { return server_; }
  void closeClient() {
    if (client_ >= 0) platform::closeSocket(releaseClient());
  }
  void closeServer() {
    if (server_ >= 0) platform::closeSocket(releaseServer());
  }
  /// Hands an end to a new owner; the pair no longer closes it.
  int releaseClient() { return std::exchange(client_, -1); }
  int releaseServer() { return std::exchange(server_, -1); }

 private:
  int client_ = -1;
  int server_ = -1;
};

}  // namespace test
}  // namespace velmar

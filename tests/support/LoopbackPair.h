// A connected TCP socket pair over 127.0.0.1, for tests that need a real
// socket. The listener binds port 0, so the system picks a free port.
#pragma once

#include <cstddef>
#include <cstdint>

#include "utility/Platform.h"

namespace velmar {
namespace test {

class LoopbackPair {
 public:
  LoopbackPair() { open(); }
  ~LoopbackPair() {
    closeEnd(&client_);
    closeEnd(&server_);
  }
  LoopbackPair(const LoopbackPair&) = delete;
  LoopbackPair& operator=(const LoopbackPair&) = delete;

  bool ok() const { return client_ >= 0 && server_ >= 0; }
  int client() const { return client_; }
  int server() const { return server_; }
  void closeClient() { closeEnd(&client_); }
  void closeServer() { closeEnd(&server_); }
  /// Hand an end to a new owner; the pair no longer closes it.
  int releaseClient() {
    int fd = client_;
    client_ = -1;
    return fd;
  }
  int releaseServer() {
    int fd = server_;
    server_ = -1;
    return fd;
  }

  /// Sends all bytes from the client end; false on an error.
  bool sendAll(const void* data, size_t len) {
    const char* p = static_cast<const char*>(data);
    while (len > 0) {
      int n = platform::sendSocket(client_, p, len);
      if (n <= 0) return false;
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

  /// Waits until the server end has data or the peer's close to report.
  bool waitReadable(int timeoutMs = 10000) {
    platform::PollFd pfd;
    pfd.fd = native(server_);
    pfd.events = POLLIN;
    pfd.revents = 0;
    return platform::pollSockets(&pfd, 1, timeoutMs) == 1;
  }

 private:
#if defined(_WIN32)
  using SockLen = int;
  static SOCKET native(int fd) {
    return static_cast<SOCKET>(static_cast<intptr_t>(fd));
  }
#else
  using SockLen = socklen_t;
  static int native(int fd) {
    return fd;
  }
#endif

  static void closeEnd(int* fd) {
    if (*fd >= 0) platform::closeSocket(*fd);
    *fd = -1;
  }

  void open() {
    platform::startupSockets();
    int listener = platform::createSocket(AF_INET, SOCK_STREAM, 0);
    if (listener < 0) return;
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = 0;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    SockLen len = sizeof addr;
    if (::bind(native(listener), reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) == 0 &&
        ::listen(native(listener), 1) == 0 &&
        ::getsockname(native(listener), reinterpret_cast<struct sockaddr*>(&addr), &len) == 0) {
      client_ = platform::createSocket(AF_INET, SOCK_STREAM, 0);
      if (client_ >= 0 &&
          ::connect(native(client_), reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) == 0) {
        auto s = ::accept(native(listener), nullptr, nullptr);
        server_ = s == static_cast<decltype(s)>(-1) ? -1 : static_cast<int>(s);
      }
    }
    closeEnd(&listener);
  }

  int client_ = -1;
  int server_ = -1;
};

}  // namespace test
}  // namespace velmar

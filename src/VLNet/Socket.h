#pragma once

namespace velmar {
namespace net {

/// Owner of a connected socket: closes it when destroyed.
class Socket {
 public:
  explicit Socket(int fd) : sockfd_(fd) {}
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  int fd() const { return sockfd_; }
  void shutdownWrite();
  /// SO_KEEPALIVE, and probes after 30 s of silence, every 2 s, 10 of them.
  void setKeepAlive(bool on);

 private:
  const int sockfd_;
};

}  // namespace net
}  // namespace velmar

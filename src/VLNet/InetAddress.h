// An IPv4 socket address, copied by value. IPv6 does not exist here.
#pragma once

#include <cstdint>
#include <string>

#include "utility/Platform.h"

namespace velmar {
namespace net {

class InetAddress {
 public:
  /// Any local address (0.0.0.0) and `port` in host order; port 0 leaves the
  /// choice to the system.
  explicit InetAddress(uint16_t port = 0);
  /// Dotted IPv4 text and port. A text that is no such address is logged and
  /// leaves the address 0.0.0.0 with the given port.
  InetAddress(const char* ip, uint16_t port);
  explicit InetAddress(const struct sockaddr_in& addr) : addr_(addr) {}

  /// "a.b.c.d:port".
  std::string toIpPort() const;
  uint16_t family() const { return addr_.sin_family; }
  uint16_t port() const;

  const struct sockaddr_in& sockAddr() const { return addr_; }
  void setSockAddr(const struct sockaddr_in& addr) { addr_ = addr; }

 private:
  struct sockaddr_in addr_;
};

}  // namespace net
}  // namespace velmar

#include "VLNet/InetAddress.h"

#include <cstring>

#include "VLNet/SocketsOps.h"

namespace velmar {
namespace net {

static_assert(sizeof(struct sockaddr_in) == 16, "IPv4 socket address is 16 bytes");

InetAddress::InetAddress(uint16_t port) {
  std::memset(&addr_, 0, sizeof addr_);
  addr_.sin_family = AF_INET;
  addr_.sin_addr.s_addr = htonl(INADDR_ANY);
  addr_.sin_port = htons(port);
}

InetAddress::InetAddress(const char* ip, uint16_t port) {
  std::memset(&addr_, 0, sizeof addr_);
  sockets::fromIpPort(ip, port, &addr_);
}

std::string InetAddress::toIpPort() const {
  char buf[64] = {0};
  sockets::toIpPort(buf, sizeof buf, addr_);
  return buf;
}

uint16_t InetAddress::port() const { return ntohs(addr_.sin_port); }

}  // namespace net
}  // namespace velmar

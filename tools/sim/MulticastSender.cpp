#include "sim/MulticastSender.h"

#include <cstring>

#include "utility/Platform.h"

namespace velmar {
namespace sim {

namespace {

constexpr uint32_t kLoopback = 0x7F000001;      // 127.0.0.1
constexpr uint32_t kScopedGroups = 0xEFFF0000;  // 239.255.0.0/16
constexpr uint32_t kScopedMask = 0xFFFF0000;

}  // namespace

bool parseIPv4(const std::string& text, uint32_t* address) {
  uint32_t value = 0;
  size_t pos = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (pos >= text.size() || text[pos] != '.') return false;
      ++pos;
    }
    size_t start = pos;
    uint32_t octet = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && pos - start < 3) {
      octet = octet * 10 + static_cast<uint32_t>(text[pos] - '0');
      ++pos;
    }
    if (pos == start || octet > 255) return false;
    value = value << 8 | octet;
  }
  if (pos != text.size()) return false;
  *address = value;
  return true;
}

bool parseEndpoint(const std::string& text, std::string* host, uint16_t* port) {
  size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size() || text.size() - colon > 6) {
    return false;
  }
  uint32_t p = 0;
  for (size_t i = colon + 1; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    p = p * 10 + static_cast<uint32_t>(text[i] - '0');
  }
  if (p == 0 || p > 65535) return false;
  *host = text.substr(0, colon);
  *port = static_cast<uint16_t>(p);
  return true;
}

std::string checkGroup(const std::string& group) {
  uint32_t a = 0;
  if (!parseIPv4(group, &a)) return "'" + group + "' is not an IPv4 address";
  if ((a & kScopedMask) != kScopedGroups) {
    return "group " + group + " refused: only 239.255.0.0/16 is allowed";
  }
  return std::string();
}

std::string checkInterface(const std::string& interfaceAddress) {
  uint32_t a = 0;
  if (!parseIPv4(interfaceAddress, &a) || a != kLoopback) {
    return "interface " + interfaceAddress + " refused: only 127.0.0.1 is allowed";
  }
  return std::string();
}

MulticastSender::~MulticastSender() {
  close();
}

bool MulticastSender::open(const std::string& group, uint16_t port,
                           const std::string& interfaceAddress, std::string* error) {
  close();
  std::string why = checkGroup(group);
  if (why.empty()) why = checkInterface(interfaceAddress);
  if (why.empty() && port == 0) why = "port 0 refused";
  if (!why.empty()) {
    *error = why;
    return false;
  }
  parseIPv4(group, &group_);
  port_ = port;

  platform::startupSockets();
  fd_ = platform::createSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (fd_ < 0) {
    *error = "socket: " + platform::errorText(platform::lastSocketError());
    return false;
  }
  struct in_addr iface;
  std::memset(&iface, 0, sizeof iface);
  iface.s_addr = htonl(kLoopback);
  int ttl = 0;
  int loop = 1;
  const char* failed = nullptr;
  if (platform::setSocketOption(fd_, IPPROTO_IP, IP_MULTICAST_IF, &iface, sizeof iface) != 0) {
    failed = "IP_MULTICAST_IF";
  } else if (platform::setSocketOption(fd_, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl) != 0) {
    failed = "IP_MULTICAST_TTL";
  } else if (platform::setSocketOption(fd_, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) !=
             0) {
    failed = "IP_MULTICAST_LOOP";
  }
  if (failed) {
    *error = std::string(failed) + ": " + platform::errorText(platform::lastSocketError());
    close();
    return false;
  }
  // Read the safety options back rather than trusting the set calls. The
  // TTL comes back as an int or, on some systems, a single byte, so the
  // buffer starts zeroed and any non-zero byte counts.
  unsigned char ttlBack[sizeof(int)] = {0, 0, 0, 0};
  int length = sizeof ttlBack;
  struct in_addr ifaceBack;
  std::memset(&ifaceBack, 0, sizeof ifaceBack);
  int ifaceLength = sizeof ifaceBack;
  bool ttlZero =
      platform::getSocketOption(fd_, IPPROTO_IP, IP_MULTICAST_TTL, ttlBack, &length) == 0 &&
      ttlBack[0] == 0 && ttlBack[1] == 0 && ttlBack[2] == 0 && ttlBack[3] == 0;
  bool ifaceLoopback =
      platform::getSocketOption(fd_, IPPROTO_IP, IP_MULTICAST_IF, &ifaceBack, &ifaceLength) == 0 &&
      ntohl(ifaceBack.s_addr) == kLoopback;
  if (!ttlZero || !ifaceLoopback) {
    *error =
        ttlZero ? "the socket did not keep interface 127.0.0.1" : "the socket did not keep TTL 0";
    close();
    return false;
  }
  return true;
}

bool MulticastSender::send(const uint8_t* data, size_t length) {
  if (fd_ < 0) return false;
  struct sockaddr_in to;
  std::memset(&to, 0, sizeof to);
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(group_);
  to.sin_port = htons(port_);
  int n =
      platform::sendTo(fd_, data, length, reinterpret_cast<const struct sockaddr*>(&to), sizeof to);
  if (n < 0 || static_cast<size_t>(n) != length) {
    lastError_ = n < 0 ? platform::lastSocketError() : platform::kErrMsgSize;
    return false;
  }
  return true;
}

void MulticastSender::close() {
  if (fd_ >= 0) platform::closeSocket(fd_);
  fd_ = -1;
}

}  // namespace sim
}  // namespace velmar

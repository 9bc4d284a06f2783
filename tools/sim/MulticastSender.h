// A UDP socket that publishes datagrams to a multicast group on loopback.
//
// The simulator must never put a datagram on a real network: the only
// interface accepted is 127.0.0.1, the only groups those of 239.255.0.0/16
// (administratively scoped), and the socket sends with TTL 0 (the datagram
// never leaves the host) and loop-back on (local receivers get it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmar {
namespace sim {

/// Strict dotted quad ("a.b.c.d", each 0..255) into a host-order address.
bool parseIPv4(const std::string& text, uint32_t* address);
/// "group:port" with a port of 1..65535.
bool parseEndpoint(const std::string& text, std::string* host, uint16_t* port);
/// Empty if the group is acceptable, otherwise the reason.
std::string checkGroup(const std::string& group);
/// Empty if the interface is acceptable (127.0.0.1 only), otherwise the reason.
std::string checkInterface(const std::string& interfaceAddress);

class MulticastSender {
 public:
  MulticastSender() = default;
  ~MulticastSender();
  MulticastSender(const MulticastSender&) = delete;
  MulticastSender& operator=(const MulticastSender&) = delete;

  /// Checks the addresses, creates the socket and sets its options, reading
  /// TTL and interface back. False, with the reason in `error`, if any of it
  /// fails; nothing is open then.
  bool open(const std::string& group, uint16_t port, const std::string& interfaceAddress,
            std::string* error);
  bool isOpen() const { return fd_ >= 0; }
  /// Sends one datagram; false on failure, with the socket error in
  /// lastError().
  bool send(const uint8_t* data, size_t length);
  int lastError() const { return lastError_; }
  void close();

 private:
  int fd_ = -1;
  uint32_t group_ = 0;  // host order
  uint16_t port_ = 0;
  int lastError_ = 0;
};

}  // namespace sim
}  // namespace velmar

// Thin wrappers over the socket calls, with the library's failure words.
// "OrDie" functions end the process on failure (LOG_SYSFATAL).
#pragma once

#include <cstddef>
#include <cstdint>

#include "utility/Platform.h"

namespace velmar {
namespace net {
namespace sockets {

/// A non-blocking TCP socket of the family.
int createNonblockingOrDie(uint16_t family);
void bindOrDie(int fd, const struct sockaddr_in& addr);
/// The connect result as it is: 0, or -1 with the error in lastSocketError().
int connect(int fd, const struct sockaddr_in& addr);
int read(int fd, void* buf, size_t count);
int write(int fd, const void* buf, size_t count);
void close(int fd);
/// Closes the sending direction; the peer then reads end of stream.
void shutdownWrite(int fd);

void fromIpPort(const char* ip, uint16_t port, struct sockaddr_in* addr);
void toIpPort(char* buf, size_t size, const struct sockaddr_in& addr);
struct sockaddr_in getLocalAddr(int fd);
struct sockaddr_in getPeerAddr(int fd);
bool isSelfConnect(int fd);

/// The error pending on a socket, 0 if there is none. On Windows this starts
/// from the thread's last socket error and asks the socket only while that
/// says would-block, so a connect in progress reads as would-block. Elsewhere
/// the thread's errno is too easily overwritten (any logging may touch it),
/// so the socket's own SO_ERROR is the answer, and a connect in progress is
/// recognised from the connect call's own error instead.
int getSocketError(int fd);

}  // namespace sockets
}  // namespace net
}  // namespace velmar

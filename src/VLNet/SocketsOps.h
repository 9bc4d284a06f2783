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

/// The error pending on a socket (SO_ERROR), 0 if there is none; reading it
/// clears it. The connector asks this once a connect in progress has ended,
/// and a connection when its socket reports an error. The thread's last
/// socket error is no answer here: on Windows a would-block left over from an
/// earlier call stays in it after the calls that succeed since, and errno is
/// changed by nearly anything (logging included). A negative fd gives the
/// thread's last socket error.
int getSocketError(int fd);

/// The error of a connect call that returned -1, to be taken right after the
/// call with the call's own error (platform::lastSocketError()). While that
/// says would-block, an error the socket already holds (a refusal that came
/// at once) is preferred; otherwise the call's error is the answer. So a
/// connect still in progress gives would-block on Windows and EINPROGRESS
/// elsewhere, and a connect that has failed gives its own error.
int connectError(int fd, int callError);

}  // namespace sockets
}  // namespace net
}  // namespace velmar

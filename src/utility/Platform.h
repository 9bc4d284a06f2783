// The thin layer over what differs between Windows and POSIX: socket headers,
// socket error numbers, poll, thread ids, the clock, local time, the host
// name, the process id and directories. Everything above it is one code path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#endif

namespace velmar {
namespace platform {

// Socket error numbers under the names the library uses. On Windows these are
// the WSA numbers, elsewhere the errno values.
#if defined(_WIN32)
constexpr int kErrWouldBlock = WSAEWOULDBLOCK;
constexpr int kErrInProgress = WSAEINPROGRESS;
constexpr int kErrInterrupted = WSAEINTR;
constexpr int kErrInvalid = WSAEINVAL;
constexpr int kErrAddrInUse = WSAEADDRINUSE;
constexpr int kErrNetUnreach = WSAENETUNREACH;
constexpr int kErrConnRefused = WSAECONNREFUSED;
constexpr int kErrConnReset = WSAECONNRESET;
constexpr int kErrBrokenPipe = WSAESHUTDOWN;
constexpr int kErrMsgSize = WSAEMSGSIZE;
constexpr int kShutWrite = SD_SEND;
#else
constexpr int kErrWouldBlock = EWOULDBLOCK;
constexpr int kErrInProgress = EINPROGRESS;
constexpr int kErrInterrupted = EINTR;
constexpr int kErrInvalid = EINVAL;
constexpr int kErrAddrInUse = EADDRINUSE;
constexpr int kErrNetUnreach = ENETUNREACH;
constexpr int kErrConnRefused = ECONNREFUSED;
constexpr int kErrConnReset = ECONNRESET;
constexpr int kErrBrokenPipe = EPIPE;
constexpr int kErrMsgSize = EMSGSIZE;
constexpr int kShutWrite = SHUT_WR;
#endif
/// The plain EAGAIN number, retried by the connector on every platform.
constexpr int kErrAgainPlain = 11;

#if defined(_WIN32)
using PollFd = WSAPOLLFD;
#else
using PollFd = struct pollfd;
#endif

/// Makes the socket layer usable (WSAStartup 2.2 on Windows; nothing else).
void startupSockets();
/// Socket handles are int32 throughout the library; a 64-bit handle is
/// narrowed on creation and widened by sign extension for platform calls.
int createSocket(int family, int type, int protocol);
int closeSocket(int fd);
/// The calling thread's last socket error (WSAGetLastError, errno).
int lastSocketError();
void setLastSocketError(int error);
/// Text of an error number, system or socket.
std::string errorText(int error);
/// poll over the array (WSAPoll on Windows).
int pollSockets(PollFd* fds, size_t count, int timeoutMs);
/// Switches a socket to non-blocking mode; -1 on failure.
int setNonBlocking(int fd);
int setSocketOption(int fd, int level, int option, const void* value, int length);
int getSocketOption(int fd, int level, int option, void* value, int* length);
int bindSocket(int fd, const struct sockaddr* address, int length);
/// The socket's own address (getsockname); 0 or -1.
int localAddress(int fd, struct sockaddr* address, int* length);
/// One datagram to `to`; the number of bytes sent, or -1 (see lastSocketError).
int sendTo(int fd, const void* data, size_t length, const struct sockaddr* to, int toLength);
/// One datagram into `buffer`; its length, or -1. `from` may be null.
int receiveFrom(int fd, void* buffer, size_t length, struct sockaddr* from, int* fromLength);

/// Identity of the calling thread as the system numbers it.
uint64_t currentThreadId();
/// 100-nanosecond ticks since the Unix epoch.
int64_t nowTicks100ns();
/// Local-time conversion of seconds since the epoch.
void localTime(time_t seconds, struct tm* out);
int64_t processId();
/// The host name, or an empty text when it can't be had.
std::string hostName();
bool pathExists(const char* path);
bool makeDirectory(const char* path);
void sleepMs(int milliseconds);

}  // namespace platform
}  // namespace velmar

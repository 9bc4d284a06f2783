// The thin layer over what differs between Windows and POSIX: socket headers,
// socket error numbers, poll, thread ids, the clock, local time, the host
// name, the process id, directories and CPUs. Everything above it is one code
// path.
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
// TCP keep-alive options (ws2ipdef.h values; older headers lack the names).
constexpr int kTcpKeepIdle = 3;
constexpr int kTcpKeepCount = 16;
constexpr int kTcpKeepInterval = 17;
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
constexpr int kTcpKeepIdle = TCP_KEEPIDLE;
constexpr int kTcpKeepCount = TCP_KEEPCNT;
constexpr int kTcpKeepInterval = TCP_KEEPINTVL;
#endif
/// The plain EAGAIN number, retried by the connector on every platform.
constexpr int kErrAgainPlain = 11;
/// The plain interrupted-call number (EINTR). On Windows the socket layer
/// reports its own WSAEINTR instead, so there this value never matches.
constexpr int kErrInterruptedPlain = 4;

#if defined(_WIN32)
using PollFd = WSAPOLLFD;
#else
using PollFd = struct pollfd;
#endif

// poll flags under the names the reactor uses. The reactor was laid out on the
// Windows pollfd values, where POLLIN is POLLRDNORM|POLLRDBAND; Linux has its
// own bits for the same meanings, and a separate POLLIN bit that kPollIn takes
// in as well. Only kPollRdNorm and kPollOut are ever asked for in `events`;
// the others are tested in `revents` only.
constexpr int kPollRdNorm = POLLRDNORM;
constexpr int kPollIn = POLLIN | POLLRDNORM | POLLRDBAND;
constexpr int kPollPri = POLLPRI;
constexpr int kPollOut = POLLOUT;  // POLLWRNORM on Windows
constexpr int kPollErr = POLLERR;
constexpr int kPollHup = POLLHUP;
constexpr int kPollNval = POLLNVAL;
#if defined(_WIN32)
constexpr int kPollRdHup = 0x2000;  // WSAPoll has no name for the read-hang-up bit
#else
constexpr int kPollRdHup = POLLRDHUP;
#endif

/// The handle of a poll entry is the int32 socket sign-extended; a negative
/// handle makes poll pass over the entry.
inline void setPollHandle(PollFd& entry, int fd) {
#if defined(_WIN32)
  entry.fd = static_cast<SOCKET>(static_cast<intptr_t>(fd));
#else
  entry.fd = fd;
#endif
}
/// The low 32 bits of an entry's handle.
inline int pollHandle(const PollFd& entry) {
  return static_cast<int>(static_cast<intptr_t>(entry.fd));
}

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
/// One recv / send with flags 0 on a connected socket; the platform's result
/// (bytes, 0 on an orderly close for recv, negative on failure with the error
/// left for lastSocketError).
int recvSocket(int fd, void* buf, size_t len);
int sendSocket(int fd, const void* buf, size_t len);
/// Writes `text`, ": " and the text of the calling thread's last error to the
/// standard error, as perror does (the last socket error on Windows).
void printLastError(const char* text);
/// The BSD socket calls on int32 handles. Results as there: 0 (or the new
/// socket, or the byte count) on success, -1 on failure with the error in
/// lastSocketError().
int bindSocket(int fd, const struct sockaddr_in& addr);
int listenSocket(int fd, int backlog);
int connectSocket(int fd, const struct sockaddr_in& addr);
/// The accepted socket or -1; the peer's address goes to *peer if given.
int acceptSocket(int fd, struct sockaddr_in* peer);
int localAddress(int fd, struct sockaddr_in* addr);
int peerAddress(int fd, struct sockaddr_in* addr);
/// One datagram into buf, blocking. A datagram longer than len is an error
/// (kErrMsgSize) on every platform rather than silently cut, and is dropped.
int receiveDatagram(int fd, char* buf, int len);
/// Asks the system to report with each datagram how many the socket's
/// buffer has dropped so far (SO_RXQ_OVFL on Linux). False where there is no
/// such count (Windows) or the system refuses.
bool enableDropCount(int fd);
/// receiveDatagram, and the socket's drop count at that datagram into
/// *drops when the datagram carries one (after enableDropCount); *drops is
/// left as it was otherwise. The count is the system's running total.
int receiveDatagramWithDrops(int fd, char* buf, int len, uint64_t* drops);
/// shutdown(how): kShutWrite closes the sending direction.
int shutdownSocket(int fd, int how);
int bindSocket(int fd, const struct sockaddr* address, int length);
/// The socket's own address (getsockname); 0 or -1.
int localAddress(int fd, struct sockaddr* address, int* length);
/// One datagram to `to`; the number of bytes sent, or -1 (see lastSocketError).
int sendTo(int fd, const void* data, size_t length, const struct sockaddr* to, int toLength);
/// One datagram into `buffer`; its length, or -1. `from` may be null.
int receiveFrom(int fd, void* buffer, size_t length, struct sockaddr* from, int* fromLength);

/// How the connector learns how a connect in progress ends. WSAPoll never
/// reports a connect that fails (the socket just never turns writable), so on
/// Windows a connect that says would-block is waited for with a blocking
/// select on the write and exception sets. poll elsewhere reports a failed
/// connect as an error and hang-up on the socket, so there the loop's own wait
/// covers it and the connect's in-progress answer goes straight to the loop.
#if defined(_WIN32)
constexpr bool kConnectWaitsInSelect = true;
#else
constexpr bool kConnectWaitsInSelect = false;
#endif
/// Outcome of waitForConnect: the wait call's result (0 on time-out, negative
/// on failure), and whether the socket turned writable or failed.
struct ConnectWait {
  int result;
  bool writable;
  bool failed;
};
/// Blocks up to timeoutMs for a connect in progress on the socket (select with
/// the socket in a write set and an exception set, no read set).
ConnectWait waitForConnect(int fd, int timeoutMs);

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
/// CPUs a thread can be pinned to, numbered 0 to cpuCount() - 1: the online
/// ones on Linux, those of the calling thread's processor group on Windows.
/// At least 1.
int cpuCount();
/// Binds the calling thread to one CPU; false (nothing changed) for a CPU
/// out of range or a refusal by the system, such as a CPU outside the
/// process's allowed set.
bool pinCurrentThread(int cpu);

}  // namespace platform
}  // namespace velmar

#include "utility/Platform.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#if defined(_WIN32)
#include <direct.h>
#include <io.h>
#include <process.h>
#else
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace velmar {
namespace platform {

#if defined(_WIN32)

void startupSockets() {
  WSADATA data;
  std::memset(&data, 0, sizeof data);
  ::WSAStartup(MAKEWORD(2, 2), &data);
}

int createSocket(int family, int type, int protocol) {
  SOCKET s = ::socket(family, type, protocol);
  return s == INVALID_SOCKET ? -1 : static_cast<int>(s);
}

int closeSocket(int fd) { return ::closesocket(static_cast<SOCKET>(static_cast<intptr_t>(fd))); }
int lastSocketError() { return ::WSAGetLastError(); }
void setLastSocketError(int error) { ::WSASetLastError(error); }

std::string errorText(int error) {
  char buf[512] = {0};
  DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             static_cast<DWORD>(error), 0, buf, sizeof buf - 1, nullptr);
  while (n > 0 && (buf[n - 1] == '\n' || buf[n - 1] == '\r' || buf[n - 1] == ' ')) buf[--n] = 0;
  if (n == 0) return std::strerror(error);
  return std::string(buf, n);
}

int pollSockets(PollFd* fds, size_t count, int timeoutMs) {
  return ::WSAPoll(fds, static_cast<ULONG>(count), timeoutMs);
}

int setNonBlocking(int fd) {
  u_long on = 1;
  return ::ioctlsocket(static_cast<SOCKET>(static_cast<intptr_t>(fd)), FIONBIO, &on) == 0 ? 0 : -1;
}

int setSocketOption(int fd, int level, int option, const void* value, int length) {
  return ::setsockopt(static_cast<SOCKET>(static_cast<intptr_t>(fd)), level, option,
                      static_cast<const char*>(value), length);
}

int getSocketOption(int fd, int level, int option, void* value, int* length) {
  return ::getsockopt(static_cast<SOCKET>(static_cast<intptr_t>(fd)), level, option,
                      static_cast<char*>(value), length);
}

namespace {
SOCKET toSocket(int fd) { return static_cast<SOCKET>(static_cast<intptr_t>(fd)); }
}  // namespace

int bindSocket(int fd, const struct sockaddr_in& addr) {
  return ::bind(toSocket(fd), reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0 ? 0 : -1;
}

int listenSocket(int fd, int backlog) { return ::listen(toSocket(fd), backlog) == 0 ? 0 : -1; }

int connectSocket(int fd, const struct sockaddr_in& addr) {
  return ::connect(toSocket(fd), reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0 ? 0
                                                                                             : -1;
}

int acceptSocket(int fd, struct sockaddr_in* peer) {
  sockaddr_in addr;
  int len = sizeof addr;
  SOCKET s = ::accept(toSocket(fd), reinterpret_cast<sockaddr*>(&addr), &len);
  if (s == INVALID_SOCKET) return -1;
  if (peer) *peer = addr;
  return static_cast<int>(s);
}

int localAddress(int fd, struct sockaddr_in* addr) {
  int len = sizeof *addr;
  return ::getsockname(toSocket(fd), reinterpret_cast<sockaddr*>(addr), &len) == 0 ? 0 : -1;
}

int peerAddress(int fd, struct sockaddr_in* addr) {
  int len = sizeof *addr;
  return ::getpeername(toSocket(fd), reinterpret_cast<sockaddr*>(addr), &len) == 0 ? 0 : -1;
}

int shutdownSocket(int fd, int how) { return ::shutdown(toSocket(fd), how) == 0 ? 0 : -1; }

ConnectWait waitForConnect(int fd, int timeoutMs) {
  SOCKET s = toSocket(fd);
  fd_set writeSet;
  fd_set exceptSet;
  FD_ZERO(&writeSet);
  FD_ZERO(&exceptSet);
  FD_SET(s, &writeSet);
  FD_SET(s, &exceptSet);
  timeval timeout;
  timeout.tv_sec = timeoutMs / 1000;
  timeout.tv_usec = (timeoutMs % 1000) * 1000;
  ConnectWait wait;
  wait.result = ::select(0, nullptr, &writeSet, &exceptSet, &timeout);
  wait.writable = wait.result > 0 && FD_ISSET(s, &writeSet);
  wait.failed = wait.result > 0 && FD_ISSET(s, &exceptSet);
  return wait;
}

int receiveDatagram(int fd, char* buf, int len) {
  sockaddr_in from;
  int fromLength = sizeof from;
  int n = ::recvfrom(toSocket(fd), buf, len, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
  return n == SOCKET_ERROR ? -1 : n;
}

bool enableDropCount(int /*fd*/) { return false; }

int receiveDatagramWithDrops(int fd, char* buf, int len, uint64_t* /*drops*/) {
  return receiveDatagram(fd, buf, len);
}

int recvSocket(int fd, void* buf, size_t len) {
  return ::recv(static_cast<SOCKET>(static_cast<intptr_t>(fd)), static_cast<char*>(buf),
                static_cast<int>(len), 0);
}

int sendSocket(int fd, const void* buf, size_t len) {
  return ::send(static_cast<SOCKET>(static_cast<intptr_t>(fd)), static_cast<const char*>(buf),
                static_cast<int>(len), 0);
}

int bindSocket(int fd, const struct sockaddr* address, int length) {
  return ::bind(static_cast<SOCKET>(static_cast<intptr_t>(fd)), address, length);
}

int localAddress(int fd, struct sockaddr* address, int* length) {
  return ::getsockname(static_cast<SOCKET>(static_cast<intptr_t>(fd)), address, length);
}

int sendTo(int fd, const void* data, size_t length, const struct sockaddr* to, int toLength) {
  return ::sendto(static_cast<SOCKET>(static_cast<intptr_t>(fd)), static_cast<const char*>(data),
                  static_cast<int>(length), 0, to, toLength);
}

int receiveFrom(int fd, void* buffer, size_t length, struct sockaddr* from, int* fromLength) {
  return ::recvfrom(static_cast<SOCKET>(static_cast<intptr_t>(fd)), static_cast<char*>(buffer),
                    static_cast<int>(length), 0, from, fromLength);
}

uint64_t currentThreadId() { return ::GetCurrentThreadId(); }

int64_t nowTicks100ns() {
  FILETIME ft;
  ::GetSystemTimePreciseAsFileTime(&ft);
  ULARGE_INTEGER v;
  v.LowPart = ft.dwLowDateTime;
  v.HighPart = ft.dwHighDateTime;
  // FILETIME counts from 1601-01-01.
  return static_cast<int64_t>(v.QuadPart) - 116444736000000000LL;
}

void localTime(time_t seconds, struct tm* out) { ::localtime_s(out, &seconds); }
int64_t processId() { return ::_getpid(); }
bool pathExists(const char* path) { return ::_access(path, 0) == 0; }
bool makeDirectory(const char* path) { return ::_mkdir(path) == 0; }

// The processors of the calling thread's group: an affinity mask reaches no
// further, so a CPU beyond them can't be pinned to.
int cpuCount() {
  SYSTEM_INFO info;
  ::GetSystemInfo(&info);
  return static_cast<int>(info.dwNumberOfProcessors);
}

bool pinCurrentThread(int cpu) {
  if (cpu < 0 || cpu >= cpuCount() || cpu >= 64) return false;
  return ::SetThreadAffinityMask(::GetCurrentThread(), static_cast<DWORD_PTR>(1) << cpu) != 0;
}

#else

void startupSockets() {}

int createSocket(int family, int type, int protocol) {
  return ::socket(family, type | SOCK_CLOEXEC, protocol);
}

int closeSocket(int fd) { return ::close(fd); }
int lastSocketError() { return errno; }
void setLastSocketError(int error) { errno = error; }

std::string errorText(int error) {
  char buf[256] = {0};
  // The GNU strerror_r may return a static text instead of filling buf.
  const char* text = ::strerror_r(error, buf, sizeof buf);
  return text ? std::string(text) : std::string(buf);
}

int pollSockets(PollFd* fds, size_t count, int timeoutMs) {
  return ::poll(fds, static_cast<nfds_t>(count), timeoutMs);
}

int setNonBlocking(int fd) {
  int flags = ::fcntl(fd, F_GETFL, 0);
  if (flags < 0) return -1;
  return ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0 ? -1 : 0;
}

int setSocketOption(int fd, int level, int option, const void* value, int length) {
  return ::setsockopt(fd, level, option, value, static_cast<socklen_t>(length));
}

int getSocketOption(int fd, int level, int option, void* value, int* length) {
  socklen_t len = static_cast<socklen_t>(*length);
  int r = ::getsockopt(fd, level, option, value, &len);
  *length = static_cast<int>(len);
  return r;
}

int bindSocket(int fd, const struct sockaddr_in& addr) {
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
}

int listenSocket(int fd, int backlog) { return ::listen(fd, backlog); }

int connectSocket(int fd, const struct sockaddr_in& addr) {
  return ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
}

int acceptSocket(int fd, struct sockaddr_in* peer) {
  sockaddr_in addr;
  socklen_t len = sizeof addr;
  int s = ::accept4(fd, reinterpret_cast<sockaddr*>(&addr), &len, SOCK_CLOEXEC);
  if (s >= 0 && peer) *peer = addr;
  return s;
}

int localAddress(int fd, struct sockaddr_in* addr) {
  socklen_t len = sizeof *addr;
  return ::getsockname(fd, reinterpret_cast<sockaddr*>(addr), &len);
}

int peerAddress(int fd, struct sockaddr_in* addr) {
  socklen_t len = sizeof *addr;
  return ::getpeername(fd, reinterpret_cast<sockaddr*>(addr), &len);
}

int shutdownSocket(int fd, int how) { return ::shutdown(fd, how); }

ConnectWait waitForConnect(int fd, int timeoutMs) {
  // poll rather than select: a select set cannot hold a socket number of 1024
  // or more here. A failed connect shows as an error or hang-up, which is what
  // the exception set tells on Windows.
  struct pollfd entry;
  entry.fd = fd;
  entry.events = POLLOUT;
  entry.revents = 0;
  ConnectWait wait;
  wait.result = ::poll(&entry, 1, timeoutMs);
  wait.failed = wait.result > 0 && (entry.revents & (POLLERR | POLLHUP)) != 0;
  wait.writable = wait.result > 0 && !wait.failed && (entry.revents & POLLOUT) != 0;
  return wait;
}

int receiveDatagram(int fd, char* buf, int len) {
  sockaddr_in from;
  socklen_t fromLength = sizeof from;
  // MSG_TRUNC reports the datagram's real length, so an oversized one is seen.
  ssize_t n = ::recvfrom(fd, buf, static_cast<size_t>(len), MSG_TRUNC,
                         reinterpret_cast<sockaddr*>(&from), &fromLength);
  if (n > len) {
    errno = EMSGSIZE;
    return -1;
  }
  return static_cast<int>(n);
}

bool enableDropCount(int fd) {
  int on = 1;
  return ::setsockopt(fd, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on) == 0;
}

int receiveDatagramWithDrops(int fd, char* buf, int len, uint64_t* drops) {
  sockaddr_in from;
  iovec iov;
  iov.iov_base = buf;
  iov.iov_len = static_cast<size_t>(len);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(uint32_t))];
  msghdr msg;
  std::memset(&msg, 0, sizeof msg);
  msg.msg_name = &from;
  msg.msg_namelen = sizeof from;
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  // MSG_TRUNC as in receiveDatagram: an oversized datagram is seen, not cut.
  ssize_t n = ::recvmsg(fd, &msg, MSG_TRUNC);
  if (n > len) {
    errno = EMSGSIZE;
    return -1;
  }
  if (n >= 0) {
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
        uint32_t count;
        std::memcpy(&count, CMSG_DATA(c), sizeof count);
        *drops = count;
      }
    }
  }
  return static_cast<int>(n);
}

int recvSocket(int fd, void* buf, size_t len) {
  return static_cast<int>(::recv(fd, buf, len, 0));
}

int sendSocket(int fd, const void* buf, size_t len) {
  // No SIGPIPE for a peer that has gone: the error comes back as EPIPE.
  return static_cast<int>(::send(fd, buf, len, MSG_NOSIGNAL));
}

int bindSocket(int fd, const struct sockaddr* address, int length) {
  return ::bind(fd, address, static_cast<socklen_t>(length));
}

int localAddress(int fd, struct sockaddr* address, int* length) {
  socklen_t len = static_cast<socklen_t>(*length);
  int r = ::getsockname(fd, address, &len);
  *length = static_cast<int>(len);
  return r;
}

int sendTo(int fd, const void* data, size_t length, const struct sockaddr* to, int toLength) {
  return static_cast<int>(::sendto(fd, data, length, 0, to, static_cast<socklen_t>(toLength)));
}

int receiveFrom(int fd, void* buffer, size_t length, struct sockaddr* from, int* fromLength) {
  socklen_t len = fromLength ? static_cast<socklen_t>(*fromLength) : 0;
  int n = static_cast<int>(::recvfrom(fd, buffer, length, 0, from, from ? &len : nullptr));
  if (fromLength) *fromLength = static_cast<int>(len);
  return n;
}

uint64_t currentThreadId() { return static_cast<uint64_t>(::syscall(SYS_gettid)); }

int64_t nowTicks100ns() {
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 10000000 + ts.tv_nsec / 100;
}

void localTime(time_t seconds, struct tm* out) { ::localtime_r(&seconds, out); }
int64_t processId() { return ::getpid(); }
bool pathExists(const char* path) { return ::access(path, F_OK) == 0; }
bool makeDirectory(const char* path) { return ::mkdir(path, 0755) == 0; }

int cpuCount() {
  const long n = ::sysconf(_SC_NPROCESSORS_ONLN);
  return n > 0 ? static_cast<int>(n) : 1;
}

bool pinCurrentThread(int cpu) {
  if (cpu < 0 || cpu >= cpuCount() || cpu >= CPU_SETSIZE) return false;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  return ::pthread_setaffinity_np(::pthread_self(), sizeof set, &set) == 0;
}

#endif

std::string hostName() {
  char buf[256] = {0};
  startupSockets();  // gethostname needs the socket layer on Windows
  if (::gethostname(buf, sizeof buf) != 0) return std::string();
  buf[sizeof buf - 1] = '\0';
  return buf;
}

void printLastError(const char* text) {
  // Taken first: writing to stderr may change it.
  int error = lastSocketError();
  std::string line = std::string(text) + ": " + errorText(error) + "\n";
  std::fputs(line.c_str(), stderr);
}

void sleepMs(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace platform
}  // namespace velmar

// The multicast receiver thread: joins the feed's group and hands every
// datagram to onFeedDatagram, which runs the handlers and the application's
// callbacks on this thread. A slow callback stalls the receive path, and the
// socket's 15 MiB buffer absorbs the difference.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/MdApiImpl.h"
#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

namespace {
constexpr int kSocketReceiveBuffer = 15728640;  // 15 MiB
// A socket that fails for good would log without pause; after this many
// errors in a row the loop rests a millisecond between attempts.
constexpr int kErrorsBeforePause = 100;
}  // namespace

void MdApiImpl::runUdpExanic() {
  CurrentThread::t_threadName = "udpExanicThread";
  LOG_INFO << "runUdpExanic";

  struct ip_mreq membership;
  std::memset(&membership, 0, sizeof membership);
  membership.imr_multiaddr.s_addr = ::inet_addr(mcastHost_.c_str());
  membership.imr_interface.s_addr =
      mcastInterfaces_.empty() ? htonl(0) : ::inet_addr(mcastInterfaces_.front().c_str());

  platform::startupSockets();
  udpSocket_ = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
  if (udpSocket_ < 0) {
    LOG_ERROR << "runUdpExanic::socket() errno " << platform::lastSocketError();
    return;
  }
  // An int, not a single byte: some systems refuse a one-byte value here.
  int reuse = 1;
  if (platform::setSocketOption(udpSocket_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) < 0) {
    LOG_ERROR << "runUdpExanic::setsockopt errno " << platform::lastSocketError();
    return;
  }
  struct sockaddr_in local;
  std::memset(&local, 0, sizeof local);
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  local.sin_port = htons(static_cast<uint16_t>(std::atoi(mcastPort_.c_str())));
  if (platform::bindSocket(udpSocket_, local) < 0) {
    LOG_ERROR << "runUdpExanic::bind errno " << platform::lastSocketError();
    return;
  }
  if (platform::setSocketOption(udpSocket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership,
                                sizeof membership) < 0) {
    LOG_ERROR << "runUdpExanic::IP_ADD_MEMBERSHIP errno " << platform::lastSocketError();
    return;
  }
  int receiveBuffer = kSocketReceiveBuffer;
  if (platform::setSocketOption(udpSocket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer,
                                sizeof receiveBuffer) < 0) {
    LOG_ERROR << "runUdpExanic::SO_RCVBUF errno " << platform::lastSocketError();
    return;
  }

  // One buffer, reused: a datagram overwrites only its own length. The book
  // queue's nodes carry copies of what they need, so nothing refers to this
  // buffer once the handlers have returned.
  std::unique_ptr<char[]> buffer(new char[feed::kReceiveSize]());
  int errorsInARow = 0;
  for (;;) {
    int n = platform::receiveDatagram(udpSocket_, buffer.get(), feed::kReceiveSize);
    if (n < 0) {
      LOG_ERROR << "runUdpExanic::recvfrom errno " << platform::lastSocketError();
      if (++errorsInARow >= kErrorsBeforePause) platform::sleepMs(1);
      continue;
    }
    errorsInARow = 0;
    if (n == 0) continue;
    onFeedDatagram(buffer.get());
  }
}

}  // namespace mdapi
}  // namespace velmar

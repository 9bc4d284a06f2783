#include "VLNet/TcpConnection.h"

#include <cerrno>

#include "VLNet/Channel.h"
#include "VLNet/EventLoop.h"
#include "VLNet/Socket.h"
#include "VLNet/SocketsOps.h"
#include "utility/Logging.h"

namespace velmar {
namespace net {

void defaultConnectionCallback(const TcpConnectionPtr& conn) {
  LOG_TRACE << conn->localAddress().toIpPort() << " -> " << conn->peerAddress().toIpPort() << " is "
            << (conn->connected() ? "UP" : "DOWN");
}

void defaultMessageCallback(const TcpConnectionPtr&, Buffer* buffer, Timestamp) {
  buffer->retrieveAll();
}

namespace {

EventLoop* checkLoop(EventLoop* loop) {
  if (loop == nullptr) LOG_FATAL << "'loop' Must be non NULL";
  return loop;
}

}  // namespace

constexpr size_t TcpConnection::kDefaultHighWaterMark;

TcpConnection::TcpConnection(EventLoop* loop, const std::string& name, int sockfd,
                             const InetAddress& localAddr, const InetAddress& peerAddr)
    : loop_(checkLoop(loop)),
      name_(name),
      state_(kConnecting),
      socket_(new Socket(sockfd)),
      channel_(new Channel(loop, sockfd)),
      localAddr_(localAddr),
      peerAddr_(peerAddr),
      inputBuffer_(Buffer::kInitialSize),
      outputBuffer_(Buffer::kInitialSize) {
  channel_->setReadCallback([this](Timestamp receiveTime) { handleRead(receiveTime); });
  channel_->setWriteCallback([this] { handleWrite(); });
  channel_->setCloseCallback([this] { handleClose(); });
  channel_->setErrorCallback([this] { handleError(); });
  LOG_DEBUG << "TcpConnection::ctor[" << name_ << "] at " << this << " fd=" << sockfd;
  socket_->setKeepAlive(true);
}

TcpConnection::~TcpConnection() {
  LOG_DEBUG << "TcpConnection::dtor[" << name_ << "] at " << this << " fd=" << socket_->fd()
            << " state=" << stateToString();
}

const char* TcpConnection::stateToString() const {
  switch (state_.load()) {
    case kDisconnected:
      return "kDisconnected";
    case kConnecting:
      return "kConnecting";
    case kConnected:
      return "kConnected";
    case kDisconnecting:
      return "kDisconnecting";
    default:
      return "unknown state";
  }
}

void TcpConnection::send(const void* data, int len) {
  if (state_.load() != kConnected) return;
  if (loop_->isInLoopThread()) {
    sendInLoop(data, static_cast<size_t>(len));
  } else {
    // Copied now, so the caller may reuse its memory at once. The hand-over
    // holds a shared pointer as well: a connection dropped meanwhile by its
    // holder still outlives the call.
    std::string message(static_cast<const char*>(data), static_cast<size_t>(len));
    TcpConnectionPtr self = shared_from_this();
    loop_->runInLoop([self, message] { self->sendInLoop(message); });
  }
}

void TcpConnection::sendInLoop(const std::string& message) {
  sendInLoop(message.data(), message.size());
}

void TcpConnection::sendInLoop(const void* data, size_t len) {
  loop_->assertInLoopThread();
  int written = 0;
  uint32_t remaining = static_cast<uint32_t>(len);
  // The state may have changed since send() looked at it from another thread.
  if (state_.load() == kDisconnected) {
    LOG_WARN << "disconnected, give up writing";
    return;
  }
  // Nothing queued: try the socket directly and keep the buffer out of the
  // common case of a short request.
  if (!channel_->isWriting() && outputBuffer_.readableBytes() == 0) {
    int n = sockets::write(channel_->fd(), data, len);
    if (n >= 0) {
      written = n;
      remaining = static_cast<uint32_t>(len - static_cast<size_t>(n));
      if (remaining == 0) {
        if (writeCompleteCallback_) {
          TcpConnectionPtr self = shared_from_this();
          WriteCompleteCallback cb = writeCompleteCallback_;
          loop_->queueInLoop([cb, self] { cb(self); });
        }
        return;
      }
    } else {
      int err = platform::lastSocketError();
      if (err != platform::kErrWouldBlock) {
        errno = err;
        LOG_SYSERR << "TcpConnection::sendInLoop";
        // The peer is gone: the rest of this send has nowhere to go.
        if (err == platform::kErrBrokenPipe || err == platform::kErrConnReset) return;
      }
    }
  }
  if (remaining == 0) return;

  size_t oldLen = outputBuffer_.readableBytes();
  size_t newLen = oldLen + remaining;
  // Reported at the crossing only, not for every send above the mark.
  if (newLen >= highWaterMark_ && oldLen < highWaterMark_ && highWaterMarkCallback_) {
    TcpConnectionPtr self = shared_from_this();
    HighWaterMarkCallback cb = highWaterMarkCallback_;
    loop_->queueInLoop([cb, self, newLen] { cb(self, newLen); });
  }
  outputBuffer_.append(static_cast<const char*>(data) + written, remaining);
  if (!channel_->isWriting()) channel_->enableWriting();
}

void TcpConnection::shutdown() {
  // Only from kConnected, and only once: a second call, or one racing the
  // loop thread's close, finds another state and does nothing.
  int expected = kConnected;
  if (state_.compare_exchange_strong(expected, kDisconnecting)) {
    TcpConnectionPtr self = shared_from_this();
    loop_->runInLoop([self] { self->shutdownInLoop(); });
  }
}

void TcpConnection::shutdownInLoop() {
  loop_->assertInLoopThread();
  // While bytes are queued, handleWrite closes the write side after the last.
  if (!channel_->isWriting()) socket_->shutdownWrite();
}

void TcpConnection::connectEstablished() {
  loop_->assertInLoopThread();
  setState(kConnected);
  TcpConnectionPtr self = shared_from_this();
  channel_->tie(self);
  channel_->enableReading();
  connectionCallback_(self);
}

void TcpConnection::connectDestroyed() {
  loop_->assertInLoopThread();
  if (state_.load() == kConnected) {
    setState(kDisconnected);
    channel_->disableAll();
    connectionCallback_(shared_from_this());
  }
  channel_->remove();
}

void TcpConnection::handleRead(Timestamp receiveTime) {
  loop_->assertInLoopThread();
  int savedError = 0;
  int n = inputBuffer_.readFd(channel_->fd(), &savedError);
  if (n > 0) {
    messageCallback_(shared_from_this(), &inputBuffer_, receiveTime);
  } else if (n == 0) {
    handleClose();
  } else {
    // Not closed here: the hang-up or the zero read that follows does that.
    errno = savedError;
    LOG_SYSERR << "TcpConnection::handleRead";
    handleError();
  }
}

void TcpConnection::handleWrite() {
  loop_->assertInLoopThread();
  if (!channel_->isWriting()) {
    LOG_TRACE << "Connection fd = " << channel_->fd() << " is down, no more writing";
    return;
  }
  int n = sockets::write(channel_->fd(), outputBuffer_.peek(), outputBuffer_.readableBytes());
  if (n <= 0) {
    // Stays writing: the next pass tries again, or reports the hang-up.
    errno = platform::lastSocketError();
    LOG_SYSERR << "TcpConnection::handleWrite";
    return;
  }
  outputBuffer_.retrieve(static_cast<size_t>(n));
  if (outputBuffer_.readableBytes() != 0) return;
  // Drained: write interest off, or every pass would report a writable socket.
  channel_->disableWriting();
  if (writeCompleteCallback_) {
    TcpConnectionPtr self = shared_from_this();
    WriteCompleteCallback cb = writeCompleteCallback_;
    loop_->queueInLoop([cb, self] { cb(self); });
  }
  if (state_.load() == kDisconnecting) shutdownInLoop();
}

void TcpConnection::handleClose() {
  loop_->assertInLoopThread();
  LOG_TRACE << "fd = " << channel_->fd() << " state = " << stateToString();
  setState(kDisconnected);
  channel_->disableAll();
  // Held here: the close callback may drop every other reference.
  TcpConnectionPtr guard = shared_from_this();
  connectionCallback_(guard);
  closeCallback_(guard);  // last: nothing of this may be touched after it
}

void TcpConnection::handleError() {
  int err = sockets::getSocketError(channel_->fd());
  LOG_ERROR << "TcpConnection::handleError [" << name_ << "] - SO_ERROR = " << err << " "
            << platform::errorText(err);
}

}  // namespace net
}  // namespace velmar

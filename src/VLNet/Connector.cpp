#include "VLNet/Connector.h"

#include <algorithm>
#include <cerrno>

#include "VLNet/Channel.h"
#include "VLNet/EventLoop.h"
#include "VLNet/SocketsOps.h"
#include "utility/Logging.h"

namespace velmar {
namespace net {

namespace {

// A connect still in progress blocks the loop thread for at most this long
// where the platform makes us wait for it with select.
constexpr int kConnectWaitMs = 10000;

}  // namespace

constexpr int Connector::kInitRetryDelayMs;
constexpr int Connector::kMaxRetryDelayMs;

Connector::Connector(EventLoop* loop, const InetAddress& serverAddr)
    : loop_(loop), localAddr_(0), serverAddr_(serverAddr) {
  LOG_DEBUG << "ctor[" << this << "]";
}

Connector::Connector(EventLoop* loop, const InetAddress& serverAddr, const InetAddress& localAddr)
    : loop_(loop), localAddr_(localAddr), serverAddr_(serverAddr) {
  LOG_DEBUG << "ctor[" << this << "]";
}

Connector::~Connector() {
  LOG_DEBUG << "dtor[" << this << "]";
  // Only a loop that goes away with a connect in flight drops the last
  // reference this early (its pending stop is destroyed unrun). The loop's
  // own destructor runs on the loop thread, so the channel can still leave
  // the poller before it is destroyed, and the socket is not leaked.
  if (channel_) {
    int sockfd = channel_->fd();
    channel_->disableAll();
    channel_->remove();
    channel_.reset();
    sockets::close(sockfd);
  }
}

void Connector::start() {
  connect_ = true;
  ConnectorPtr self = shared_from_this();
  loop_->runInLoop([self] { self->startInLoop(); });
}

void Connector::restart() {
  loop_->assertInLoopThread();
  setState(kDisconnected);
  retryDelayMs_ = kInitRetryDelayMs;
  connect_ = true;
  startInLoop();
}

void Connector::stop() {
  connect_ = false;
  ConnectorPtr self = shared_from_this();
  loop_->queueInLoop([self] { self->stopInLoop(); });
}

void Connector::startInLoop() {
  loop_->assertInLoopThread();
  if (!connect_) {
    LOG_DEBUG << "do not connect";
    return;
  }
  // One attempt at a time: a retry timer left over from before a stop and a
  // new start (timers are not cancelled) must not open a second socket while
  // the first is still waiting.
  if (state_.load() == kConnecting) {
    LOG_DEBUG << "already connecting";
    return;
  }
  connect();
}

void Connector::connect() {
  int sockfd = sockets::createNonblockingOrDie(serverAddr_.family());
  int on = 1;
  if (platform::setSocketOption(sockfd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
    errno = platform::lastSocketError();
    LOG_SYSERR << "SO_REUSEADDR failed.";
  }
  sockets::bindOrDie(sockfd, localAddr_.sockAddr());
  int ret = sockets::connect(sockfd, serverAddr_.sockAddr());
  // Taken at once: the call's own error tells a connect in progress from a
  // failure, and anything in between (a log line) may overwrite it.
  int err = ret == 0 ? 0 : sockets::connectError(sockfd, platform::lastSocketError());

  // Where poll does not report a failed connect, would-block is settled here,
  // blocking the loop. Elsewhere that number is EAGAIN (no local port left),
  // which is retried below like the other passing troubles.
  if (platform::kConnectWaitsInSelect && err == platform::kErrWouldBlock) {
    waitInSelect(sockfd);
    return;
  }
  if (err == 0 || err == platform::kErrInProgress || err == platform::kErrInterrupted ||
      err == platform::kErrInvalid) {
    connecting(sockfd);
  } else if (err == platform::kErrAddrInUse || err == platform::kErrNetUnreach ||
             err == platform::kErrConnRefused || err == platform::kErrAgainPlain) {
    retry(sockfd);
  } else {
    giveUp(sockfd, err);
  }
}

void Connector::waitInSelect(int sockfd) {
  platform::ConnectWait wait = platform::waitForConnect(sockfd, kConnectWaitMs);
  if (wait.result == 0) {
    retry(sockfd);  // no answer within the wait
  } else if (wait.writable) {
    connecting(sockfd);  // the write event on the channel confirms it
  } else if (wait.failed) {
    retry(sockfd);
  } else {
    giveUp(sockfd, platform::kErrWouldBlock);
  }
}

// An error we do not know how to get past: no retry and no callback, only
// the log line. A restart is the way to try again.
void Connector::giveUp(int sockfd, int err) {
  errno = err;
  LOG_SYSERR << "Unexpected error in Connector::startInLoop " << err;
  sockets::close(sockfd);
}

void Connector::connecting(int sockfd) {
  setState(kConnecting);
  channel_.reset(new Channel(loop_, sockfd));
  channel_->setWriteCallback([this] { handleWrite(); });
  channel_->setErrorCallback([this] { handleError(); });
  channel_->enableWriting();
}

void Connector::handleWrite() {
  LOG_TRACE << "Connector::handleWrite " << state_.load();
  if (state_.load() != kConnecting) return;
  int sockfd = detachChannel();
  int err = sockets::getSocketError(sockfd);
  if (err != 0) {
    LOG_WARN << "Connector::handleWrite - SO_ERROR = " << err << " " << platform::errorText(err);
    retry(sockfd);
  } else if (sockets::isSelfConnect(sockfd)) {
    LOG_WARN << "Connector::handleWrite - Self connect";
    retry(sockfd);
  } else {
    setState(kConnected);
    if (connect_) {
      newConnectionCallback_(sockfd);
    } else {
      sockets::close(sockfd);
    }
  }
}

void Connector::handleError() {
  LOG_ERROR << "Connector::handleError state=" << state_.load();
  if (state_.load() != kConnecting) return;
  int sockfd = detachChannel();
  int err = sockets::getSocketError(sockfd);
  LOG_TRACE << "SO_ERROR = " << err << " " << platform::errorText(err);
  retry(sockfd);
}

void Connector::retry(int sockfd) {
  retryCallback_(retryDelayMs_);  // the owner always sets one; empty throws
  sockets::close(sockfd);
  setState(kDisconnected);
  if (!connect_) {
    LOG_DEBUG << "do not connect";
    return;
  }
  LOG_INFO << "Connector::retry - Retry connecting to " << serverAddr_.toIpPort() << " in "
           << retryDelayMs_ << " milliseconds. ";
  ConnectorPtr self = shared_from_this();
  // The timer is not kept: a scheduled retry runs, and finds connect_ then.
  loop_->runAfter(retryDelayMs_ / 1000.0, [self] { self->startInLoop(); });
  retryDelayMs_ = std::min(retryDelayMs_ * 2, kMaxRetryDelayMs);
}

void Connector::stopInLoop() {
  loop_->assertInLoopThread();
  if (state_.load() == kConnecting) {
    setState(kDisconnected);
    int sockfd = detachChannel();
    retry(sockfd);  // reports once more, closes, and stops at connect_
  }
}

// Called from the channel's own handlers (or on their behalf), so the channel
// is destroyed later, by a functor that owns it. Owning it there, rather than
// resetting channel_ then, keeps a channel made meanwhile by a new attempt.
int Connector::detachChannel() {
  channel_->disableAll();
  channel_->remove();
  int sockfd = channel_->fd();
  std::shared_ptr<Channel> detached(std::move(channel_));
  loop_->queueInLoop([detached]() mutable { detached.reset(); });
  return sockfd;
}

}  // namespace net
}  // namespace velmar

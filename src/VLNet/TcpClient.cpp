#include "VLNet/TcpClient.h"

#include <cstdio>

#include "VLNet/EventLoop.h"
#include "VLNet/SocketsOps.h"
#include "VLNet/TcpConnection.h"
#include "utility/Logging.h"

namespace velmar {
namespace net {

namespace {

constexpr int kSendBufferBytes = 128 * 1024;          // SO_SNDBUF
constexpr int kReceiveBufferBytes = 6 * 1024 * 1024;  // SO_RCVBUF: room for a burst of answers

EventLoop* checkLoop(EventLoop* loop) {
  if (loop == nullptr) LOG_FATAL << "'loop' Must be non NULL";
  return loop;
}

// The close callback of a connection whose client has gone: the channel still
// leaves the poller, on the loop thread and after the running handler.
void detachedRemoveConnection(EventLoop* loop, const TcpConnectionPtr& conn) {
  loop->queueInLoop([conn] { conn->connectDestroyed(); });
}

}  // namespace

TcpClient::TcpClient(EventLoop* loop, const InetAddress& serverAddr, const InetAddress& localAddr,
                     const std::string& name)
    : loop_(checkLoop(loop)),
      connector_(std::make_shared<Connector>(loop, serverAddr, localAddr)),
      name_(name),
      connectFailCallback_([](int) {}),
      connectionCallback_(defaultConnectionCallback),
      messageCallback_(defaultMessageCallback) {
  init();
}

TcpClient::TcpClient(EventLoop* loop, const InetAddress& serverAddr, const std::string& name)
    : loop_(checkLoop(loop)),
      connector_(std::make_shared<Connector>(loop, serverAddr)),
      name_(name),
      connectFailCallback_([](int) {}),
      connectionCallback_(defaultConnectionCallback),
      messageCallback_(defaultMessageCallback) {
  init();
}

void TcpClient::init() {
  connector_->setNewConnectionCallback([this](int sockfd) { newConnection(sockfd); });
  connector_->setRetryCallback([this](int delayMs) { handleConnectorRetry(delayMs); });
  LOG_INFO << "TcpClient::TcpClient[" << name_ << "] - connector " << connector_.get();
}

// The client API never destroys its client; tests and tools do, on the loop
// thread, where nothing else can be calling back into it meanwhile.
TcpClient::~TcpClient() {
  loop_->assertInLoopThread();
  LOG_INFO << "TcpClient::~TcpClient[" << name_ << "] - connector " << connector_.get();
  // The connector may outlive us in a pending stop or retry: it must not
  // call back into a client that is gone.
  connector_->setNewConnectionCallback([](int sockfd) { sockets::close(sockfd); });
  connector_->setRetryCallback([](int) {});
  connect_ = false;
  connector_->stop();

  TcpConnectionPtr conn;
  {
    utility::MutexLockGuard lock(mutex_);
    conn.swap(connection_);
  }
  if (conn) {
    // A live connection goes on for whoever else holds it, but its close must
    // not reach back here. Held by nobody else, it goes down now.
    EventLoop* loop = loop_;
    conn->setCloseCallback(
        [loop](const TcpConnectionPtr& c) { detachedRemoveConnection(loop, c); });
    if (conn.use_count() == 1) conn->connectDestroyed();
  }
}

void TcpClient::connect() {
  LOG_INFO << "TcpClient::connect[" << name_ << "] - connecting to "
           << connector_->serverAddress().toIpPort();
  connect_ = true;
  connector_->start();
}

void TcpClient::stop() {
  connect_ = false;
  connector_->stop();
}

TcpConnectionPtr TcpClient::connection() const {
  utility::MutexLockGuard lock(mutex_);
  return connection_;
}

void TcpClient::newConnection(int sockfd) {
  loop_->assertInLoopThread();
  InetAddress peerAddr(sockets::getPeerAddr(sockfd));
  char suffix[32];
  // Cut to 31 characters if need be.
  snprintf(suffix, sizeof suffix, ":%s#%d", peerAddr.toIpPort().c_str(), nextConnectionNumber_);
  ++nextConnectionNumber_;
  std::string connName = name_ + suffix;

  if (sockfd >= 0) {
    // Results ignored: the system's sizes serve as well.
    int sendBytes = kSendBufferBytes;
    int receiveBytes = kReceiveBufferBytes;
    platform::setSocketOption(sockfd, SOL_SOCKET, SO_SNDBUF, &sendBytes, sizeof sendBytes);
    platform::setSocketOption(sockfd, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
  }
  InetAddress localAddr(sockets::getLocalAddr(sockfd));
  TcpConnectionPtr conn =
      std::make_shared<TcpConnection>(loop_, connName, sockfd, localAddr, peerAddr);
  conn->setConnectionCallback(connectionCallback_);
  conn->setMessageCallback(messageCallback_);
  conn->setWriteCompleteCallback(writeCompleteCallback_);
  conn->setCloseCallback([this](const TcpConnectionPtr& c) { removeConnection(c); });
  {
    utility::MutexLockGuard lock(mutex_);
    connection_ = conn;
  }
  conn->connectEstablished();  // outside the lock: it calls the application
}

void TcpClient::removeConnection(const TcpConnectionPtr& conn) {
  loop_->assertInLoopThread();
  {
    utility::MutexLockGuard lock(mutex_);
    connection_.reset();
  }
  // Queued, holding the connection: we are inside its channel's handler.
  loop_->queueInLoop([conn] { conn->connectDestroyed(); });
  if (retry_ && connect_) {
    LOG_INFO << "TcpClient::connect[" << name_ << "] - Reconnecting to "
             << connector_->serverAddress().toIpPort();
    connector_->restart();
  }
}

void TcpClient::handleConnectorRetry(int delayMs) {
  loop_->assertInLoopThread();
  connectFailCallback_(delayMs);
}

}  // namespace net
}  // namespace velmar

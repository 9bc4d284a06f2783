// TcpClient: one connector and at most one live connection on one loop. It
// names each connection ("<name>:<peer ip:port>#<n>"), sizes the socket
// buffers, carries the callbacks over to the connection, and reconnects after
// a loss when retry is on.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "VLNet/Callbacks.h"
#include "VLNet/Connector.h"
#include "VLNet/InetAddress.h"
#include "utility/Mutex.h"

namespace velmar {
namespace net {

class EventLoop;

class TcpClient {
 public:
  /// Called at each failed attempt with the coming retry delay.
  using ConnectFailCallback = std::function<void(int delayMs)>;

  TcpClient(EventLoop* loop, const InetAddress& serverAddr, const InetAddress& localAddr,
            const std::string& name);
  TcpClient(EventLoop* loop, const InetAddress& serverAddr, const std::string& name);
  /// On the loop thread, with the loop still alive. Stops the connector; a
  /// live connection goes on for its other holders (its close no longer
  /// reaches the client) and goes down at once if the client held the last
  /// reference.
  ~TcpClient();
  TcpClient(const TcpClient&) = delete;
  TcpClient& operator=(const TcpClient&) = delete;

  /// Set before connect.
  void setConnectFailCallback(ConnectFailCallback cb) { connectFailCallback_ = std::move(cb); }
  void setConnectionCallback(ConnectionCallback cb) { connectionCallback_ = std::move(cb); }
  void setMessageCallback(MessageCallback cb) { messageCallback_ = std::move(cb); }
  void setWriteCompleteCallback(WriteCompleteCallback cb) {
    writeCompleteCallback_ = std::move(cb);
  }
  void enableRetry() { retry_ = true; }
  bool retry() const { return retry_; }

  /// Any thread.
  void connect();
  /// Any thread: no further attempts; a live connection is left alone.
  void stop();

  TcpConnectionPtr connection() const;
  EventLoop* getLoop() const { return loop_; }
  const std::string& name() const { return name_; }
  const ConnectorPtr& connector() const { return connector_; }

 private:
  void init();
  void newConnection(int sockfd);
  void removeConnection(const TcpConnectionPtr& conn);
  void handleConnectorRetry(int delayMs);

  EventLoop* loop_;
  ConnectorPtr connector_;
  const std::string name_;
  ConnectFailCallback connectFailCallback_;
  ConnectionCallback connectionCallback_;
  MessageCallback messageCallback_;
  WriteCompleteCallback writeCompleteCallback_;
  std::atomic<bool> retry_{false};
  std::atomic<bool> connect_{true};
  int nextConnectionNumber_ = 1;
  mutable utility::MutexLock mutex_;
  TcpConnectionPtr connection_;
};

}  // namespace net
}  // namespace velmar

// TcpConnection: one established TCP connection on one loop. Owns the socket
// and its channel, reads into the input buffer, writes with partial-write
// handling through the output buffer, and goes down in order. Always held by
// shared pointer.
//
// Threads: send and shutdown may be called from any thread; everything else
// runs on the loop thread. A cross-thread send copies the bytes first, so the
// caller may reuse its memory at once. The calls handed to the loop by send
// and shutdown hold a shared pointer to the connection, so it lives until
// they have run even if its holder lets go meanwhile.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "VLNet/Buffer.h"
#include "VLNet/Callbacks.h"
#include "VLNet/InetAddress.h"

namespace velmar {
namespace net {

class Channel;
class EventLoop;
class Socket;

class TcpConnection : public std::enable_shared_from_this<TcpConnection> {
 public:
  enum StateE { kDisconnected = 0, kConnecting = 1, kConnected = 2, kDisconnecting = 3 };
  static constexpr size_t kDefaultHighWaterMark = 64 * 1024 * 1024;

  TcpConnection(EventLoop* loop, const std::string& name, int sockfd,
                const InetAddress& localAddr, const InetAddress& peerAddr);
  ~TcpConnection();
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  EventLoop* getLoop() const { return loop_; }
  const std::string& name() const { return name_; }
  const InetAddress& localAddress() const { return localAddr_; }
  const InetAddress& peerAddress() const { return peerAddr_; }
  bool connected() const { return state_.load() == kConnected; }
  bool disconnected() const { return state_.load() == kDisconnected; }
  int state() const { return state_.load(); }
  /// "kDisconnected", "kConnecting", "kConnected", "kDisconnecting".
  const char* stateToString() const;

  /// Sends if connected, else drops silently. Any thread.
  void send(const void* data, int len);
  /// Closes the write side once the output has drained. Any thread.
  void shutdown();

  void setConnectionCallback(ConnectionCallback cb) { connectionCallback_ = std::move(cb); }
  void setMessageCallback(MessageCallback cb) { messageCallback_ = std::move(cb); }
  void setWriteCompleteCallback(WriteCompleteCallback cb) {
    writeCompleteCallback_ = std::move(cb);
  }
  void setHighWaterMarkCallback(HighWaterMarkCallback cb, size_t highWaterMark) {
    highWaterMarkCallback_ = std::move(cb);
    highWaterMark_ = highWaterMark;
  }
  void setCloseCallback(CloseCallback cb) { closeCallback_ = std::move(cb); }

  /// Loop thread only.
  Buffer* inputBuffer() { return &inputBuffer_; }
  Buffer* outputBuffer() { return &outputBuffer_; }

  /// Called by the client, once each, on the loop thread.
  void connectEstablished();
  void connectDestroyed();

 private:
  void handleRead(Timestamp receiveTime);
  void handleWrite();
  void handleClose();
  void handleError();
  void sendInLoop(const std::string& message);
  void sendInLoop(const void* data, size_t len);
  void shutdownInLoop();
  void setState(StateE s) { state_.exchange(s); }

  EventLoop* loop_;
  const std::string name_;
  std::atomic<int> state_;
  std::unique_ptr<Socket> socket_;
  std::unique_ptr<Channel> channel_;
  const InetAddress localAddr_;
  const InetAddress peerAddr_;
  ConnectionCallback connectionCallback_;
  MessageCallback messageCallback_;
  WriteCompleteCallback writeCompleteCallback_;
  HighWaterMarkCallback highWaterMarkCallback_;
  CloseCallback closeCallback_;
  size_t highWaterMark_ = kDefaultHighWaterMark;
  Buffer inputBuffer_;
  Buffer outputBuffer_;
};

}  // namespace net
}  // namespace velmar

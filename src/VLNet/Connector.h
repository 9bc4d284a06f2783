// Connector: makes one outgoing TCP connection for its owner, retrying with a
// growing delay (500, 1000, 2000, 3000, 3000 ... ms), and hands the connected
// socket over by callback. Runs on the owner's loop. The socket is always
// bound first, to the given local address or to the any-address; a local
// address that cannot be bound ends the process.
//
// Held by shared pointer only: start, stop and every scheduled retry hold one,
// so the connector outlives whatever the loop still has to run for it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "VLNet/InetAddress.h"

namespace velmar {
namespace net {

class Channel;
class EventLoop;

class Connector : public std::enable_shared_from_this<Connector> {
 public:
  using NewConnectionCallback = std::function<void(int sockfd)>;
  /// Called at the start of every retry with the delay about to be used.
  using RetryCallback = std::function<void(int delayMs)>;

  static constexpr int kInitRetryDelayMs = 500;
  static constexpr int kMaxRetryDelayMs = 3000;

  Connector(EventLoop* loop, const InetAddress& serverAddr);
  Connector(EventLoop* loop, const InetAddress& serverAddr, const InetAddress& localAddr);
  ~Connector();
  Connector(const Connector&) = delete;
  Connector& operator=(const Connector&) = delete;

  void setNewConnectionCallback(NewConnectionCallback cb) { newConnectionCallback_ = std::move(cb); }
  void setRetryCallback(RetryCallback cb) { retryCallback_ = std::move(cb); }

  /// Any thread.
  void start();
  /// Loop thread: starts over with the first delay.
  void restart();
  /// Any thread: no further attempt.
  void stop();

  const InetAddress& serverAddress() const { return serverAddr_; }

  enum States { kDisconnected = 0, kConnecting = 1, kConnected = 2 };
  int state() const { return state_.load(); }
  int retryDelayMs() const { return retryDelayMs_; }

 private:
  void setState(States s) { state_.exchange(s); }
  void startInLoop();
  void stopInLoop();
  void connect();
  void connecting(int sockfd);
  void handleWrite();
  void handleError();
  void waitInSelect(int sockfd);
  void giveUp(int sockfd, int err);
  void retry(int sockfd);
  int detachChannel();

  EventLoop* loop_;
  InetAddress localAddr_;
  InetAddress serverAddr_;
  std::atomic<bool> connect_{false};
  std::atomic<int> state_{kDisconnected};
  std::unique_ptr<Channel> channel_;
  NewConnectionCallback newConnectionCallback_;
  RetryCallback retryCallback_;
  int retryDelayMs_ = kInitRetryDelayMs;
};

using ConnectorPtr = std::shared_ptr<Connector>;

}  // namespace net
}  // namespace velmar

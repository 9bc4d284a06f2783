// FrontSession: the TCP session with the front. The connection and its
// reconnects, the answers and what they change, the keep-alive and the
// receive time-out.
//
// Threads:
// - application thread: startLoop, createClient, connect (Init), join (Join),
//   release (Release), setHeartbeatTimeout; before Init or outside callbacks.
// - front loop thread ("MdApiThread"): onConnection, onConnectFailed,
//   onMessage and dispatchField, onHeartbeatTimer, onHeartbeatTimeout. All the
//   timers and clearSession run here.
// - any thread: connection and sendPackage, for the requests (FrontRequests).
//
// Locks:
// - mutex_ (SessionCore) guards subscriptions_ and the books' map; the flags
//   change under it. The callbacks marked so in the callback table run under
//   the front's callback lock (SessionCore::callbackMutex(kFront)): that is
//   mutex_ itself while callbacks are serialized (the default), so state and
//   callback share one scope as they always have. Otherwise mutex_ is taken
//   inside the callback lock for the changes only (SharedStateLock) and let go
//   before the callback, which then gets records this thread owns (a copy of
//   a market-data record, as the receiver updates the stored one in place).
//   The answers to the "all instruments" requests and the time-out warning
//   run without a lock.
// - Counters: the front group of SessionCounters, one count per callback.
// - connMutex_ guards conn_ alone, for a moment. It is taken alone or inside
//   mutex_ (a request made from a callback), never around it, and no callback
//   runs under it.
// Everything else here belongs to the front loop thread once Init is done.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/Subscriptions.h"
#include "VLNet/Callbacks.h"
#include "VLNet/TimerId.h"
#include "VelmarMdStruct.h"
#include "utility/Mutex.h"
#include "utility/Timestamp.h"

class CVelmarPackage;
class CVelmarPackageIterator;

namespace velmar {
namespace net {
class EventLoop;
class EventLoopThread;
class InetAddress;
class TcpClient;
}  // namespace net

namespace mdapi {

class OrderBooks;
class TestAccess;

class FrontSession {
 public:
  /// `core` and `books` outlive the session: they are its neighbours in
  /// MdApiImpl. The answers change the books through `books`.
  FrontSession(SessionCore& core, OrderBooks& books, SessionCounters& counters);
  ~FrontSession();
  FrontSession(const FrontSession&) = delete;
  FrontSession& operator=(const FrontSession&) = delete;

  // ---- Application thread ----
  /// Init: starts the front loop thread.
  void startLoop();
  /// Init, after startLoop: the client for `server`, bound to `local` if not
  /// null, with this session's callbacks and reconnects on.
  void createClient(const net::InetAddress& server, const net::InetAddress* local);
  /// Init: the first connect; the client retries by itself from then on.
  void connect();
  /// Join: waits for the loop thread once; a second call returns at once.
  void join();
  /// Release: stops the connector and quits the loop.
  void release();
  void setHeartbeatTimeout(unsigned int seconds) { heartbeatTimeout_.store(seconds); }
  /// Before Init: called on the loop thread when a login answer carries a
  /// TradingDay other than the previous accepted login's, before the gate
  /// opens for it. The session wires it to the feed, whose sequence numbers
  /// start again with the new day.
  void setNewTradingDayCallback(std::function<void()> callback) {
    newTradingDay_ = std::move(callback);
  }

  /// The front loop once startLoop has run, else null. Lives until the end
  /// of the process.
  net::EventLoop* loop() const { return loop_; }

  // ---- Front loop thread ----
  void onConnection(const net::TcpConnectionPtr& conn);
  void onMessage(const net::TcpConnectionPtr& conn, net::Buffer* buffer, Timestamp receiveTime);
  void onConnectFailed(int delayMs);
  void onHeartbeatTimer();
  void onHeartbeatTimeout();
  /// One field of an answer package. A logout answer and an unknown field id
  /// drop the rest of the buffer.
  void dispatchField(const CVelmarPackageIterator& it, net::Buffer* buffer);
  /// Drops login and every subscription; mutex_ held.
  void clearSession();

  // ---- Any thread ----
  /// The latest connection, or null.
  net::TcpConnectionPtr connection() const;
  /// Hands bytes to the live connection; false (and a log line) when there is
  /// none.
  bool sendPackage(const char* data, int length);

  /// What the answers have granted, for the feed to read under mutex_.
  Subscriptions& subscriptions() { return subscriptions_; }

 private:
  friend class TestAccess;

  SessionCore& core_;
  OrderBooks& books_;
  SessionCounters& counters_;
  /// Guarded by mutex_; see Subscriptions.h.
  Subscriptions subscriptions_;

  std::unique_ptr<net::EventLoopThread> loopThread_;
  std::atomic<bool> joined_{false};
  net::EventLoop* loop_ = nullptr;
  std::unique_ptr<net::TcpClient> client_;
  /// The latest connection. Written on the loop thread, read by requests on
  /// any thread; connMutex_.
  net::TcpConnectionPtr conn_;
  mutable utility::MutexLock connMutex_;
  /// Built once and sent as is: 00 02 00 00 04 00.
  std::unique_ptr<CVelmarPackage> heartbeatPackage_;

  /// Seconds without any byte from the front before the warning; set from
  /// the application thread, read on the loop thread.
  std::atomic<uint32_t> heartbeatTimeout_{30};
  uint32_t heartbeatInterval_ = 1;
  net::TimerId heartbeatTimerId_;
  net::TimerId timeoutTimerId_;

  /// Loop thread: the TradingDay of the last accepted login, empty before
  /// the first.
  void noteTradingDay(const char* tradingDay, size_t width);
  std::string lastTradingDay_;
  std::function<void()> newTradingDay_;

  /// Overwritten by every tick the front sends.
  std::unique_ptr<CVelmarTickByTick> frontTickRecord_;
  /// While callbacks are not serialized: the copy of each market-data record
  /// that OnRtnMarketData gets.
  std::unique_ptr<CVelmarMarketData> frontMarketRecord_;
  /// One more callback of a kind, counted before it is made.
  void count(SessionCounters::Counter& counter) { SessionCounters::add(counter); }
};

}  // namespace mdapi
}  // namespace velmar

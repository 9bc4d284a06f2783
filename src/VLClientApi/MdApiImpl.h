// MdApiImpl: the one object behind a VelmarMdApi. The API, the front session,
// the feed handlers and the book thread all work on it. It lives until the end
// of the process once Init has run: its threads keep using it.
//
// This is an internal header. Members are public so that the parts of the
// library that live in other source files, and the tests, can reach them; the
// application only ever sees VelmarMdApi.
//
// Locking: mutex_ is the session lock. It guards the maps and is held around
// nearly every callback, so callbacks never overlap. It is not recursive: code
// that runs inside a callback must never take it again. The gate flags are
// atomics because the feed thread reads them without the lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <concurrentqueue/concurrentqueue.h>

#include "VLClientApi/BookBytesPool.h"
#include "VLClientApi/OrderBookNode.h"
#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/SessionOptions.h"
#include "VLNet/Callbacks.h"
#include "VLNet/TimerId.h"
#include "VelmarMdApi.h"
#include "utility/Mutex.h"
#include "utility/Timestamp.h"

class CVelmarPackage;
class CVelmarPackageIterator;

namespace velmar {
namespace net {
class EventLoop;
class EventLoopThread;
class TcpClient;
}  // namespace net

namespace mdapi {

class MdApiImpl : public VelmarMdApi {
 public:
  MdApiImpl();
  virtual ~MdApiImpl();
  MdApiImpl(const MdApiImpl&) = delete;
  MdApiImpl& operator=(const MdApiImpl&) = delete;

  // ---- VelmarMdApi ----
  void Release() override;
  int Init() override;
  int Join() override;
  const char* GetTradingDay() override;
  void RegisterFront(const char* address) override;
  void RegisterMulticast(const char* address) override;
  void RegisterLocalTcpAddress(const char* address) override;
  void RegisterMulticastInterface(const char* address) override;
  void SetUserString(const char* text) override;
  void RegisterSpi(VelmarMdSpi* spi) override;
  void SetHeartbeatTimeout(unsigned int seconds) override;
  int ReqUserLogin(CVelmarReqUserLogin* request, int requestId) override;
  int ReqUserLogout(CVelmarReqUserLogout* request, int requestId) override;
  int SubAllMarketData(int tickType, int exchange, int requestId) override;
  int UnSubAllMarketData(int tickType, int exchange, int requestId) override;
  int SubAllTickByTick(int exchange, int requestId) override;
  int UnSubAllTickByTick(int exchange, int requestId) override;
  int SubMarketData(char** instrumentIds, int count, int requestId) override;
  int UnSubMarketData(char** instrumentIds, int count, int requestId) override;
  int SubTickByTick(char** instrumentIds, int count, int requestId) override;
  int UnSubTickByTick(char** instrumentIds, int count, int requestId) override;
  int SubAllOrderBook(int exchange, int requestId) override;
  int UnSubAllOrderBook(int exchange, int requestId) override;
  int SubOrderBook(char** instrumentIds, int count, int requestId) override;
  int UnSubOrderBook(char** instrumentIds, int count, int requestId) override;

  // ---- Requests (FrontRequests.cpp) ----
  /// Zeroes rspInfo_, fills id and text, calls OnRspError(info, requestId,
  /// true) on the caller's thread without the lock.
  void fillRspInfo(int errorId, int requestId);
  /// Builds one package with one field and sends it. Always returns 0: a
  /// failure reaches the application as OnRspError -117 with requestId -1.
  /// A field longer than a package can carry is such a failure.
  int sendTransaction(const void* data, int requestId, int tid, size_t length);
  /// Hands bytes to the live connection; false (and a log line) when there is
  /// none.
  bool sendPackage(const char* data, int length);
  /// The body of the six per-instrument requests.
  /// `operation` names the API operation in its DEBUG lines.
  int sendInstruments(char** instrumentIds, int count, int requestId, int tid,
                      bool reportStateErrors, const char* nullMessage, const char* operation);

  // ---- Start-up (StartUp.cpp) ----
  /// Picks one entry of the list at random and splits "scheme://host:port".
  /// False for an empty list, an empty pick, a scheme other than tcp or udp,
  /// a text without "//" or ":", or an empty host or port text. An address
  /// whose only ':' is the scheme's ("tcp://host") passes: the host is all
  /// behind "//", the port text all behind the ':' (its number is 0).
  static bool parseAddress(const std::vector<std::string>& list, std::string* host,
                           std::string* port);

  // ---- Multicast receiver (UdpReceiver.cpp) ----
  /// Body of the receiver thread: joins the group and hands every datagram to
  /// onFeedDatagram, for as long as the process lives.
  void runUdpExanic();

  // ---- Front session (FrontDispatch.cpp), on the front loop thread ----
  void onConnection(const net::TcpConnectionPtr& conn);
  void onMessage(const net::TcpConnectionPtr& conn, net::Buffer* buffer, Timestamp receiveTime);
  void onConnectFailed(int delayMs);
  void onHeartbeatTimer();
  void onHeartbeatTimeout();
  /// One field of an answer package. False if the rest of the buffer was
  /// dropped (an unknown field id, a logout answer).
  void dispatchField(const CVelmarPackageIterator& it, net::Buffer* buffer);
  /// Drops login and every subscription; mutex_ held.
  void clearSession();
  /// The latest connection, or null. Any thread.
  net::TcpConnectionPtr connection() const;

  // ---- Feed (FeedDispatch.cpp, SnapshotHandlers.cpp) ----
  /// Entry of every datagram, on the receiver thread. The datagram lies in a
  /// buffer of at least feed::kReceiveSize bytes; handlers read only within
  /// it, whatever the datagram's real length.
  void onFeedDatagram(const char* datagram);
  /// mutex_ held: the tick filter of one exchange for an 8-byte id.
  bool tickSubscribed(const std::atomic<bool>& allTicks, const char* securityId) const;
  void onSzseOrder(CVelmarTickByTick* record, const char* body);
  void onSzseTrade(CVelmarTickByTick* record, const char* body);
  void onSseTrade(CVelmarTickByTick* record, const char* datagram);
  void onSseSnapshot(const char* datagram);
  void onSseIndex(const char* datagram);
  void onSzseSnapshot(const char* body);
  void onSzseIndex(const char* body);
  void onSzseVolumeStat(const char* body);

  // ---- Books (OrderBook*.cpp) ----
  /// Receiver thread: queues a Shenzhen message for the book thread if its
  /// instrument has a book or allOrderBook_ is set. The node carries a copy of
  /// the body's book bytes (see bookBytes_).
  void handOverToBooks(const char* body, orderBookNode::Kind kind);
  /// Body of the book thread: polls the queue for ever.
  void runOrderBook();
  /// One turn of the book thread's loop: takes one node if there is one,
  /// handles it and gives its bytes back. False if the queue was empty.
  bool pollBookQueue();
  /// Book thread: the gate and the rule for one node, and OnRtnOrderBook,
  /// all under mutex_. A node of an unknown kind returns at once without the
  /// lock. True if the book was published.
  bool handleBookNode(const orderBookNode& node);
  /// Frees the bytes of every node still queued. Only while no book thread
  /// runs: at destruction, and in tests.
  void drainBookQueue();

  // Front thread, with mutex_ held: the only ways to change szseOrderBookMap_,
  // so that the receiver's key set (bookKeys_) always mirrors the map.
  /// Tid 35: a Fresh book for a 16-byte id, replacing any book of that id.
  void addOrderBook(const char* id16);
  /// Tid 36: drops the book of a 16-byte id, if there is one.
  void removeOrderBook(const char* id16);
  /// Logout, lost connection, given-up connect, Init: drops every book.
  void clearOrderBooks();

  // ---- State ----
  CVelmarRspInfo rspInfo_;
  std::vector<std::string> frontAddresses_;
  std::vector<std::string> mcastAddresses_;
  std::vector<std::string> localTcpAddresses_;
  std::vector<std::string> mcastInterfaces_;
  std::string frontHost_, frontPort_;
  std::string mcastHost_, mcastPort_;
  std::string userString_;

  utility::MutexLock mutex_;
  VelmarMdSpi* spi_ = nullptr;

  std::unique_ptr<net::EventLoopThread> loopThread_;
  /// Join waits once; a second Join returns at once.
  std::atomic<bool> joined_{false};
  net::EventLoop* loop_ = nullptr;
  std::unique_ptr<net::TcpClient> client_;
  /// The latest connection. Written on the loop thread, read by requests on
  /// any thread, so it has a lock of its own; no callback runs under it.
  net::TcpConnectionPtr conn_;
  mutable utility::MutexLock connMutex_;
  /// Reused for every request; the keep-alive is built once and sent as is.
  std::unique_ptr<CVelmarPackage> requestPackage_;
  std::unique_ptr<CVelmarPackage> heartbeatPackage_;

  std::atomic<uint32_t> heartbeatTimeout_{30};
  uint32_t heartbeatInterval_ = 1;
  net::TimerId heartbeatTimerId_;
  net::TimerId timeoutTimerId_;

  std::atomic<bool> started_{false};
  std::atomic<bool> connected_{false};
  std::atomic<bool> loggedIn_{false};
  std::atomic<bool> snapshotsComplete_{false};
  std::atomic<bool> allTickExchange1_{false};
  std::atomic<bool> allTickExchange2_{false};
  std::atomic<bool> allOrderBook_{false};

  /// Books of subscribed Shenzhen instruments, owned by the map; guarded by
  /// mutex_. Changed only through addOrderBook, removeOrderBook and
  /// clearOrderBooks, which keep bookKeys_ in step.
  std::unordered_map<std::string, std::unique_ptr<CVelmarOrderBook>> szseOrderBookMap_;
  /// Receiver thread to book thread; one producer, one consumer.
  moodycamel::ConcurrentQueue<orderBookNode> orderBookQueue_;
  /// Instruments with a granted SubTickByTick; guarded by mutex_.
  std::unordered_map<std::string, uint32_t> tickSubscriptions_;
  /// Latest record per instrument and exchange, owned by the maps; mutex_.
  std::unordered_map<std::string, std::unique_ptr<CVelmarMarketData>> marketDataExchange1_;
  std::unordered_map<std::string, std::unique_ptr<CVelmarMarketData>> marketDataExchange2_;
  /// Last accepted sequence number per channel; receiver thread only. Never
  /// cleared: it outlives disconnection and a new login.
  std::unordered_map<uint32_t, int64_t> channelSeq_;

  /// The feed's socket; the receiver thread alone uses it.
  int udpSocket_ = -1;

  std::unique_ptr<CVelmarTickByTick> frontTickRecord_;
  std::unique_ptr<CVelmarTickByTick> feedTickRecord_;

  // ---- Books: hand-over state (OrderBookThread.cpp) ----
  /// Bytes of the queued nodes: the receiver fills them, the book thread gives
  /// them back.
  BookBytesPool bookBytes_;
  /// The keys of szseOrderBookMap_, for the receiver's filter. Changed only
  /// together with the map (front thread, mutex_ held, then this lock), read
  /// by the receiver under this lock alone: it never waits for mutex_, which
  /// is held across application callbacks.
  utility::MutexLock bookKeysMutex_;
  std::unordered_set<std::string> bookKeys_;

  // ---- Options, statistics, status callbacks (MdApiOptions.cpp) ----
  /// Application thread, never beside Init. log.level takes effect at once;
  /// log.directory is refused once the process log runs (first Init of any
  /// session), every other option once this session's Init went through.
  int SetOption(const char* name, const char* value) override;
  /// Any thread, no lock: reads counters_.
  int GetStatistics(CVelmarStatistics* out) override;
  void RegisterStatusSpi(VelmarMdStatusSpi* spi) override;
  /// Init, once loop_ runs: every stats.interval_ms, reportStatistics on
  /// the front loop. Nothing when the option is 0.
  void startStatisticsTimer();
  /// Front loop thread, no lock: OnStatistics with a fresh record, if a
  /// status object is registered.
  void reportStatistics();
  /// The status callbacks' object or null; any thread reads it, acquire.
  VelmarMdStatusSpi* statusSpi() const { return statusSpi_.load(std::memory_order_acquire); }
  /// Written by SetOption before Init only (but logLevel); read without a
  /// lock by the session's threads after it.
  SessionOptions options_;
  /// Written by the threads that own each group, read by GetStatistics.
  SessionCounters counters_;
  std::atomic<VelmarMdStatusSpi*> statusSpi_{nullptr};
  // StartUp.cpp: the process log, shared by every session.
  /// True once the first Init of the process has built the log writer.
  static bool processLogStarted();
  /// Waits up to `seconds` until the lines written so far are in the log
  /// file; false if they are not, or no writer runs. For tests.
  static bool flushLog(double seconds);
};

/// Creates each missing directory of a path; only "/" separates. False if a
/// directory could not be made.
bool makeLogDirectory(const std::string& path);

/// Instrument id text of a feed message: the bytes up to the first NUL, at
/// most `width` of them.
std::string securityIdKey(const char* id, size_t width = 8);

}  // namespace mdapi
}  // namespace velmar

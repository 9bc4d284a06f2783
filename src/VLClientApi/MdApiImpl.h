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

#include "VLClientApi/Feed.h"
#include "VLClientApi/OrderBooks.h"
#include "VLClientApi/SecurityIdKey.h"
#include "VLClientApi/SessionCore.h"
#include "VLClientApi/Subscriptions.h"
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

class TestAccess;

class MdApiImpl : public VelmarMdApi, public SessionCore {
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
  /// or a text without "//" or ":".
  static bool parseAddress(const std::vector<std::string>& list, std::string* host,
                           std::string* port);

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

  // ---- State ----
  friend class TestAccess;

  CVelmarRspInfo rspInfo_;
  std::vector<std::string> frontAddresses_;
  std::vector<std::string> mcastAddresses_;
  std::vector<std::string> localTcpAddresses_;
  std::vector<std::string> mcastInterfaces_;
  std::string frontHost_, frontPort_;
  std::string userString_;

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

  /// What the front has granted; guarded by mutex_.
  Subscriptions subscriptions_;
  std::unique_ptr<CVelmarTickByTick> frontTickRecord_;

  /// The books, their queue and the book thread's loop.
  OrderBooks books_;
  /// The receiver and its handlers.
  Feed feed_;
};

/// Creates each missing directory of a path; only "/" separates. False if a
/// directory could not be made.
bool makeLogDirectory(const std::string& path);

}  // namespace mdapi
}  // namespace velmar

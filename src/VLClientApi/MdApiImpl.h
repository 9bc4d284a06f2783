// MdApiImpl: the one object behind a VelmarMdApi. It keeps what the
// application registers, starts and stops the session, and wires together the
// parts that do the work:
//
//   FrontSession   the TCP session with the front (front loop thread)
//   FrontRequests  the requests, on the caller's thread
//   Feed           the multicast receiver and its handlers (receiver thread)
//   OrderBooks     the books, their queue and the book thread
//
// The parts share SessionCore: the session lock mutex_, the callback object
// spi_ and the gate flags. MdApiImpl holds it as a base, so those members keep
// their names on the session object, and hands each part a reference to it
// and to the neighbours it needs, nothing more. See ARCHITECTURE.md for the
// threads and the lock order.
//
// It lives until the end of the process once Init has run: its threads keep
// using it. This is an internal header; the application only ever sees
// VelmarMdApi. Tests reach the parts through tests/support/TestAccess.h.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "VLClientApi/Feed.h"
#include "VLClientApi/FrontRequests.h"
#include "VLClientApi/FrontSession.h"
#include "VLClientApi/OrderBooks.h"
#include "VLClientApi/SecurityIdKey.h"
#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SessionOptions.h"
#include "VelmarMdApi.h"

namespace velmar {
namespace mdapi {

class TestAccess;

class MdApiImpl : public VelmarMdApi, private SessionCore {
 public:
  MdApiImpl();
  virtual ~MdApiImpl();
  MdApiImpl(const MdApiImpl&) = delete;
  MdApiImpl& operator=(const MdApiImpl&) = delete;

  // ---- VelmarMdApi ----
  // Registration and Init, Join, Release: application thread. The requests
  // (FrontRequests): the caller's thread, a callback's included.
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

  /// Picks one entry of the list at random and splits "scheme://host:port".
  /// False for an empty list, an empty pick, a scheme other than tcp or udp,
  /// a text without "//" or ":", or an empty host or port text. An address
  /// whose only ':' is the scheme's ("tcp://host") passes: the host is all
  /// behind "//", the port text all behind the ':' (its number is 0).
  static bool parseAddress(const std::vector<std::string>& list, std::string* host,
                           std::string* port);

  // ---- Options, statistics, status callbacks (MdApiOptions.cpp) ----
  /// Application thread, never beside Init. log.level takes effect at once;
  /// log.directory is refused once the process log runs (first Init of any
  /// session), every other option once this session's Init went through.
  int SetOption(const char* name, const char* value) override;
  /// Any thread, no lock: reads counters_.
  int GetStatistics(CVelmarStatistics* out) override;
  void RegisterStatusSpi(VelmarMdStatusSpi* spi) override;

 private:
  friend class TestAccess;

  // What the application registered; application thread, before Init.
  std::vector<std::string> frontAddresses_;
  std::vector<std::string> mcastAddresses_;
  std::vector<std::string> localTcpAddresses_;
  std::vector<std::string> mcastInterfaces_;
  std::string frontHost_, frontPort_;
  std::string userString_;

  /// Init has succeeded once; a second Init is refused.
  std::atomic<bool> started_{false};

  // The parts, in the order they depend on each other.
  OrderBooks books_;
  FrontSession front_;
  Feed feed_;
  FrontRequests requests_;

  // ---- Options, statistics, status callbacks (MdApiOptions.cpp) ----
  /// Init, once the front loop runs: every stats.interval_ms,
  /// reportStatistics on the front loop. Nothing when the option is 0.
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
};

}  // namespace mdapi
}  // namespace velmar

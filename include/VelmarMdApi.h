// VLMdApi: client library for Shanghai and Shenzhen Level-2 market data.
//
// An application obtains a VelmarMdApi from CreateMdUserApi, registers its
// addresses and a VelmarMdSpi, and calls Init. Everything the library learns
// reaches the application through the VelmarMdSpi callbacks.
//
// The order of the virtual operations of both classes is the binary interface
// of the library: never reorder, insert or remove one.
#ifndef VELMAR_MD_API_H
#define VELMAR_MD_API_H

#include "VelmarMdStruct.h"

#if defined(_WIN32)
#if defined(VLMDAPI_STATIC)
#define VLMDAPI_EXPORT
#elif defined(VLMDAPI_BUILDING)
#define VLMDAPI_EXPORT __declspec(dllexport)
#else
#define VLMDAPI_EXPORT __declspec(dllimport)
#endif
#else
#define VLMDAPI_EXPORT __attribute__((visibility("default")))
#endif

namespace velmar {
namespace mdapi {

/// Callbacks of one session. Derive from this class and override what you
/// need; every operation has an empty body.
///
/// Threading: callbacks come on the front loop thread, on the multicast
/// receiver thread (OnRtnMarketData, OnRtnTickByTick from the feed), on the
/// book thread (OnRtnOrderBook) and, for errors the library detects itself, on
/// the thread that made the request. Most callbacks run under the session
/// lock, so they never overlap one another; a callback must return quickly and
/// must not call Init, Join or Release. Requests from inside a callback are
/// allowed. Every pointer argument is valid during the call only.
class VelmarMdSpi {
 public:
  /// The TCP connection to the front is up; log in now.
  virtual void OnFrontConnected() {}
  /// 0: an established connection went down. 4097: a connect attempt failed,
  /// another follows. Login and all subscriptions are gone in both cases.
  virtual void OnFrontDisconnected(int reason) { (void)reason; }
  /// Nothing arrived from the front for `seconds`; repeats until the
  /// connection is down.
  virtual void OnHeartBeatWarning(int seconds) { (void)seconds; }
  virtual void OnRspError(CVelmarRspInfo* info, int requestId, bool isLast) {
    (void)info, (void)requestId, (void)isLast;
  }
  /// Accepted: login set, info null. Refused: login null, info set.
  virtual void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int requestId,
                              bool isLast) {
    (void)login, (void)info, (void)requestId, (void)isLast;
  }
  virtual void OnRspUserLogout(CVelmarRspUserLogout* logout, CVelmarRspInfo* info, int requestId,
                               bool isLast) {
    (void)logout, (void)info, (void)requestId, (void)isLast;
  }
  virtual void OnRspSubAllMarketData(int tickType, int exchange, int requestId, bool isLast) {
    (void)tickType, (void)exchange, (void)requestId, (void)isLast;
  }
  virtual void OnRspUnSubAllMarketData(int tickType, int exchange, int requestId, bool isLast) {
    (void)tickType, (void)exchange, (void)requestId, (void)isLast;
  }
  virtual void OnRspSubAllTickByTick(int exchange, int requestId, bool isLast) {
    (void)exchange, (void)requestId, (void)isLast;
  }
  virtual void OnRspUnSubAllTickByTick(int exchange, int requestId, bool isLast) {
    (void)exchange, (void)requestId, (void)isLast;
  }
  /// instrumentIds: `count` pointers to 16-byte NUL-padded ids, released after
  /// the call.
  virtual void OnRspSubMarketData(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  virtual void OnRspUnSubMarketData(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  virtual void OnRspSubTickByTick(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  virtual void OnRspUnSubTickByTick(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// The library's stored record of the instrument; read it during the call.
  virtual void OnRtnMarketData(CVelmarMarketData* data) { (void)data; }
  /// A scratch record, overwritten by the next message.
  virtual void OnRtnTickByTick(CVelmarTickByTick* data) { (void)data; }
  /// The live book, on the book thread; copy what you keep, never write to it.
  virtual void OnRtnOrderBook(CVelmarOrderBook* book) { (void)book; }
  virtual void OnRspSubOrderBook(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  virtual void OnRspUnSubOrderBook(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  // Declared last so that it stands behind every callback in the table.
  virtual ~VelmarMdSpi() {}
};

/// One market-data session. Created by CreateMdUserApi; never deleted: an
/// initialised session's threads use the object until the process ends.
class VLMDAPI_EXPORT VelmarMdApi {
 public:
  /// Creates a session object, or returns null if memory is short. The text
  /// is reserved and not used.
  static VelmarMdApi* CreateMdUserApi(const char* reserved = "");
  /// "VELMAR_API_V1.0.1".
  static const char* GetVersion();

  /// Stops reconnecting and ends the front loop. The feed and book threads
  /// run on to the end of the process with the feed gate closed.
  virtual void Release() = 0;
  /// Starts the session: 0, -999 if it has run before, -115 for a missing or
  /// malformed front, multicast or local address.
  virtual int Init() = 0;
  /// Waits until the front loop has ended (after Release). Returns 0.
  virtual int Join() = 0;
  /// Local date of the first call in the process, as YYYYMMDD.
  virtual const char* GetTradingDay() = 0;
  /// "tcp://host:port"; one is chosen at random by Init.
  virtual void RegisterFront(const char* address) = 0;
  /// "udp://group:port"; one is chosen at random by Init.
  virtual void RegisterMulticast(const char* address) = 0;
  /// "tcp://host:port" to bind the front connection to; optional.
  virtual void RegisterLocalTcpAddress(const char* address) = 0;
  /// Dotted IPv4 address of the interface that joins the group; optional.
  virtual void RegisterMulticastInterface(const char* address) = 0;
  virtual void SetUserString(const char* text) = 0;
  virtual void RegisterSpi(VelmarMdSpi* spi) = 0;
  /// Seconds of front silence before OnHeartBeatWarning; default 30.
  virtual void SetHeartbeatTimeout(unsigned int seconds) = 0;

  virtual int ReqUserLogin(CVelmarReqUserLogin* request, int requestId) = 0;
  virtual int ReqUserLogout(CVelmarReqUserLogout* request, int requestId) = 0;
  virtual int SubAllMarketData(int tickType, int exchange, int requestId) = 0;
  virtual int UnSubAllMarketData(int tickType, int exchange, int requestId) = 0;
  virtual int SubAllTickByTick(int exchange, int requestId) = 0;
  virtual int UnSubAllTickByTick(int exchange, int requestId) = 0;
  /// instrumentIds: `count` pointers, each to a buffer of at least 16 bytes;
  /// at most 254 ids per request.
  virtual int SubMarketData(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubMarketData(char** instrumentIds, int count, int requestId) = 0;
  virtual int SubTickByTick(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubTickByTick(char** instrumentIds, int count, int requestId) = 0;
  virtual int SubAllOrderBook(int exchange, int requestId) = 0;
  virtual int UnSubAllOrderBook(int exchange, int requestId) = 0;
  virtual int SubOrderBook(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubOrderBook(char** instrumentIds, int count, int requestId) = 0;

  VelmarMdApi() = default;
  VelmarMdApi(const VelmarMdApi&) = default;
  VelmarMdApi& operator=(const VelmarMdApi&) = default;

 protected:
  // Not virtual and not public: the application never deletes the object.
  ~VelmarMdApi() {}
};

}  // namespace mdapi
}  // namespace velmar

#endif  // VELMAR_MD_API_H

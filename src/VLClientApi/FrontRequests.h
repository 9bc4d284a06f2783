// FrontRequests: the requests to the front. The checks of every operation,
// their return codes and OnRspError reports, and the one send path they all
// share. MdApiImpl's request operations are these, one for one, under the
// same names.
//
// Threads: the caller's, an application thread or a callback's.
// requestPackage_ and rspInfo_ are used without a lock, so an application must
// not issue two requests at the same time from different threads; requests
// made from callbacks that hold mutex_ are kept apart by it.
//
// Locks: while callbacks are serialized, a report of a request that could not
// be sent (OnRspError -117) runs under mutex_, taken here unless the calling
// thread already holds it. Otherwise it comes with no lock taken here (a
// caller inside a callback holds its own callback lock, never mutex_, so
// nothing here can wait on it). Every other report of a refused request
// comes without a lock. Each report is counted in the any-thread group of
// SessionCounters.
#pragma once

#include <cstddef>
#include <memory>

#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SessionCounters.h"
#include "VelmarMdStruct.h"

class CVelmarPackage;

namespace velmar {
namespace mdapi {

class FrontSession;

class FrontRequests {
 public:
  /// All outlive the requests: they are their neighbours in MdApiImpl.
  FrontRequests(SessionCore& core, FrontSession& front, SessionCounters& counters);
  ~FrontRequests();
  FrontRequests(const FrontRequests&) = delete;
  FrontRequests& operator=(const FrontRequests&) = delete;

  int ReqUserLogin(CVelmarReqUserLogin* request, int requestId);
  int ReqUserLogout(CVelmarReqUserLogout* request, int requestId);
  int SubAllMarketData(int tickType, int exchange, int requestId);
  int UnSubAllMarketData(int tickType, int exchange, int requestId);
  int SubAllTickByTick(int exchange, int requestId);
  int UnSubAllTickByTick(int exchange, int requestId);
  int SubMarketData(char** instrumentIds, int count, int requestId);
  int UnSubMarketData(char** instrumentIds, int count, int requestId);
  int SubTickByTick(char** instrumentIds, int count, int requestId);
  int UnSubTickByTick(char** instrumentIds, int count, int requestId);
  int SubAllOrderBook(int exchange, int requestId);
  int UnSubAllOrderBook(int exchange, int requestId);
  int SubOrderBook(char** instrumentIds, int count, int requestId);
  int UnSubOrderBook(char** instrumentIds, int count, int requestId);

  /// Zeroes rspInfo_, fills id and text, calls OnRspError(info, requestId,
  /// true) on the caller's thread without the lock.
  void fillRspInfo(int errorId, int requestId);
  /// Builds one package with one field and sends it. Always returns 0: a
  /// failure reaches the application as OnRspError -117 with requestId -1.
  /// A field longer than a package can carry is such a failure.
  int sendTransaction(const void* data, int requestId, int tid, size_t length);
  /// The body of the six per-instrument requests. `operation` names the API
  /// operation in its DEBUG lines.
  int sendInstruments(char** instrumentIds, int count, int requestId, int tid,
                      bool reportStateErrors, const char* nullMessage, const char* operation);

 private:
  SessionCore& core_;
  FrontSession& front_;
  SessionCounters& counters_;
  CVelmarRspInfo rspInfo_;
  /// Reused for every request.
  std::unique_ptr<CVelmarPackage> requestPackage_;
};

}  // namespace mdapi
}  // namespace velmar

// The console's callbacks. The library calls them on its own threads, mostly
// under its session lock, so they only count and copy a few numbers: the
// counters are atomics, the copies of the viewed book and record are guarded
// by viewMutex_, the per-book counts and error texts by statsMutex_. The
// render thread and the end of main read them through the accessors.
//
// Every request goes out from OnFrontConnected or OnRspUserLogin, so from the
// front's thread alone, as the library wants; requestId_ is that thread's.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "VelmarMdApi.h"
#include "VelmarMdStruct.h"
#include "console/BookView.h"
#include "console/ConsoleOptions.h"

namespace velmar {
namespace console {

class ConsoleSpi : public mdapi::VelmarMdSpi {
 public:
  ConsoleSpi(mdapi::VelmarMdApi* api, const ConsoleOptions& options) : api_(api), o_(options) {}

  // Counters, read by the render thread and at the end.
  std::atomic<int64_t> connects{0}, disconnects{0}, connectFailures{0}, heartbeatWarnings{0};
  std::atomic<int64_t> logins{0}, errors{0}, answers{0};
  std::atomic<int64_t> marketData{0}, marketDataSh{0}, marketDataSz{0};
  std::atomic<int64_t> tickOrders{0}, tickTrades{0}, tickCancels{0};
  std::atomic<int64_t> books{0};
  std::atomic<bool> loggedIn{false};

  void OnFrontConnected() override;
  void OnFrontDisconnected(int reason) override;
  void OnHeartBeatWarning(int) override { ++heartbeatWarnings; }
  void OnRspError(CVelmarRspInfo* info, int, bool) override;
  void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int, bool) override;
  void OnRspSubAllMarketData(int, int, int, bool) override { ++answers; }
  void OnRspSubAllTickByTick(int, int, bool) override { ++answers; }
  void OnRspSubMarketData(char**, int, int, bool) override { ++answers; }
  void OnRspSubTickByTick(char**, int, int, bool) override { ++answers; }
  void OnRspSubOrderBook(char**, int, int, bool) override { ++answers; }
  void OnRtnMarketData(CVelmarMarketData* d) override;
  void OnRtnTickByTick(CVelmarTickByTick* t) override;
  void OnRtnOrderBook(CVelmarOrderBook* b) override;

  /// Copies of the viewed instrument's book and record.
  void copyView(BookView* book, RecordView* record);
  /// Books published per instrument id.
  std::map<std::string, int64_t> booksById();
  /// The first ten errors, as text.
  std::vector<std::string> errorTexts();

 private:
  int nextRequestId() { return ++requestId_; }
  void noteError(const CVelmarRspInfo& info, const char* what);
  void check(const char* request, int result);
  template <typename Request>
  void subscribeIds(const char* name, const std::vector<std::string>& ids, Request request);
  void subscribe();

  mdapi::VelmarMdApi* api_;
  const ConsoleOptions& o_;
  int requestId_ = 0;  // front thread only

  std::mutex viewMutex_;
  BookView book_;
  RecordView record_;

  std::mutex statsMutex_;
  std::map<std::string, int64_t> booksById_;
  std::vector<std::string> errorTexts_;
};

}  // namespace console
}  // namespace velmar

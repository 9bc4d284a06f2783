#include "console/ConsoleSpi.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace velmar {
namespace console {

using mdapi::VelmarMdApi;

namespace {

/// Orders named by a list such as ",101,102,": one fewer than its commas.
int countOrders(const std::string& list) {
  int commas = static_cast<int>(std::count(list.begin(), list.end(), ','));
  return commas > 1 ? commas - 1 : 0;
}

/// A fixed text field up to its first NUL.
std::string idText(const char* id, size_t size) {
  return std::string(id, std::find(id, id + size, '\0'));
}

}  // namespace

void ConsoleSpi::OnFrontConnected() {
  ++connects;
  CVelmarReqUserLogin request;
  std::memset(&request, 0, sizeof request);
  std::strncpy(request.UserID, o_.user.c_str(), sizeof request.UserID - 1);
  std::strncpy(request.Password, o_.password.c_str(), sizeof request.Password - 1);
  std::strncpy(request.UserProductInfo, "vlmd-console", sizeof request.UserProductInfo - 1);
  check("ReqUserLogin", api_->ReqUserLogin(&request, nextRequestId()));
}

void ConsoleSpi::OnFrontDisconnected(int reason) {
  loggedIn = false;
  ++(reason == 0 ? disconnects : connectFailures);
}

void ConsoleSpi::OnRspError(CVelmarRspInfo* info, int, bool) {
  if (info != nullptr) noteError(*info, "error");
}

void ConsoleSpi::OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int, bool) {
  if (login == nullptr) {
    if (info != nullptr) noteError(*info, "login refused");
    return;
  }
  loggedIn = true;
  ++logins;
  subscribe();
}

void ConsoleSpi::OnRtnMarketData(CVelmarMarketData* d) {
  ++marketData;
  ++(d->ExchangeID == 1 ? marketDataSh : marketDataSz);
  // The view shows a Shenzhen book; "000001" is also a Shanghai index.
  if (d->ExchangeID == 2 && !o_.view.empty() && o_.view == idText(d->SecurityID, 16)) {
    std::lock_guard<std::mutex> lock(viewMutex_);
    record_.seen = true;
    record_.updateTime = d->UpdateTime;
    record_.lastPrice = d->LastPrice;
    record_.volume = d->TotalVolume;
    record_.phase = idText(d->TradingPhaseCode, sizeof d->TradingPhaseCode);
  }
}

void ConsoleSpi::OnRtnTickByTick(CVelmarTickByTick* t) {
  if (t->TickType == 1) {
    ++tickOrders;
  } else if (t->TradeFlag == '4') {
    ++tickCancels;
  } else {
    ++tickTrades;
  }
}

void ConsoleSpi::OnRtnOrderBook(CVelmarOrderBook* b) {
  ++books;
  const std::string id = idText(b->SecurityID, sizeof b->SecurityID);
  {
    std::lock_guard<std::mutex> lock(statsMutex_);
    ++booksById_[id];
  }
  if (id != o_.view) return;
  // Copy the numbers now: the record is live and changes after the call.
  std::lock_guard<std::mutex> lock(viewMutex_);
  book_.seen = true;
  book_.updateTime = b->UpdateTime;
  book_.lastPrice = b->LastPrice;
  book_.volume = b->TotalVolume;
  book_.trades = b->NumTrades;
  for (size_t i = 0; i < 10; ++i) {
    book_.bids[i] = Level{b->Bid[i], b->BidQty[i], countOrders(b->BidOrders[i])};
    book_.asks[i] = Level{b->Ask[i], b->AskQty[i], countOrders(b->AskOrders[i])};
  }
}

void ConsoleSpi::copyView(BookView* book, RecordView* record) {
  std::lock_guard<std::mutex> lock(viewMutex_);
  *book = book_;
  *record = record_;
}

std::map<std::string, int64_t> ConsoleSpi::booksById() {
  std::lock_guard<std::mutex> lock(statsMutex_);
  return booksById_;
}

std::vector<std::string> ConsoleSpi::errorTexts() {
  std::lock_guard<std::mutex> lock(statsMutex_);
  return errorTexts_;
}

void ConsoleSpi::noteError(const CVelmarRspInfo& info, const char* what) {
  ++errors;
  char text[160];
  std::snprintf(text, sizeof text, "%s: %d %s", what, static_cast<int>(info.ErrorID),
                idText(info.ErrorMsg, sizeof info.ErrorMsg).c_str());
  std::lock_guard<std::mutex> lock(statsMutex_);
  if (errorTexts_.size() < 10) errorTexts_.push_back(text);
}

void ConsoleSpi::check(const char* request, int result) {
  if (result == 0) return;
  ++errors;
  char text[96];
  std::snprintf(text, sizeof text, "%s returned %d", request, result);
  std::lock_guard<std::mutex> lock(statsMutex_);
  if (errorTexts_.size() < 10) errorTexts_.push_back(text);
}

/// Sends ids in requests of at most 254, the most one request carries.
template <typename Request>
void ConsoleSpi::subscribeIds(const char* name, const std::vector<std::string>& ids,
                              Request request) {
  for (size_t at = 0; at < ids.size(); at += 254) {
    const size_t n = std::min<size_t>(254, ids.size() - at);
    std::vector<std::array<char, 16>> buffers(n);
    std::vector<char*> pointers(n);
    for (size_t i = 0; i < n; ++i) {
      buffers[i].fill('\0');
      std::memcpy(buffers[i].data(), ids[at + i].data(), std::min<size_t>(15, ids[at + i].size()));
      pointers[i] = buffers[i].data();
    }
    check(name, (api_->*request)(pointers.data(), static_cast<int>(n), nextRequestId()));
  }
}

// Runs in OnRspUserLogin on the front's thread.
void ConsoleSpi::subscribe() {
  if (!o_.md.empty()) subscribeIds("SubMarketData", o_.md, &VelmarMdApi::SubMarketData);
  if (o_.mdAll != 0) {
    check("SubAllMarketData", api_->SubAllMarketData(7, o_.mdAll, nextRequestId()));
  }
  if (!o_.ticks.empty()) subscribeIds("SubTickByTick", o_.ticks, &VelmarMdApi::SubTickByTick);
  if (o_.ticksAll != 0) {
    check("SubAllTickByTick", api_->SubAllTickByTick(o_.ticksAll, nextRequestId()));
  }
  if (!o_.books.empty()) subscribeIds("SubOrderBook", o_.books, &VelmarMdApi::SubOrderBook);
  if (o_.booksAll) check("SubAllOrderBook", api_->SubAllOrderBook(2, nextRequestId()));
}

}  // namespace console
}  // namespace velmar

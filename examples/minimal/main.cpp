// The smallest useful VLMdApi application: log in, subscribe to the market
// data and the tick-by-tick orders and trades of a few instruments, print
// what arrives, and stop after a while. Exits with 0 if the login succeeded.
//
//   vlmd-minimal --front tcp://127.0.0.1:PORT [--mcast udp://239.255.0.1:30001]
//       [--interface 127.0.0.1] [--user demo] [--password secret]
//       [--ids 000001,300446,600000] [--duration 10]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "VelmarMdApi.h"

using velmar::mdapi::VelmarMdApi;
using velmar::mdapi::VelmarMdSpi;

namespace {

std::map<std::string, std::string> g_options = {{"--front", ""},
                                                {"--mcast", "udp://239.255.0.1:30001"},
                                                {"--interface", "127.0.0.1"},
                                                {"--user", "demo"},
                                                {"--password", "secret"},
                                                {"--ids", "000001,300446,600000"},
                                                {"--duration", "10"}};

// The callbacks run on the library's threads; those that run under its
// session lock never overlap one another. Every pointer argument is valid
// during the call only.
class Printer : public VelmarMdSpi {
 public:
  explicit Printer(VelmarMdApi* api)
      : api_(api), user_(g_options["--user"]), password_(g_options["--password"]) {
    // Instrument ids travel as 16-byte NUL-padded buffers.
    std::string list = g_options["--ids"] + ",";
    for (size_t from = 0, comma; (comma = list.find(',', from)) != std::string::npos;
         from = comma + 1) {
      ids_.emplace_back(16, '\0');
      list.copy(&ids_.back()[0], std::min<size_t>(comma - from, 15), from);
    }
    for (std::string& id : ids_) idPointers_.push_back(&id[0]);
  }
  std::atomic<bool> loggedIn{false};

  void OnFrontConnected() override {
    CVelmarReqUserLogin login{};
    std::strncpy(login.UserID, user_.c_str(), sizeof login.UserID - 1);
    std::strncpy(login.Password, password_.c_str(), sizeof login.Password - 1);
    api_->ReqUserLogin(&login, 1);  // requests from a callback are allowed
  }
  void OnFrontDisconnected(int reason) override { std::printf("disconnected (%d)\n", reason); }
  void OnRspError(CVelmarRspInfo* info, int requestId, bool) override {
    std::printf("error %d %s (request %d)\n", info->ErrorID, info->ErrorMsg, requestId);
  }
  void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int, bool) override {
    if (!login) {
      std::printf("login refused: %s\n", info->ErrorMsg);
      return;
    }
    std::printf("logged in as %.16s, trading day %.9s\n", login->UserID, login->TradingDay);
    loggedIn = true;
    // A reconnect drops login and subscriptions; both are made again then.
    api_->SubMarketData(idPointers_.data(), static_cast<int>(idPointers_.size()), 2);
    api_->SubTickByTick(idPointers_.data(), static_cast<int>(idPointers_.size()), 3);
  }
  void OnRtnMarketData(CVelmarMarketData* md) override {
    std::printf("md %s %.16s last %.3f volume %lld bid %.3f x %lld ask %.3f x %lld\n",
                md->ExchangeID == 1 ? "SH" : "SZ", md->SecurityID, md->LastPrice,
                static_cast<long long>(md->TotalVolume), md->BidPrice[0],
                static_cast<long long>(md->BidVolume[0]), md->AskPrice[0],
                static_cast<long long>(md->AskVolume[0]));
  }
  void OnRtnTickByTick(CVelmarTickByTick* t) override {
    // An order carries its side ('1' buy, '2' sell), a trade its flag
    // (Shenzhen: 'F' executed, '4' cancelled).
    const bool order = t->TickType == 1;
    std::printf("tick %s %s %.20s #%lld %c %.3f x %lld\n", order ? "order" : "trade",
                t->ExchangeID == 1 ? "SH" : "SZ", t->SecurityID,
                static_cast<long long>(t->ApplSeqNum), order ? t->Side : t->TradeFlag, t->Price,
                static_cast<long long>(t->Qty));
  }

 private:
  VelmarMdApi* api_;
  std::string user_, password_;
  std::vector<std::string> ids_;
  std::vector<char*> idPointers_;
};

int usage() {
  std::fputs(
      "usage: vlmd-minimal --front tcp://HOST:PORT [--mcast udp://GROUP:PORT]\n"
      "    [--interface IP] [--user NAME] [--password PW] [--ids ID,ID...] [--duration S]\n",
      stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 == argc || !g_options.count(argv[i])) return usage();
    g_options[argv[i]] = argv[i + 1];
  }
  if (g_options["--front"].empty()) return usage();

  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi();
  // Neither object is ever deleted: the library's threads use both until the
  // process ends.
  Printer* spi = new Printer(api);
  api->RegisterSpi(spi);
  api->RegisterFront(g_options["--front"].c_str());
  api->RegisterMulticast(g_options["--mcast"].c_str());
  api->RegisterMulticastInterface(g_options["--interface"].c_str());
  if (int rc = api->Init()) {
    std::fprintf(stderr, "Init failed: %d\n", rc);
    return 1;
  }
  std::this_thread::sleep_for(std::chrono::seconds(std::stoi(g_options["--duration"])));
  api->Release();
  api->Join();
  return spi->loggedIn ? 0 : 1;
}

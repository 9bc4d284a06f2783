// Prints the top levels of the order books that VLMdApi rebuilds for
// Shenzhen instruments, once a second, and stops after a while. Exits with 0
// if the login succeeded.
//
//   vlmd-book-printer --front tcp://127.0.0.1:PORT [--mcast udp://239.255.0.1:30001]
//       [--interface 127.0.0.1] [--user demo] [--password secret]
//       [--ids 000001,300446] [--levels 5] [--duration 10]
//
// OnRtnOrderBook runs on the library's book thread and hands over the live
// book, valid during the call only: the callback copies what it needs under
// the application's own mutex, and the main thread prints the copies.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
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
                                                {"--ids", "000001,300446"},
                                                {"--levels", "5"},
                                                {"--duration", "10"}};

// What the application keeps of a book: a copy of the top levels.
struct TopOfBook {
  long long updateTime = 0, volume = 0, updates = 0;
  double last = 0, bid[10] = {}, ask[10] = {};
  long long bidQty[10] = {}, askQty[10] = {};
};

class BookSpi : public VelmarMdSpi {
 public:
  BookSpi(VelmarMdApi* api, int levels)
      : api_(api), levels_(levels), user_(g_options["--user"]), password_(g_options["--password"]) {
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

  // Front loop thread, under the library's session lock.
  void OnFrontConnected() override {
    CVelmarReqUserLogin login{};
    std::strncpy(login.UserID, user_.c_str(), sizeof login.UserID - 1);
    std::strncpy(login.Password, password_.c_str(), sizeof login.Password - 1);
    api_->ReqUserLogin(&login, 1);  // requests from a callback are allowed
  }
  void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int, bool) override {
    if (!login) {
      std::printf("login refused: %s\n", info->ErrorMsg);
      return;
    }
    loggedIn = true;
    api_->SubOrderBook(idPointers_.data(), static_cast<int>(idPointers_.size()), 2);
  }
  // Book thread, under the session lock: copy and return at once.
  void OnRtnOrderBook(CVelmarOrderBook* book) override {
    std::lock_guard<std::mutex> lock(mutex_);
    const char* id = book->SecurityID;
    TopOfBook& top = books_[std::string(id, std::find(id, id + 16, '\0'))];
    top.updateTime = book->UpdateTime;
    top.volume = book->TotalVolume;
    top.last = book->LastPrice;
    for (int i = 0; i < levels_; ++i) {
      top.bid[i] = book->Bid[i], top.bidQty[i] = book->BidQty[i];
      top.ask[i] = book->Ask[i], top.askQty[i] = book->AskQty[i];
    }
    ++top.updates;
  }

  std::map<std::string, TopOfBook> books() {
    std::lock_guard<std::mutex> lock(mutex_);
    return books_;
  }

 private:
  VelmarMdApi* api_;
  const int levels_;
  std::string user_, password_;
  std::vector<std::string> ids_;
  std::vector<char*> idPointers_;
  std::mutex mutex_;
  std::map<std::string, TopOfBook> books_;
};

void print(const std::string& id, const TopOfBook& top, int levels) {
  std::printf("book %s time %lld last %.3f volume %lld (%lld updates)\n", id.c_str(),
              top.updateTime, top.last, top.volume, top.updates);
  std::printf("  %10s %10s | %-10s %-10s\n", "bid qty", "bid", "ask", "ask qty");
  for (int i = 0; i < levels; ++i) {  // a price of 0 is an empty level
    std::printf("  %10lld %10.3f | %-10.3f %-10lld\n", top.bidQty[i], top.bid[i], top.ask[i],
                top.askQty[i]);
  }
}

int usage() {
  std::fputs(
      "usage: vlmd-book-printer --front tcp://HOST:PORT [--mcast udp://GROUP:PORT]\n"
      "    [--interface IP] [--user NAME] [--password PW] [--ids ID,ID...] [--levels N]\n"
      "    [--duration S]\n",
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
  const int levels = std::max(1, std::min(10, std::stoi(g_options["--levels"])));

  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi();
  // Neither object is ever deleted: the library's threads use both until the
  // process ends.
  BookSpi* spi = new BookSpi(api, levels);
  api->RegisterSpi(spi);
  api->RegisterFront(g_options["--front"].c_str());
  api->RegisterMulticast(g_options["--mcast"].c_str());
  api->RegisterMulticastInterface(g_options["--interface"].c_str());
  if (int rc = api->Init()) {
    std::fprintf(stderr, "Init failed: %d\n", rc);
    return 1;
  }
  for (int s = std::stoi(g_options["--duration"]); s > 0; --s) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    for (const auto& [id, top] : spi->books()) print(id, top, levels);
    std::fflush(stdout);
  }
  api->Release();
  api->Join();
  return spi->loggedIn ? 0 : 1;
}

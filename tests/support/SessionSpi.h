// A VelmarMdSpi that turns every callback into a line of text the test can wait
// on; optional hooks run inside callbacks, on the library's thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "VelmarMdApi.h"

namespace velmar {
namespace testing {

class SessionSpi : public mdapi::VelmarMdSpi {
 public:
  void OnFrontConnected() override {
    add("connected");
    if (onConnected) onConnected();
  }
  void OnFrontDisconnected(int reason) override { add("disconnected " + std::to_string(reason)); }
  void OnHeartBeatWarning(int seconds) override { add("heartbeat " + std::to_string(seconds)); }
  void OnRspError(CVelmarRspInfo* info, int requestId, bool isLast) override {
    add("error " + std::to_string(info->ErrorID) + " " + info->ErrorMsg + " id " +
        std::to_string(requestId) + last(isLast));
  }
  void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int requestId,
                      bool isLast) override {
    if (login)
      add(std::string("login ok ") + login->UserID + " id " + std::to_string(requestId) +
          last(isLast));
    else
      add("login refused " + std::to_string(info->ErrorID) + " id " + std::to_string(requestId));
    if (onLogin) onLogin(login != nullptr);
  }
  void OnRspUserLogout(CVelmarRspUserLogout* logout, CVelmarRspInfo* info, int, bool) override {
    add(logout ? std::string("logout ok ") + logout->UserID
               : "logout refused " + std::to_string(info->ErrorID));
  }
  void OnRspSubAllMarketData(int type, int ex, int, bool l) override {
    all("sub all md", type, ex, l);
  }
  void OnRspUnSubAllMarketData(int type, int ex, int, bool l) override {
    all("unsub all md", type, ex, l);
  }
  void OnRspSubAllTickByTick(int ex, int, bool l) override { all("sub all ticks", -1, ex, l); }
  void OnRspUnSubAllTickByTick(int ex, int, bool l) override { all("unsub all ticks", -1, ex, l); }
  void OnRspSubMarketData(char** ids, int n, int, bool l) override {
    add("sub md" + join(ids, n, l));
  }
  void OnRspUnSubMarketData(char** ids, int n, int, bool l) override {
    add("unsub md" + join(ids, n, l));
  }
  void OnRspSubTickByTick(char** ids, int n, int, bool l) override {
    add("sub ticks" + join(ids, n, l));
  }
  void OnRspUnSubTickByTick(char** ids, int n, int, bool l) override {
    add("unsub ticks" + join(ids, n, l));
  }
  void OnRspSubOrderBook(char** ids, int n, int, bool l) override {
    add("sub books" + join(ids, n, l));
  }
  void OnRspUnSubOrderBook(char** ids, int n, int, bool l) override {
    add("unsub books" + join(ids, n, l));
  }
  void OnRtnMarketData(CVelmarMarketData* data) override {
    add(std::string("md ") + data->SecurityID);
    if (onMarketData) onMarketData();
  }
  void OnRtnTickByTick(CVelmarTickByTick* data) override {
    add(std::string("tick ") + data->SecurityID + " " + std::to_string(data->SeqNo));
  }
  void OnRtnOrderBook(CVelmarOrderBook* book) override {
    add(std::string("book ") + book->SecurityID);
  }

  /// Waits until an event equal to `text` has come, counting from `from`.
  /// Returns its index, or -1 after the time-out.
  int waitFor(const std::string& text, size_t from = 0, int timeoutMs = 5000) {
    std::unique_lock<std::mutex> lock(mutex_);
    int found = -1;
    cond_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
      for (size_t i = from; i < events_.size(); ++i)
        if (events_[i] == text) return (found = static_cast<int>(i)) >= 0;
      return false;
    });
    return found;
  }
  /// Waits until `count` events start with `prefix`.
  bool waitForCount(const std::string& prefix, size_t count, int timeoutMs = 5000) {
    std::unique_lock<std::mutex> lock(mutex_);
    return cond_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                          [&] { return countLocked(prefix) >= count; });
  }
  size_t count(const std::string& prefix) {
    std::lock_guard<std::mutex> lock(mutex_);
    return countLocked(prefix);
  }
  size_t size() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_.size();
  }
  std::string dump() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string text;
    for (const std::string& e : events_) text += "  " + e + "\n";
    return text;
  }

  std::function<void()> onConnected;
  std::function<void(bool accepted)> onLogin;
  std::function<void()> onMarketData;

 private:
  static std::string last(bool isLast) { return isLast ? " last" : ""; }
  static std::string join(char** ids, int count, bool isLast) {
    std::string s;
    for (int i = 0; i < count; ++i) s += std::string(" ") + ids[i];
    return s + last(isLast);
  }
  // "<what> [<tick type>] <exchange>[ last]"
  void all(const char* what, int type, int exchange, bool isLast) {
    add(what + (type >= 0 ? " " + std::to_string(type) : "") + " " + std::to_string(exchange) +
        last(isLast));
  }
  size_t countLocked(const std::string& prefix) const {
    size_t n = 0;
    for (const std::string& e : events_)
      if (e.compare(0, prefix.size(), prefix) == 0) ++n;
    return n;
  }
  void add(std::string event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(std::move(event));
    cond_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable cond_;
  std::vector<std::string> events_;
};

}  // namespace testing
}  // namespace velmar

// The front session through the public operations, against the front
// simulator on loopback. The fixture builds only the front side that Init
// builds (no log writer, no feed threads), so many sessions fit one process.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "VLClientApi/MdApiImpl.h"
#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/InetAddress.h"
#include "VLNet/TcpClient.h"
#include "front/FrontSimulator.h"
#include "support/Datagram.h"
#include "support/LogCapture.h"
#include "support/SessionSpi.h"
#include "support/TestAccess.h"
#include "support/WireBytes.h"

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;
using velmar::sim::FrontSimulator;
using velmar::sim::FrontSimulatorOptions;
using velmar::testing::LogCapture;
using velmar::testing::SessionSpi;

namespace {

// An answer package written byte by byte, chain 'S'.
std::string packageBytes(uint32_t fieldId, const void* value, size_t length, uint8_t ftdType = 1) {
  velmar::test::Bytes b = velmar::test::package(
      {{fieldId, std::string(static_cast<const char*>(value), length)}}, 0x53, 0, ftdType);
  return std::string(b.begin(), b.end());
}

CVelmarReqUserLogin loginRequest(const char* password) {
  CVelmarReqUserLogin req{};
  std::strcpy(req.UserID, "alice");
  std::strcpy(req.Password, password);
  return req;
}

const char kTradingDay[] = "20240102";

template <typename F>
bool eventually(F f) {
  for (int i = 0; i < 400 && !f(); ++i) velmar::platform::sleepMs(5);
  return f();
}

class FrontSession : public ::testing::Test {
 protected:
  static FrontSimulatorOptions options() {
    FrontSimulatorOptions o;
    o.users["alice"] = "secret";
    o.keepAliveIntervalMs = 200;
    o.tradingDay = kTradingDay;
    return o;
  }

  FrontSession() : sim_(options()) {
    for (int i = 0; i < 255; ++i) many_[i] = ids_[i], std::snprintf(ids_[i], 16, "%06d", i);
  }

  void SetUp() override {
    std::string error;
    ASSERT_TRUE(sim_.start(&error)) << error;
    api_.RegisterSpi(&spi_);
    front_.startLoop();
    front_.createClient(velmar::net::InetAddress("127.0.0.1", sim_.port()), nullptr);
  }

  void TearDown() override {
    const size_t mark = spi_.size();
    TestAccess::stopClient(front_);
    sim_.stop();
    // A live connection goes down before its client and its last holder.
    if (core_.connected_.load()) spi_.waitFor("disconnected 0", mark, 3000);
    TestAccess::closeFront(front_);
  }

  void connect() {
    front_.connect();
    ASSERT_GE(spi_.waitFor("connected"), 0) << spi_.dump();
  }
  void login() {
    connect();
    CVelmarReqUserLogin req = loginRequest("secret");
    ASSERT_EQ(api_.ReqUserLogin(&req, 1), 0);
    ASSERT_GE(spi_.waitFor("login ok alice id 1 last"), 0) << spi_.dump();
  }
  velmar::mdapi::Subscriptions& subs() { return TestAccess::subscriptions(api_); }
  // The maps are guarded by the session lock; read them under it.
  template <typename F>
  auto locked(F f) {
    velmar::utility::MutexLockGuard lock(core_.mutex_);
    return f();
  }

  LogCapture log_{velmar::utility::Logger::INFO};
  FrontSimulator sim_;
  SessionSpi spi_;
  MdApiImpl api_;
  velmar::mdapi::SessionCore& core_ = TestAccess::core(api_);
  velmar::mdapi::FrontSession& front_ = TestAccess::front(api_);
  char ids_[255][16] = {};
  char* many_[255];  // one more id than a request holds
};

char id000001[16] = "000001";
char id300446[16] = "300446";
char id600000[16] = "600000";

}  // namespace

TEST_F(FrontSession, LoginRefusedThenAcceptedAndKeepAlivesOnlyAfterLogin) {
  connect();
  CVelmarReqUserLogin req = loginRequest("wrong");
  EXPECT_EQ(api_.ReqUserLogin(&req, 7), 0);
  ASSERT_GE(spi_.waitFor("login refused -102 id 7"), 0) << spi_.dump();
  EXPECT_FALSE(core_.loggedIn_.load());
  // Connected for a while, not logged in: no keep-alive has gone out.
  velmar::platform::sleepMs(1200);
  EXPECT_EQ(sim_.keepAlivesReceived(), 0u);

  req = loginRequest("secret");
  EXPECT_EQ(api_.ReqUserLogin(&req, 8), 0);
  ASSERT_GE(spi_.waitFor("login ok alice id 8 last"), 0) << spi_.dump();
  EXPECT_TRUE(core_.loggedIn_.load());
  EXPECT_TRUE(sim_.waitForKeepAlives(1, 3000));
  // A second login while logged in is refused locally.
  EXPECT_EQ(api_.ReqUserLogin(&req, 9), -119);
  EXPECT_GE(spi_.waitFor("error -119 Duplicated login id 9 last"), 0);
}

TEST_F(FrontSession, ReturnCodesOfEveryStateAndArgumentCheck) {
  char* ids[] = {id000001};
  CVelmarReqUserLogin req = loginRequest("secret");
  CVelmarReqUserLogout out{};
  std::strcpy(out.UserID, "alice");

  // Not connected: -116; the operations marked so also call OnRspError.
  EXPECT_EQ(api_.ReqUserLogin(&req, 1), -116);
  EXPECT_EQ(api_.SubMarketData(ids, 1, 2), -116);
  EXPECT_EQ(api_.SubOrderBook(ids, 1, 3), -116);
  EXPECT_EQ(api_.SubAllMarketData(1, 1, 4), -116);
  EXPECT_EQ(api_.SubAllOrderBook(2, 5), -116);
  EXPECT_EQ(spi_.count("error -116 failed to connect front server"), 2u) << spi_.dump();

  connect();
  // Connected, not logged in: -100.
  EXPECT_EQ(api_.ReqUserLogout(&out, 1), -100);
  EXPECT_EQ(api_.SubTickByTick(ids, 1, 2), -100);
  EXPECT_EQ(api_.UnSubOrderBook(ids, 1, 3), -100);
  EXPECT_EQ(api_.SubAllTickByTick(1, 4), -100);
  EXPECT_EQ(spi_.count("error -100 Not logged in"), 2u) << spi_.dump();
  // The record checks.
  CVelmarReqUserLogin empty{};
  EXPECT_EQ(api_.ReqUserLogin(&empty, 5), -120);
  std::strcpy(empty.UserID, "alice");
  EXPECT_EQ(api_.ReqUserLogin(&empty, 6), -120);
  EXPECT_EQ(spi_.count("error -120 Field check error"), 2u);

  ASSERT_EQ(api_.ReqUserLogin(&req, 7), 0);
  ASSERT_GE(spi_.waitFor("login ok alice id 7 last"), 0);
  EXPECT_EQ(api_.SubMarketData(nullptr, 1, 8), -112);
  EXPECT_EQ(api_.UnSubTickByTick(ids, -3, 8), -112);
  EXPECT_EQ(api_.SubAllMarketData(1, 4, 9), -106);
  EXPECT_EQ(api_.SubAllMarketData(8, 1, 9), -107);
  EXPECT_EQ(api_.SubAllOrderBook(1, 9), -106);  // Shenzhen's bit is needed
  EXPECT_FALSE(core_.allOrderBook_.load());
  EXPECT_EQ(api_.SubAllOrderBook(3, 9), 0);
  EXPECT_TRUE(core_.allOrderBook_.load());
  EXPECT_EQ(api_.UnSubAllOrderBook(2, 9), 0);
  EXPECT_FALSE(core_.allOrderBook_.load());
  EXPECT_EQ(spi_.count("error"), 6u) << spi_.dump();  // the six above, no more

  // 254 ids fit in one field; 255 are refused with -117 and request id -1,
  // and the operation still returns 0.
  ASSERT_TRUE(sim_.waitForRequestWithId(20));  // the last request before
  sim_.clearRequests();
  EXPECT_EQ(api_.SubTickByTick(many_, 254, 11), 0);
  ASSERT_TRUE(sim_.waitForRequests(1));
  EXPECT_EQ(sim_.request(0).value.size(), 4064u);
  EXPECT_EQ(sim_.request(0).fieldId, 9u);
  EXPECT_EQ(sim_.request(0).requestId, 11u);
  EXPECT_EQ(api_.SubTickByTick(many_, 255, 12), 0);
  EXPECT_GE(spi_.waitFor("error -117 Fail to process transaction! id -1 last"), 0) << spi_.dump();
}

// The DEBUG lines of a refused request carry the name of the API operation
// that the application called, whichever part of the library writes them.
TEST_F(FrontSession, RefusedRequestsLogInTheNameOfTheirOperation) {
  LogCapture debug(velmar::utility::Logger::DEBUG);
  char* ids[] = {id000001};
  CVelmarReqUserLogin in = loginRequest("secret");
  CVelmarReqUserLogout out{};
  const struct {
    const char* operation;
    std::function<int()> call;
  } cases[] = {
      {"ReqUserLogin", [&] { return api_.ReqUserLogin(&in, 1); }},
      {"ReqUserLogout", [&] { return api_.ReqUserLogout(&out, 1); }},
      {"SubAllMarketData", [&] { return api_.SubAllMarketData(1, 1, 1); }},
      {"UnSubAllMarketData", [&] { return api_.UnSubAllMarketData(1, 1, 1); }},
      {"SubAllTickByTick", [&] { return api_.SubAllTickByTick(1, 1); }},
      {"UnSubAllTickByTick", [&] { return api_.UnSubAllTickByTick(1, 1); }},
      {"SubAllOrderBook", [&] { return api_.SubAllOrderBook(2, 1); }},
      {"UnSubAllOrderBook", [&] { return api_.UnSubAllOrderBook(2, 1); }},
      {"SubMarketData", [&] { return api_.SubMarketData(ids, 1, 1); }},
      {"UnSubMarketData", [&] { return api_.UnSubMarketData(ids, 1, 1); }},
      {"SubTickByTick", [&] { return api_.SubTickByTick(ids, 1, 1); }},
      {"UnSubTickByTick", [&] { return api_.UnSubTickByTick(ids, 1, 1); }},
      {"SubOrderBook", [&] { return api_.SubOrderBook(ids, 1, 1); }},
      {"UnSubOrderBook", [&] { return api_.UnSubOrderBook(ids, 1, 1); }},
  };
  for (const auto& c : cases) {
    LogCapture::clear();
    EXPECT_EQ(c.call(), -116) << c.operation;
    const std::string name = std::string("velmar::mdapi::MdApiImpl::") + c.operation + " ";
    EXPECT_TRUE(LogCapture::contains(name + "session not connected "))
        << c.operation << ": " << LogCapture::text();
  }
  LogCapture::clear();
  api_.ReqUserLogin(&in, 1);
  EXPECT_TRUE(LogCapture::contains("velmar::mdapi::MdApiImpl::ReqUserLogin [ReqUserLogin] "))
      << LogCapture::text();
}

TEST_F(FrontSession, AnswersChangeTheMapsOnlyWithTheLastMark) {
  login();
  char* ticks[] = {id000001, id300446};
  sim_.setIdsPerPiece(1);  // each id in its own piece: only the last carries the mark
  ASSERT_EQ(api_.SubTickByTick(ticks, 2, 20), 0);
  ASSERT_GE(spi_.waitFor("sub ticks 300446 last"), 0) << spi_.dump();
  EXPECT_GE(spi_.waitFor("sub ticks 000001"), 0);
  EXPECT_EQ(locked([&] { return subs().tickCount(); }), 1u);
  EXPECT_EQ(locked([&] { return subs().hasTicks("300446") ? 1u : 0u; }), 1u);

  sim_.setIdsPerPiece(0);
  ASSERT_EQ(api_.SubOrderBook(ticks, 2, 21), 0);
  ASSERT_GE(spi_.waitFor("sub books 000001 300446 last"), 0);
  EXPECT_EQ(locked([&] { return TestAccess::books(api_).bookCount(); }), 2u);
  EXPECT_TRUE(log_.contains("szseOrderBookMap_ add subInstrumentID:300446"));
  ASSERT_EQ(api_.UnSubOrderBook(ticks, 1, 22), 0);
  ASSERT_GE(spi_.waitFor("unsub books 000001 last"), 0);
  EXPECT_EQ(locked([&] { return TestAccess::books(api_).findBook("000001"); }), nullptr);

  ASSERT_EQ(api_.SubAllTickByTick(3, 23), 0);
  ASSERT_GE(spi_.waitFor("sub all ticks 3 last"), 0);
  EXPECT_TRUE(core_.allTickExchange1_.load());
  EXPECT_TRUE(core_.allTickExchange2_.load());

  // Market data: the last record of the batch completes the snapshots.
  char* md[] = {id300446, id600000};
  EXPECT_FALSE(core_.snapshotsComplete_.load());
  ASSERT_EQ(api_.SubMarketData(md, 2, 30), 0);
  ASSERT_GE(spi_.waitFor("sub md 300446 600000 last"), 0) << spi_.dump();
  ASSERT_TRUE(spi_.waitForCount("md ", 2)) << spi_.dump();
  EXPECT_TRUE(eventually([&] { return core_.snapshotsComplete_.load(); }));
  EXPECT_EQ(locked([&] { return subs().shenzhenRecord("300446") != nullptr; }), true);
  EXPECT_EQ(locked([&] { return subs().shanghaiRecord("600000") != nullptr; }), true);
  ASSERT_EQ(api_.UnSubMarketData(md, 1, 31), 0);
  ASSERT_GE(spi_.waitFor("unsub md 300446 last"), 0);
  EXPECT_EQ(locked([&] { return subs().shenzhenRecord("300446") != nullptr; }), false);
  ASSERT_EQ(api_.SubAllMarketData(7, 3, 32), 0);
  ASSERT_GE(spi_.waitFor("sub all md 7 3 last"), 0) << spi_.dump();
}

// Cut and joined packages are the reader's and the fuzz targets' concern.
TEST_F(FrontSession, StreamEdgesAndALogoutThatDropsTheRestOfTheRead) {
  login();
  // An unknown field id: an INFO line, and everything buffered goes.
  CVelmarRspInfo info{};
  sim_.sendRaw(packageBytes(21, &info, sizeof info) + packageBytes(32, &info, sizeof info));
  EXPECT_TRUE(eventually([&] { return log_.contains("Unkonwn Tid:21"); }));
  // A framing error drops the bytes; the stream goes on with the next read.
  sim_.sendRaw(packageBytes(32, &info, sizeof info, 3));
  velmar::platform::sleepMs(50);
  info.ErrorID = -1;
  std::strcpy(info.ErrorMsg, "after");
  sim_.sendRaw(packageBytes(32, &info, sizeof info));
  EXPECT_GE(spi_.waitFor("error -1 after id 0 last"), 0) << spi_.dump();
  EXPECT_EQ(spi_.count("error 0"), 0u) << spi_.dump();

  // A logout answer drops what follows it in the same read; the connection stays.
  CVelmarRspUserLogout out{};
  std::strcpy(out.UserID, "alice");
  info.ErrorID = -5;
  sim_.sendRaw(packageBytes(23, &out, sizeof out) + packageBytes(32, &info, sizeof info));
  ASSERT_GE(spi_.waitFor("logout ok alice"), 0) << spi_.dump();
  velmar::platform::sleepMs(50);
  EXPECT_EQ(spi_.count("error -5"), 0u);
  EXPECT_FALSE(core_.loggedIn_.load());
  EXPECT_TRUE(core_.connected_.load());
  EXPECT_TRUE(log_.contains("onLogout userID: alice"));
}

// Inside OnRspUserLogin and OnRtnMarketData the session lock is held: a
// request that goes out, and one whose send fails and is reported.
TEST_F(FrontSession, RequestsFromInsideCallbacksNeverDeadlock) {
  // The callbacks run on the loop thread and may still run after the body
  // has returned (a record that comes late, a login in TearDown), so they
  // reach nothing on this stack.
  static char* ids[] = {id300446};
  spi_.onLogin = [this](bool ok) {
    if (!ok) return;
    api_.SubMarketData(ids, 1, 50);
    api_.SubTickByTick(many_, 255, 51);
  };
  auto once = std::make_shared<std::atomic<bool>>(false);
  spi_.onMarketData = [this, once] {
    if (!once->exchange(true)) api_.SubOrderBook(many_, 255, 52);
  };
  login();
  ASSERT_GE(spi_.waitFor("sub md 300446 last"), 0) << spi_.dump();
  ASSERT_TRUE(spi_.waitForCount("error -117", 2)) << spi_.dump();
}

// The front goes silent: a warning and the write side shut; the front then
// closes its side, the session is cleared and the client reconnects afresh.
TEST_F(FrontSession, SilenceEndsTheConnectionAndALostConnectionClearsTheSession) {
  api_.SetHeartbeatTimeout(1);
  login();
  char* ids[] = {id000001};
  ASSERT_EQ(api_.SubTickByTick(ids, 1, 60), 0);
  ASSERT_GE(spi_.waitFor("sub ticks 000001 last"), 0);
  ASSERT_EQ(api_.SubAllOrderBook(2, 61), 0);
  const size_t before = spi_.size();
  sim_.setSilent(true);
  ASSERT_TRUE(spi_.waitForCount("heartbeat 1", 1, 4000)) << spi_.dump();
  sim_.setSilent(false);
  ASSERT_GE(spi_.waitFor("disconnected 0", before, 8000), 0) << spi_.dump();
  EXPECT_FALSE(core_.loggedIn_.load());
  EXPECT_FALSE(core_.allOrderBook_.load());
  EXPECT_EQ(locked([&] { return subs().tickCount(); }), 0u);
  ASSERT_GE(spi_.waitFor("connected", before, 8000), 0) << spi_.dump();
  // The connection's name reaches the log after OnFrontConnected returns.
  const std::string second = "MdClient:127.0.0.1:" + std::to_string(sim_.port()) + "#2";
  EXPECT_TRUE(eventually([&] { return log_.contains(second); }));
}

TEST_F(FrontSession, FailedConnectsReportEachAttempt) {
  sim_.stopListening();
  front_.connect();
  ASSERT_TRUE(spi_.waitForCount("disconnected 4097", 2, 4000)) << spi_.dump();
  EXPECT_EQ(spi_.count("connected"), 0u);
}

// The exchanges number each trading day from the start again. A login answer
// of the same day keeps the feed's sequence numbers; one of another day makes
// the feed forget them before its next datagram, so the new day's ticks pass.
TEST_F(FrontSession, ANewTradingDayForgetsTheFeedsSequenceNumbers) {
  login();
  velmar::mdapi::Feed& feed = TestAccess::feed(api_);
  core_.allTickExchange2_ = true;
  auto order = [&](int64_t seq) {
    feed.onFeedDatagram(velmar::testing::szseOrder(7, seq, "000001", 100000, 100, '1', 1).data());
  };
  auto answer = [&](const char* day, int requestId) {
    CVelmarRspUserLogin rsp{};
    std::strcpy(rsp.TradingDay, day);
    std::strcpy(rsp.UserID, "alice");
    velmar::test::Bytes b = velmar::test::package(
        {{22, std::string(reinterpret_cast<const char*>(&rsp), sizeof rsp)}}, 0x53, requestId);
    sim_.sendRaw(std::string(b.begin(), b.end()));
    ASSERT_GE(spi_.waitFor("login ok alice id " + std::to_string(requestId) + " last"), 0)
        << spi_.dump();
  };
  order(1000);
  ASSERT_GE(spi_.waitFor("tick 000001 1000"), 0);

  answer(kTradingDay, 2);  // the same day: 5 lies behind 1000
  order(5);
  answer("20991231", 3);  // a new day: its 6 is accepted
  order(6);
  EXPECT_EQ(spi_.count("tick 000001 5"), 0u) << spi_.dump();
  EXPECT_EQ(spi_.count("tick 000001 6"), 1u) << spi_.dump();
  EXPECT_TRUE(log_.contains(std::string("TradingDay 20991231 follows ") + kTradingDay +
                            ": sequence numbers of every channel forgotten"))
      << log_.text();
}

// callbacks.serialize=false: the front's callbacks hold the front's own
// callback lock, never the session lock, and requests from inside them (one
// that goes out, one whose send fails and is reported) still never deadlock.
TEST_F(FrontSession, UnserializedCallbacksHoldTheFrontsOwnLock) {
  core_.serializeCallbacks_ = false;
  struct Held {
    std::atomic<int> calls{0}, wrongLock{0};
  };
  auto held = std::make_shared<Held>();
  velmar::mdapi::SessionCore* core = &core_;
  auto note = [held, core] {
    ++held->calls;
    if (core->mutex_.isLockedByThisThread() || !core->frontCallbackMutex_.isLockedByThisThread())
      ++held->wrongLock;
  };
  static char* ids[] = {id300446};
  spi_.onLogin = [this, note](bool ok) {
    note();
    if (!ok) return;
    api_.SubMarketData(ids, 1, 50);
    api_.SubTickByTick(many_, 255, 51);
  };
  auto once = std::make_shared<std::atomic<bool>>(false);
  spi_.onMarketData = [this, once, note] {
    note();
    if (!once->exchange(true)) api_.SubOrderBook(many_, 255, 52);
  };
  login();
  ASSERT_GE(spi_.waitFor("sub md 300446 last"), 0) << spi_.dump();
  ASSERT_TRUE(spi_.waitForCount("error -117", 2)) << spi_.dump();
  ASSERT_TRUE(spi_.waitForCount("md ", 1)) << spi_.dump();
  EXPECT_GE(held->calls.load(), 2);
  EXPECT_EQ(held->wrongLock.load(), 0);
}
